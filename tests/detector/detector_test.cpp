// The four tests of convergence and locking: what passes, what is counted, what is refused.
#include "detector/eigenvalues.h"
#include "detector/relative_residuals.h"
#include "detector/residuals.h"
#include "detector/residuals_or_eigenvalues.h"
#include "support/block.h"

#include <array>

using namespace VesTest;
using Numbers = std::vector<double>;

namespace {

/// A column of numbers; the verdict of process 0 goes to all.
template <typename Scalar>
Block<Scalar> Column(const Numbers& v) {
  const auto entry = [&v](int i, int) { return Number<Scalar>(v.data()[i]); };
  return {static_cast<int>(v.size()), 1, entry, 0, world};
}

/// Columns of exactly these norms: four entries in all.
template <typename Scalar>
Block<Scalar> OfNorms(const Rows& rows, const Numbers& norms) {
  return {rows, static_cast<int>(norms.size()), [&norms](int, int j) {
            const double half = norms.data()[j] / 2;
            return Number<Scalar>(Ves::isComplex<Scalar> ? 0 : half, half);
          }};
}

template <typename Scalar>
struct DetectorTest : testing::Test {
  const Rows rows{4, world, Deal::gaps};
  Ves::Residuals<Scalar> residuals;
  Ves::RelativeResiduals<Scalar> relative;
  Ves::Eigenvalues<Scalar> eigenvalues;
  Ves::ResidualsOrEigenvalues<Scalar> either;
  std::array<Ves::VesConvergeDetector*, 4> kinds{&residuals, &relative, &eigenvalues, &either};
  int total = -7, leading = -7;
};
TYPED_TEST_SUITE(DetectorTest, AllScalars);

TYPED_TEST(DetectorTest, WhatPassesAndWhatIsCounted) {
  const Numbers any{9, 9, 9, 9}, none;
  const double mine = RankIn(world) == 0 ? 9.0 : 5.0; // process 0 decides for all
  const struct {
    const char* why;
    std::size_t kind;
    Numbers norms, now, before, flags;
    int leading;
  } cases[] = {
      {"a gap ends the leading", 0, {.1, .2, .3, 0}, any, any, {2, 2, 0, 2}, 2},
      {"threshold itself, NaN", 0, {.25, notANumber, .2, .1}, any, any, {0, 0, 2, 2}, 0},
      {"relative", 1, {.4, .4, .5, .1}, {2, -2, 2, 0}, any, {2, 2, 0, 0}, 2},
      {"to a NaN", 1, {.1, notANumber, .1, .1}, {1, 1, notANumber, 1}, any, {2, 0, 0, 2}, 1},
      {"up and down", 2, any, {1, 1, 1, notANumber}, {1.2, .8, 1.25, 1}, {2, 2, 0, 0}, 2},
      {"fewer flags than residuals", 2, {9, 9, 9}, {1, 1}, {1, 1}, {2, 2}, 2},
      {"process 0", 2, any, {mine, 9, 5, 9}, {9, mine, 9, 9}, {2, 2, 0, 2}, 2},
      {"either", 3, {.1, 9, .25, notANumber}, {5, 1, 1.5, 1}, {1, 1.2, 1.25, 1}, {2, 2, 0, 2}, 2},
      {"no pairs", 0, none, none, none, none, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const auto R = OfNorms<TypeParam>(this->rows, c.norms), now = Column<TypeParam>(c.now),
               before = Column<TypeParam>(c.before), expected = Column<TypeParam>(c.flags);
    auto flags = Column<TypeParam>(c.flags.empty() ? none : Numbers(c.flags.size(), 9));
    flags.values[flags.nRows] = Number<TypeParam>(2); // in the slack behind, for none to count
    this->kinds[c.kind]->Run(R, now, before, 0.25, flags, this->total, this->leading);
    EXPECT_EQ(this->total, std::count(c.flags.begin(), c.flags.end(), 2.0));
    EXPECT_EQ(this->leading, c.leading);
    EXPECT_TRUE(std::equal(flags.values, flags.values + flags.nRows, expected.values));
  }
}

TYPED_TEST(DetectorTest, RefusalsByKind) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  using Codes = std::array<int, 4>; // by kind of detector
  const Numbers two{1, 1}, three{1, 1, 1};
  const auto R = OfNorms<TypeParam>(this->rows, two), d = Column<TypeParam>(two),
             d3 = Column<TypeParam>(three);
  const auto other = Column<Other>(two);
  auto flags = Column<TypeParam>(two), odd = Column<TypeParam>(two),
       flags3 = Column<TypeParam>(three);
  Ves::VectorDense<TypeParam> bareR(world, world, 2, 2, 2), bare(world, world, 2, 1, 2);
  odd.storageType = static_cast<VesVectorType>(2);
  using Base = VesVectorBase;
  const auto run = [&](const Base& r, const Base& now, const Base& before, Base& idxs) {
    Codes codes{};
    for (std::size_t k = 0; k < 4; ++k)
      codes[k] = this->kinds[k]->Run(r, now, before, 0.25, idxs, this->total, this->leading);
    return codes;
  };
  EXPECT_EQ(run(R, d, d, flags3), (Codes{-1, -1, -1, -1})) << "a flag too many";
  EXPECT_EQ(run(R, d, d, bareR), (Codes{-1, -1, -1, -1})) << "two columns of flags";
  EXPECT_EQ(run(R, d3, d3, flags), (Codes{0, 0, -1, -1})) << "values too many";
  EXPECT_EQ(run(R, d, d, odd), (Codes{-5, -5, -5, -5})) << "flags not dense";
  EXPECT_EQ(run(R, other, d, flags), (Codes{-5, -5, -5, -5})) << "values of another type";
  EXPECT_EQ(run(bareR, d, d, flags), (Codes{-7, -7, 0, -7})) << "no residuals";
  EXPECT_EQ(run(R, d, bare, flags), (Codes{0, 0, -7, -7})) << "no previous values";
  EXPECT_EQ(run(R, d, d, bare), (Codes{-7, -7, -7, -7})) << "no flags";
}

} // namespace
