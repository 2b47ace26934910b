// The four tests of convergence and locking: what passes, what is counted, what is refused.
#include "detector/eigenvalues.h"
#include "detector/relative_residuals.h"
#include "detector/residuals.h"
#include "detector/residuals_or_eigenvalues.h"
#include "support/problem.h"

#include <memory>

using namespace VesTest;
using Ves::VectorDense;

namespace {

const MPI_Comm world = MPI_COMM_WORLD;
const double nan = std::numeric_limits<double>::quiet_NaN();

template <typename Scalar>
struct Column : VectorDense<Scalar> {
  explicit Column(const std::vector<double>& entries, int nCols = 1)
      : VectorDense<Scalar>(world, world, static_cast<int>(entries.size()), nCols,
                            static_cast<int>(entries.size())) {
    this->AllocateMem();
    for (int i = 0; i < this->nRows * nCols; ++i)
      this->values[i] = Number<Scalar>(entries.data()[i % this->nRows]);
  }
};

/// Distributed residuals with exactly the given norms: four entries of half the norm, some of them
/// imaginary.
template <typename Scalar>
struct Residual : VectorDense<Scalar> {
  Residual(const Rows& rows, const std::vector<double>& norms)
      : VectorDense<Scalar>(world, world, rows.local, static_cast<int>(norms.size()),
                            rows.local + 1) {
    this->AllocateMem();
    for (int j = 0; j < this->nCols; ++j)
      for (int i = 0; i < this->nRows; ++i) {
        const double half = norms.data()[j] / 2;
        const bool imaginary = Ves::isComplex<Scalar> && (rows.first + i) % 2 == 1;
        (*this)(i, j) = imaginary ? Number<Scalar>(0.0, half) : Number<Scalar>(half);
      }
  }
};

template <typename Scalar>
struct DetectorTest : testing::Test {
  const Rows rows{4, world, Deal::gaps};
  int total = -7, leading = -7;

  static std::unique_ptr<Ves::VesConvergeDetector> Make(VesConvergeDetectorType kind) {
    if (kind == VES_RESIDUALS) return std::make_unique<Ves::Residuals<Scalar>>();
    if (kind == VES_RELATIVE_RESIDUALS) return std::make_unique<Ves::RelativeResiduals<Scalar>>();
    if (kind == VES_EIGENVALUES) return std::make_unique<Ves::Eigenvalues<Scalar>>();
    return std::make_unique<Ves::ResidualsOrEigenvalues<Scalar>>();
  }
};
TYPED_TEST_SUITE(DetectorTest, AllScalars);

TYPED_TEST(DetectorTest, WhatPassesAndWhatIsCounted) {
  const struct {
    const char* why;
    VesConvergeDetectorType kind;
    std::vector<double> norms, now, before, flags;
    int leading;
  } cases[] = {{"a gap ends the leading pairs",
                VES_RESIDUALS,
                {.1, .2, .3, 0},
                {9, 9, 9, 9},
                {9, 9, 9, 9},
                {2, 2, 0, 2},
                2},
               {"the threshold itself fails, and a NaN",
                VES_RESIDUALS,
                {.25, nan, .2},
                {9, 9, 9},
                {9, 9, 9},
                {0, 0, 2},
                0},
               {"scaled by the modulus of the value",
                VES_RELATIVE_RESIDUALS,
                {.4, .4, .5, .1},
                {2, -2, 2, 0},
                {9, 9, 9, 9},
                {2, 2, 0, 0},
                2},
               {"a NaN as value",
                VES_RELATIVE_RESIDUALS,
                {.1, nan, .1},
                {1, 1, nan},
                {1, 1, 1},
                {2, 0, 0},
                1},
               {"up and down, strictly",
                VES_EIGENVALUES,
                {9, 9, 9, 9},
                {1, 1, 1, nan},
                {1.2, .8, 1.25, 1},
                {2, 2, 0, 0},
                2},
               {"either will do",
                VES_RESIDUALS_OR_EIGENVALUES,
                {.1, 9, .25, nan},
                {5, 1, 1.5, 1},
                {1, 1.2, 1.25, 1},
                {2, 2, 0, 2},
                2},
               {"no pairs", VES_RESIDUALS, {}, {}, {}, {}, 0},
               {"no pairs", VES_EIGENVALUES, {}, {}, {}, {}, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const Residual<TypeParam> R(this->rows, c.norms);
    const Column<TypeParam> now(c.now), before(c.before), expected(c.flags);
    Column<TypeParam> flags(std::vector<double>(c.flags.size(), 5.0));
    const auto detector = this->Make(c.kind);
    EXPECT_EQ(detector->detectorType, c.kind);
    EXPECT_EQ(detector->Run(R, now, before, 0.25, flags, this->total, this->leading), VES_GOOD);
    EXPECT_EQ(this->total, std::count(c.flags.begin(), c.flags.end(), 2.0));
    EXPECT_EQ(this->leading, c.leading);
    EXPECT_TRUE(std::equal(flags.values, flags.values + flags.nRows, expected.values));
  }
}

/// Processes that see different values follow process 0.
TYPED_TEST(DetectorTest, ProcessZeroDecides) {
  const Residual<TypeParam> R(this->rows, {9, 9});
  const double mine = RankIn(world) == 0 ? 1.0 : 2.0;
  const Column<TypeParam> now({mine, 1.0}), before({1.0, mine});
  Column<TypeParam> flags({5.0, 5.0});
  EXPECT_EQ(
      this->Make(VES_EIGENVALUES)->Run(R, now, before, 0.25, flags, this->total, this->leading),
      VES_GOOD);
  EXPECT_EQ(this->total, 2);
  EXPECT_EQ(this->leading, 2);
}

TYPED_TEST(DetectorTest, RefusalsByKind) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  const Residual<TypeParam> R(this->rows, {1, 1});
  const VectorDense<TypeParam> bareR(world, world, this->rows.local, 2, 4),
      bare(world, world, 2, 1, 2);
  const Column<TypeParam> d({1, 1}), longer({1, 1, 1}), wide({1, 1}, 2);
  Column<TypeParam> flags({5, 5}), odd({5, 5}), longFlags({5, 5, 5}), wideFlags({5, 5}, 2);
  VectorDense<TypeParam> bareFlags(world, world, 2, 1, 2);
  odd.storageType = static_cast<VesVectorType>(2);
  const Column<Other> other({1, 1});
  const VesReturnCode good = VES_GOOD, shape = VES_ERR_INVALID_VALUE, kind = VES_ERR_MISMATCH,
                      null = VES_ERR_NULL_POINTER;
  const struct {
    const char* why;
    const VesVectorBase &R, &now, &before;
    VesVectorBase& flags;
    VesReturnCode expected[4]; // by kind of detector
  } cases[] = {{"a flag too many", R, d, d, longFlags, {shape, shape, shape, shape}},
               {"two columns of flags", R, d, d, wideFlags, {shape, shape, shape, shape}},
               {"values too many", R, longer, longer, flags, {good, good, shape, shape}},
               {"previous values too many", R, d, longer, flags, {good, good, shape, shape}},
               {"two columns of values", R, wide, wide, flags, {good, good, shape, shape}},
               {"flags not dense", R, d, d, odd, {kind, kind, kind, kind}},
               {"values of another type", R, other, d, flags, {kind, kind, kind, kind}},
               {"previous values of another type", R, d, other, flags, {kind, kind, kind, kind}},
               {"no residuals", bareR, d, d, flags, {null, null, good, null}},
               {"no previous values", R, d, bare, flags, {good, good, null, null}},
               {"no flags", R, d, d, bareFlags, {null, null, null, null}}};
  for (const auto& c : cases)
    for (int k = 0; k < 4; ++k)
      EXPECT_EQ(this->Make(static_cast<VesConvergeDetectorType>(k))
                    ->Run(c.R, c.now, c.before, 0.25, c.flags, this->total, this->leading),
                c.expected[k])
          << c.why << ", detector " << k;
}

} // namespace
