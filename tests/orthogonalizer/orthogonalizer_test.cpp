// Cholesky and SVD QR with diagonal B and A, whose images are judged entry by entry.
#include "orthogonalizer/cholesky_qr.h"
#include "orthogonalizer/pass_loop.h"
#include "orthogonalizer/svd_qr.h"
#include "support/block.h"
#include "support/mpi_meter.h"

#include <tuple>

using namespace VesTest;

namespace {

const VesMatrixEmpty empty;

/// A block X, its images B X and A X, of which the first few are handed over, and the old X.
template <typename Scalar>
struct Blocks {
  const Rows rows{64, world, Deal::gaps};
  const int images;
  Block<Scalar> X, BX, AX;
  const Block<Scalar> old;

  Blocks(int k, int handedOver, const typename Block<Scalar>::Entry& entry)
      : images(handedOver), X(rows, k, entry),
        BX(rows, k, [&](int i, int j) { return Number<Scalar>(B(i)) * entry(i, j); }),
        AX(rows, k, [&](int i, int j) { return Number<Scalar>(A(i)) * entry(i, j); }),
        old(rows, k, entry) {}
  /// Entries of the diagonal operators, by row.
  double B(int i) const { return images > 0 ? 1.0 + 0.5 * (i % 5) : 1.0; }
  static double A(int i) { return i % 7 - 3.0; }

  /// In groups, whose widths become their ranks, or as one block, whose rank stands alone.
  VesReturnCode Run(Ves::VesOrthogonalizer& by, bool batch, const Ints& disp, Ints& ranks,
                    int passes, double tol) {
    auto& bx = images > 0 ? BX : X;
    mpiMeter.reductions = 0;
    if (images < 2 && batch) return by.RunBatch(X, bx, disp, ranks, empty, true, passes, tol);
    if (images < 2) return by.Run(X, bx, empty, ranks[0], true, passes, tol);
    return batch ? by.RunBatch(X, bx, AX, disp, ranks, empty, true, passes, tol)
                 : by.Run(X, bx, AX, empty, ranks[0], true, passes, tol);
  }
  void ExpectOrthonormal(int first, int rank) const {
    for (int i = first; i < first + rank; ++i)
      for (int j = first; j <= i; ++j) {
        Wide sum = 0.0;
        for (int r = 0; r < rows.local; ++r)
          sum += std::conj(Wide(X(r, i))) * Wide(X(r, j)) * B(rows.first + r);
        PMPI_Allreduce(MPI_IN_PLACE, &sum, 2, MPI_DOUBLE, MPI_SUM, rows.comm);
        EXPECT_LE(std::abs(sum - (i == j ? 1.0 : 0.0)), 100 * eps<Scalar>) << i << " " << j;
      }
  }
  /// Images follow X when they were handed over, and keep to the old one otherwise.
  void ExpectImages() const {
    const auto& byB = images > 0 ? X : old;
    const auto& byA = images > 1 ? X : old;
    BX.Expect(100, [&](int i, int j) { return B(rows.first + i) * Wide(byB(i, j)); });
    AX.Expect(200, [&](int i, int j) { return A(rows.first + i) * Wide(byA(i, j)); });
  }
  void ExpectUntouched(int first, int end) const {
    for (int j = first; j < end; ++j)
      for (int i = 0; i < rows.local; ++i)
        EXPECT_TRUE(X(i, j) == old(i, j) || !Ves::IsFinite(old(i, j))) << i << " " << j;
  }
};

/// Columns of disjoint support and norm 4, whose Gram matrix is exact; from the fifth on hashed.
template <typename Scalar>
Scalar Comb(int i, int j) {
  if (j > 3) return HashedNumber<Scalar>(i, j);
  return Number<Scalar>(i % 4 == j && !Ves::isComplex<Scalar> ? 1.0 : 0.0, i % 4 == j ? 1.0 : 0.0);
}

template <typename Scalar>
struct OrthogonalizerTest : testing::Test {
  Ves::CholeskyQR<Scalar> cholesky;
  Ves::SvdQR<Scalar> svd;
  std::vector<Ves::VesOrthogonalizer*> both{&cholesky, &svd};
};
TYPED_TEST_SUITE(OrthogonalizerTest, AllScalars);

/// One reduction in each pass and one in each measurement between them, however many groups.
TYPED_TEST(OrthogonalizerTest, PassesImagesAndGroups) {
  const std::tuple<int, double, int> cases[] = {{0, 0.0, 1},  {1, 0.0, 1}, {3, 0.0, 5},
                                                {-1, 0.0, 3}, {3, 0.5, 2}, {3, 1.0, 0}};
  for (auto* by : this->both)
    for (const bool batch : {false, true})
      for (const int images : {0, 1, 2})
        for (const auto& [passes, tol, count] : cases) {
          SCOPED_TRACE(testing::Message() << (by == &this->svd) << batch << images << passes);
          Blocks<TypeParam> b(8, images, [](int i, int j) { return Comb<TypeParam>(i, j + 4); });
          Ints ranks = batch ? Ints{4, 2, 0} : Ints{8};
          const Ints expected = ranks;
          EXPECT_EQ(b.Run(*by, batch, {4, 0, 3}, ranks, passes, tol), VES_GOOD);
          EXPECT_EQ(mpiMeter.reductions, count);
          EXPECT_EQ(ranks, expected);
          b.ExpectImages();
          const bool done = tol < 1.0;
          b.ExpectOrthonormal(0, done ? (batch ? 2 : 8) : 0);
          b.ExpectOrthonormal(4, done ? 4 : 0);
          b.ExpectUntouched(batch ? 2 : 8, batch ? 4 : 8);
          b.ExpectUntouched(0, done ? 0 : 8);
          b.AX.storageType = static_cast<VesVectorType>(2);
          const VesReturnCode mismatch = images > 1 ? VES_ERR_MISMATCH : VES_GOOD;
          EXPECT_EQ(b.Run(*by, batch, {4, 0, 3}, ranks, 1, 1.0), mismatch) << "not dense";
          b.X.nCols = 0;
          EXPECT_EQ(b.Run(*by, batch, {4, 0, 3}, ranks, 1, 1.0), VES_GOOD) << "no columns";
        }
}

/// Columns behind the rank keep their contents; a failing group leaves the others alone.
TYPED_TEST(OrthogonalizerTest, DependentColumns) {
  // For SVD or Cholesky: column 2 becomes a column 0 + b column 2, which leaves some rank.
  const std::tuple<bool, double, double, int> cases[] = {
      {false, 2.0, 0.0, 2}, // twice another
      {false, 0.0, 0.0, 2},      {false, 0.0, notANumber, 2},
      {true, 0.0, 0.0, 3},       {true, 0.0, 1e-10, 4}, // small, which is not relative
      {true, 0.0, notANumber, 0}};
  for (const auto& [bySvd, of0, of2, left] : cases)
    for (const bool batch : {false, true})
      for (const int passes : {1, 3}) {
        SCOPED_TRACE(testing::Message() << bySvd << " " << of0 << " " << of2 << " " << batch);
        const auto a = Number<TypeParam>(of0), b = Number<TypeParam>(of2);
        Blocks<TypeParam> x(batch ? 6 : 4, 0, [a, b](int i, int j) {
          const TypeParam own = Comb<TypeParam>(i, j);
          return j == 2 ? a * Comb<TypeParam>(i, 0) + b * own : own;
        });
        Ints ranks = batch ? Ints{4, 2} : Ints{-7};
        EXPECT_EQ(x.Run(*this->both[bySvd ? 1 : 0], batch, {0, 4}, ranks, passes, -1.0),
                  left > 0 || batch ? VES_GOOD : VES_ERR_INCOMPATIBLE);
        EXPECT_EQ(ranks, batch ? (Ints{left, 2}) : Ints{left});
        x.ExpectOrthonormal(0, left);
        x.ExpectUntouched(left, 4);
        x.ExpectOrthonormal(4, batch ? 2 : 0);
      }
}

TEST(PassLoop, EmptyGroupsHaveNoError) {
  EXPECT_EQ(Ves::LargestError({9.0, 0.5, notANumber, 0.75}, {0, 1, 0, 2}), 0.75);
}

} // namespace
