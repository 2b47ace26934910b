// The estimate of a spectrum before a run.
#include "support/scalars.h"

#include <ves.hpp>

using namespace VesTest;

namespace {

/// Diagonal entries by the row here; the odd processes hold none.
struct Diagonal {
  const char* name;
  int rows;
  std::function<double(int)> entry;
  double norm, lowest; ///< exact; not a number where the products are none
};

template <typename Scalar>
class SpectrumTest : public testing::Test {
protected:
  static ves::Spectrum Estimate(const Diagonal& diagonal) {
    const ves::Operator<Scalar> A([&](auto x, auto y) {
      for (int j = 0; j < x.cols(); ++j)
        for (int i = 0; i < x.rows(); ++i)
          y(i, j) = Number<Scalar>(diagonal.entry(i)) * x(i, j);
    });
    const int rows = RankIn(MPI_COMM_WORLD) % 2 == 0 ? diagonal.rows : 0;
    return estimateSpectrum(A, ves::Block<Scalar>(rows, 0));
  }
};
TYPED_TEST_SUITE(SpectrumTest, AllScalars);

TYPED_TEST(SpectrumTest, BoundsItsEnds) {
  const double huge = eps<TypeParam> < 1e-10 ? 1e100 : 1e10;
  const Diagonal table[] = {
      {"even", 500, [](int i) { return 1.0 + i; }, 500.0, 1.0},
      {"indefinite", 400, [](int i) { return 200.0 - i; }, 200.0, -199.0},
      {"graded", 300, [](int i) { return std::pow(10.0, -i / 30.0); }, 1.0, 0.0},
      {"one of many", 300, [](int i) { return i == 7 ? -50.0 : 1.0; }, 50.0, -50.0},
      {"multiple of I", 40, [&](int) { return huge; }, huge, huge},
      {"zero", 40, [](int) { return 0.0; }, 0.0, 0.0},
      {"without rows", 0, [](int) { return 1.0; }, 0.0, 0.0}};
  for (const Diagonal& diagonal : table) {
    SCOPED_TRACE(diagonal.name);
    const ves::Spectrum found = this->Estimate(diagonal);
    const double rounding = 100.0 * eps<TypeParam> * diagonal.norm;
    EXPECT_GE(found.norm, diagonal.norm - rounding);
    EXPECT_LE(found.norm, 1.1 * diagonal.norm);
    EXPECT_GE(found.lowest, diagonal.lowest - rounding);
    EXPECT_LE(found.lowest, diagonal.lowest + 0.1 * diagonal.norm);
  }
}

TYPED_TEST(SpectrumTest, TellsOfWhatCannotBeWorkedWith) {
  const double beyond = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(std::isfinite(this->Estimate({"", 9, [=](int) { return beyond; }, 0, 0}).norm));
  const ves::MatrixHandle raw = ves::makeMatrix<TypeParam>(nullptr, nullptr);
  const ves::Block<TypeParam> like(5, 0);
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  const ves::Block<Other> other(5, 0);
  double norm = 0.0, lowest = 0.0;
  const auto estimate = [&](VesMatrix A, VesVector vectors, double* out) {
    return VesMatrixEstimateSpectrum(A, vectors, out, &lowest);
  };
  EXPECT_EQ(estimate(nullptr, like.handle(), &norm), VES_ERR_NULL_POINTER);
  EXPECT_EQ(estimate(raw.get(), nullptr, &norm), VES_ERR_NULL_POINTER);
  EXPECT_EQ(estimate(raw.get(), like.handle(), nullptr), VES_ERR_NULL_POINTER);
  EXPECT_EQ(estimate(raw.get(), other.handle(), &norm), VES_ERR_MISMATCH);
  EXPECT_EQ(estimate(raw.get(), like.handle(), &norm), VES_ERR_NULL_POINTER);
}

} // namespace
