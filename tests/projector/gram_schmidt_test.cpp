// Gram-Schmidt: every entry of the projected block and of its images, from the global rows.
#include "projector/gram_schmidt.h"
#include "support/block.h"
#include "support/mpi_meter.h"

#include <tuple>

using namespace VesTest;

namespace {

constexpr int n = 36, nX = 4, nY = 6;
const Ints dispX{1, 0, 4, 3}, nXs{2, 1, 0, 1}, dispY{4, 0, 1, 3}, nYs{2, 1, 1, 0};
const VesMatrixEmpty empty;

/// A basis of disjoint columns and a hashed block, with images, the first few of them handed over.
template <typename Scalar>
struct Setting {
  const Rows rows{n, world, Deal::gaps};
  const int images;
  Block<Scalar> X[3]{Image(0, nX), Image(1, nX), Image(2, nX)}; // itself, under B, under A
  Block<Scalar> Y[3]{Image(0, nY), Image(1, nY), Image(2, nY)};
  Ves::GramSchmidt<Scalar> projector;

  explicit Setting(int handedOver) : images(handedOver) {}
  Block<Scalar> Image(int t, int k) const {
    return {rows, k, [=](int i, int j) {
              return Number<Scalar>(Factor(t, i) * (k == nX ? Basis(i, j) : Old(i, j)));
            }};
  }
  double Factor(int t, int i) const {
    return t == 2 ? i % 7 - 3.0 : (t == 1 && images > 0 ? 1.0 + i / nX % 3 : 1.0);
  }
  Wide Basis(int i, int j) const {
    const double phase = Ves::isComplex<Scalar> ? 0.7 : 0.0;
    return i % nX == j ? std::polar(1.0 / std::sqrt(images > 0 ? 18 : 9), phase) : 0.0;
  }
  static Wide Old(int i, int j) { return HashedNumber<Scalar>(i, j); }

  VesReturnCode Run(bool batch, int passes, double tol) {
    auto &x = X[0], &y = Y[0], &bx = X[images > 0 ? 1 : 0], &by = Y[images > 0 ? 1 : 0];
    if (images < 2 && batch)
      return projector.RunBatch(x, bx, y, by, dispX, nXs, dispY, nYs, empty, true, passes, tol);
    if (images < 2) return projector.Run(x, bx, y, by, empty, true, passes, tol);
    return batch ? projector.RunBatch(x, bx, X[2], y, by, Y[2], dispX, nXs, dispY, nYs, empty, true,
                                      passes, tol)
                 : projector.Run(x, bx, X[2], y, by, Y[2], empty, true, passes, tol);
  }
  /// Column j lost its components along some columns of X, in the block and what was handed over.
  void Expect(int j, int firstX, int width) const {
    for (int i = 0, row = rows.first; i < rows.local; ++i, ++row) {
      Wide y = Old(row, j);
      for (int x = firstX; x < firstX + width; ++x)
        for (int k = 0; k < n; ++k)
          y -= Basis(row, x) * std::conj(Factor(1, k) * Basis(k, x)) * Old(k, j);
      for (int t = 0; t < 3; ++t)
        EXPECT_LE(std::abs(Wide(Y[t](i, j)) - Factor(t, row) * (t <= images ? y : Old(row, j))),
                  100 * eps<Scalar>)
            << row << " " << j << " image " << t;
    }
  }
};

template <typename Scalar>
struct GramSchmidtTest : testing::Test {};
TYPED_TEST_SUITE(GramSchmidtTest, AllScalars);

/// One reduction in each pass and one in each measurement between them, however many groups.
TYPED_TEST(GramSchmidtTest, RemovesTheBasisFromBlockAndImages) {
  const std::tuple<int, double, int> cases[] = {{0, 0.0, 1},  {1, 0.0, 1}, {3, 0.0, 5},
                                                {-1, 0.0, 3}, {3, 0.5, 2}, {3, 1.0, 0}};
  const int groupX[nY] = {0, 0, 0, 0, 1, 1}, groupWidth[nY] = {1, 0, 0, 0, 2, 2};
  for (const bool batch : {false, true})
    for (const int images : {0, 1, 2})
      for (const auto& [passes, tol, count] : cases) {
        SCOPED_TRACE(testing::Message() << batch << images << passes);
        Setting<TypeParam> s(images);
        mpiMeter.reductions = 0;
        EXPECT_EQ(s.Run(batch, passes, tol), VES_GOOD);
        EXPECT_EQ(mpiMeter.reductions, count);
        for (int j = 0; j < nY; ++j)
          s.Expect(j, batch ? groupX[j] : 0, tol >= 1.0 ? 0 : (batch ? groupWidth[j] : nX));
        s.Y[2].storageType = static_cast<VesVectorType>(2);
        const VesReturnCode mismatch = images > 1 ? VES_ERR_MISMATCH : VES_GOOD;
        EXPECT_EQ(s.Run(batch, 1, 1.0), mismatch) << "not dense";
        s.X[0].nCols = 0;
        EXPECT_EQ(s.Run(batch, 1, 1.0), VES_GOOD) << "nothing to project against";
      }
}

} // namespace
