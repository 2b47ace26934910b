// The dense block: storage, views, fills, copies, norms and checks. Some processes hold no rows.
#include "data/matrix_shell.h"
#include "support/block.h"
#include "support/mpi_meter.h"

#include <cstdint>
#include <new>

using namespace VesTest;
using Ves::VectorDense;

namespace {

constexpr int n = 16; // rows of a distributed block

/// Norm of some rows of the hashed column j, as a number of the type.
template <typename Scalar>
Scalar HashedNorm(int j, int first = 0, int count = n) {
  double sum = 0.0;
  for (int i = first; i < first + count; ++i)
    sum += std::norm(Wide(HashedNumber<Scalar>(i, j)));
  return Number<Scalar>(std::sqrt(sum));
}

template <typename Scalar>
struct VectorDenseTest : testing::Test {
  const Rows rows{n, world, Deal::gaps};
};
TYPED_TEST_SUITE(VectorDenseTest, AllScalars);

using Plain = VectorDense<Wide>;

TEST(VectorDenseGeometry, OwnsWhatItAllocates) {
  constexpr int most = std::numeric_limits<int>::max();
  Block<Wide> M(4, 4);
  EXPECT_EQ(M.AllocateMem(), VES_GOOD) << "releases what it had";
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(M.values) % 64, 0U);
  Plain view(M, 2, 3, 2, 1), twin, huge(world, self, most, most, most);
  EXPECT_EQ(twin.DuplicateShape(M), VES_GOOD);
  EXPECT_TRUE(twin.IsDataEmpty() && twin.CompareShape(M) && twin != M);
  EXPECT_EQ(view.FreeMem(), VES_GOOD);
  view(1) = 5.0; // a view frees nothing
  for (int round = 0; round < 2; ++round)
    EXPECT_EQ(M.FreeMem(), VES_GOOD);
  EXPECT_FALSE(M.ownsValues || M.IsDataEmpty());
  EXPECT_THROW(huge.AllocateMem(), std::bad_array_new_length);
  EXPECT_THROW(Plain(world, self, 4, -1, 4).AllocateMem(), std::bad_array_new_length);
  EXPECT_THROW(huge.AllReduce(MPI_SUM, self), std::bad_array_new_length);
  EXPECT_THROW(huge.BroadCast(self), std::bad_array_new_length);
  using Mpi = Ves::MpiWrapper<Wide>;
  if (RankIn(world) == 0) Mpi::AllReduce(nullptr, 2, MPI_SUM, world); // does not reach MPI
}

TEST(VectorDenseGeometry, ViewsLieInsideTheirParent) {
  constexpr int huge = std::numeric_limits<int>::max();
  const int outside[][4] = {{1, 0, 4, 1},  {0, 3, 1, 2},  {-1, 0, 1, 1}, {0, -1, 1, 1},
                            {0, 0, -1, 1}, {0, 0, 1, -1}, {0, 5, 1, 0},  {1, 1, huge, huge}};
  const Block<Wide> M(4, 4);
  Plain view, expected(world, self, 3, 2, M.ld);
  expected.SetValues(M.values + 1 + M.ld * 2);
  EXPECT_EQ(view.SubVector(M, 0, 4, 4, 0), VES_GOOD);
  EXPECT_EQ(view.SubVector(M, 1, 2, 3, 2), VES_GOOD);
  for (const auto& [i, j, rows, cols] : outside)
    EXPECT_EQ(view.SubVector(M, i, j, rows, cols), VES_ERR_OUT_OF_RANGE) << i << j << rows << cols;
  EXPECT_TRUE(view == expected);
}

/// Shapes are judged before kinds, each operation has its codes, and nothing is written.
TYPED_TEST(VectorDenseTest, RefusalsOfCopies) {
  using Codes = std::vector<VesReturnCode>;
  const Block<TypeParam> old(this->rows, 4);
  Block<TypeParam> X(this->rows, 4), d(4, 1), odd(this->rows, 4), wrong(5, 2);
  VectorDense<TypeParam> bare(world, self, 3, 2, 3), empty, o(world, self, 4, 1, 4);
  odd.storageType = o.storageType = static_cast<VesVectorType>(2);
  EXPECT_EQ((Codes{X.ScaleByVec(wrong), X.CopyData(wrong), d.SetDiag(d), d.GetDiag(wrong)}),
            Codes(4, VES_ERR_INVALID_VALUE));
  EXPECT_EQ(X.ScaleByVec(o), VES_ERR_MISMATCH);
  const Codes kinds{X.CopyData(odd), X.DuplicateShape(odd), X.SubVector(odd, 0, 0, 0, 1),
                    d.Norm(odd)};
  EXPECT_EQ(kinds, Codes(4, VES_ERR_UNSUPPORTED));
  const Codes unfit{X.Norm(X), X.Normalize(wrong), bare.ScaleByVal(d(0)), bare.Set2Random(1)};
  EXPECT_EQ(unfit, Codes(4, VES_ERR_INCOMPATIBLE));
  EXPECT_EQ(X.SubVector(odd, 0, 5, 0, 1), VES_ERR_OUT_OF_RANGE);
  EXPECT_EQ((Codes{empty.ScaleByVal(d(0)), empty.Set2Random(1)}), Codes(2, VES_GOOD));
  X.Expect(0.0, [&](int i, int j) { return old(i, j); });
}

TYPED_TEST(VectorDenseTest, FillsAndScalings) {
  const Block<TypeParam> old(this->rows, 4), diagonal(4, 1);
  Block<TypeParam> X(this->rows, 4), Y(this->rows, 4), d(4, 1), M(4, 4);
  const auto zero = Number<TypeParam>(0.0), alpha = Number<TypeParam>(0.5, -2.0);
  EXPECT_EQ(X.ScaleByVal(alpha), VES_GOOD);
  EXPECT_EQ(X.ScaleByVec(d), VES_GOOD);
  Y.SetLd(this->rows.local + 1); // not that of X
  EXPECT_EQ(Y.CopyData(X), VES_GOOD);
  EXPECT_EQ(X.Set2Val(alpha), VES_GOOD);
  X.Expect(0.0, [&](int, int) { return alpha; });
  EXPECT_EQ(X.CopyData(Y), VES_GOOD);
  X.Expect(10.0, [&](int i, int j) { return d(j) * (alpha * old(i, j)); });
  EXPECT_EQ(M.SetDiag(d), VES_GOOD); // fills with zeros first
  M.Expect(0.0, [&](int i, int j) { return i == j ? d(j) : zero; });
  M(2, 2) = M(0, 1) = alpha;
  EXPECT_EQ(d.GetDiag(M), VES_GOOD);
  d.Expect(0.0, [&](int i, int) { return i == 2 ? alpha : diagonal(i); });
}

/// The numbers are one normal stream over the columns, fixed by the seed and the local shape.
TYPED_TEST(VectorDenseTest, RandomNumbers) {
  Block<TypeParam> x(400, 10), stream(4000, 1);
  EXPECT_EQ(x.Set2Random(4095), VES_GOOD);
  EXPECT_EQ(stream.Set2Random(4095 + 3 * 4096), VES_GOOD);
  double squares = 0.0;
  for (int i = 0; i < 4000; ++i) {
    EXPECT_EQ(stream(i), x(i % 400, i / 400));
    squares += static_cast<double>(std::norm(stream(i))) / 4000;
  }
  EXPECT_NEAR(squares, Ves::isComplex<TypeParam> ? 2.0 : 1.0, 0.09); // four standard deviations
}

TYPED_TEST(VectorDenseTest, NormsAndWholeBlockReductions) {
  const Block<TypeParam> X(this->rows, 4), none(this->rows, 0);
  Block<TypeParam> d(4, 1), norms(0, 1);
  d.SetLd(4); // the padding would be reduced, too
  EXPECT_EQ(d.Norm(X, false), VES_GOOD);
  d.Expect(20.0, [&](int j, int) { return HashedNorm<TypeParam>(j, this->rows.first, X.nRows); });
  EXPECT_EQ(d.Norm(X, true), VES_GOOD);
  d.Expect(20.0, [&](int j, int) { return HashedNorm<TypeParam>(j); });
  // Whole storage is reduced and broadcast, so that processes without columns stay in step.
  EXPECT_EQ(norms.Norm(none, true), VES_GOOD);
  EXPECT_EQ(norms(0), Number<TypeParam>(777.0 * SizeOf(world)));
  norms(1) = Number<TypeParam>(RankIn(world), 1.0);
  EXPECT_EQ(norms.BroadCast(world), VES_GOOD);
  EXPECT_EQ(norms(1), Number<TypeParam>(0.0, 1.0));
}

/// With B X = 4 X both blocks are scaled alike; the block itself in the second place only once.
TYPED_TEST(VectorDenseTest, NormalizePairedAndWithItself) {
  for (const bool paired : {true, false}) {
    const Block<TypeParam> old(this->rows, 4);
    Block<TypeParam> X(this->rows, 4), BX(this->rows, 4);
    VectorDense<TypeParam> same(X, 0, 0, X.nRows, 4);
    BX.ScaleByVal(Number<TypeParam>(4.0));
    EXPECT_EQ(X.Normalize(paired ? static_cast<VesVectorBase&>(BX) : same, true), VES_GOOD);
    X.Expect(20.0, [&](int i, int j) {
      return old(i, j) / (HashedNorm<TypeParam>(j) * Number<TypeParam>(paired ? 2 : 1));
    });
    BX.Expect(20.0, [&](int i, int j) {
      return old(i, j) *
             (paired ? Number<TypeParam>(2) / HashedNorm<TypeParam>(j) : Number<TypeParam>(4));
    });
  }
}

TYPED_TEST(VectorDenseTest, PermuteColsMovesSmallValuesToTheFront) {
  const auto expect = [&](const Ints& sizes, double tol, int small, const Ints& order) {
    const int k = static_cast<int>(sizes.size());
    Block<TypeParam> X(this->rows, k), v(k, 1);
    const Block<TypeParam> old(this->rows, k);
    int count = -1;
    for (int j = 0; j < k; ++j) // of that modulus
      v(j) = Number<TypeParam>(Ves::isComplex<TypeParam> ? 0 : -sizes.data()[j], sizes.data()[j]);
    EXPECT_EQ(X.PermuteCols(v, tol, count), VES_GOOD);
    EXPECT_EQ(count, small);
    X.Expect(0.0, [&](int i, int j) { return old(i, order.data()[j]); });
  };
  expect({9, 1, 9, 1}, 2.0, 2, {3, 1, 2, 0}); // the outermost pairs swap
  expect({9, 9, 1}, -2.0, 1, {2, 1, 0});      // the modulus of the tolerance counts
  expect({2, 2, 1, 2}, 2.0, 1, {2, 1, 0, 3}); // strictly below it
  expect({1, 0, 1}, 0.0, 0, {0, 1, 2});       // nothing is below zero
  expect({1, 0, 1, 1}, 2.0, 4, {0, 1, 2, 3}); // all are small
}

TYPED_TEST(VectorDenseTest, EigResidualAndItsUndoing) {
  const Block<TypeParam> X(this->rows, 3), lambda(3, 1, 1);
  Block<TypeParam> R(this->rows, 3, 5);
  Ves::MatrixShell<TypeParam> A; // A x = 2 x
  A.SetShellMatVec([](void*, void* x, void* y, int, int nCols, int ld) {
    for (int at = 0; at < nCols * ld; ++at)
      static_cast<TypeParam*>(y)[at] = Number<TypeParam>(2.0) * static_cast<TypeParam*>(x)[at];
  });
  EXPECT_EQ(R.EigResidual(A, A, X, lambda), VES_GOOD);
  R.Expect(9.0, [&](int i, int j) { return Wide(X(i, j)) * 2.0 * (1.0 - Wide(lambda(j))); });
  EXPECT_EQ(R.EigResidual(A, VesMatrixEmpty(), X, lambda), VES_GOOD);
  R.Expect(9.0, [&](int i, int j) { return Wide(X(i, j)) * (2.0 - Wide(lambda(j))); });
  EXPECT_EQ(R.ScaleAdd(R, X, lambda, 1), VES_GOOD) << "in place";
  R.Expect(9.0, [&](int i, int j) { return Wide(X(i, j)) * 2.0; });
}

/// Of Y with disjoint columns and X with constant ones, max_j ||(Y^H X - I) e_j|| / sqrt(nY).
TYPED_TEST(VectorDenseTest, OrthogonalityOfBlocksAndGroups) {
  Block<TypeParam> Y(this->rows, 4), X(this->rows, 8), none(this->rows, 0);
  const auto turn = Number<TypeParam>(Ves::isComplex<TypeParam> ? 0.0 : -1.0, 1.0);
  for (int i = 0; i < this->rows.local; ++i)
    for (int j = 0; j < 8; ++j) {
      X(i, j) = HashedNumber<TypeParam>(0, j);
      if (j < 4) Y(i, j) = (this->rows.first + i) % 4 == j ? turn : TypeParam(0);
    }
  const auto expected = [turn](int nY, int firstX, int nX, double diagonal) {
    double worst = 0.0;
    for (int j = 0; j < nX; ++j) {
      const Wide g = 4.0 * std::conj(Wide(turn)) * Wide(HashedNumber<TypeParam>(0, firstX + j));
      const double rest = j < nY ? std::norm(g - diagonal) - std::norm(g) : 0.0;
      worst = std::max(worst, nY * std::norm(g) + rest);
    }
    return std::sqrt(worst / nY);
  };
  const Ints dispY{0, 2, 3, 4}, nYs{2, 1, 1, 0}, dispX{1, 0, 4, 3}, nXs{2, 3, 4, 1};
  const double limit = 50 * eps<TypeParam>;
  double error = -1.0;
  if (RankIn(world) == 0) none.CheckOrthogonality(X, error, true, true); // waits for nobody
  EXPECT_EQ(error, RankIn(world) == 0 ? 0.0 : -1.0);
  for (const double diagonal : {1.0, 0.0}) {
    EXPECT_EQ(Y.CheckOrthogonality(X, error, diagonal > 0.0, true), VES_GOOD);
    EXPECT_NEAR(error, expected(4, 0, 8, diagonal), limit);
    std::vector<double> errors(5, -1.0); // one entry more than there are groups
    mpiMeter.reductions = 0;
    Y.CheckOrthogonality(X, error, true, false); // a local one
    Y.CheckBatchOrthogonality(X, dispY, nYs, dispX, nXs, errors, diagonal > 0.0, true);
    EXPECT_EQ(mpiMeter.reductions, 1);
    for (std::size_t b = 0; b < 3; ++b)
      EXPECT_NEAR(errors[b], expected(nYs[b], dispX[b], nXs[b], diagonal), limit);
    EXPECT_TRUE(std::isnan(errors[3]) && errors[4] == -1.0) << "a group without columns";
  }
}

TYPED_TEST(VectorDenseTest, RefusalsOfProducts) {
  using Codes = std::vector<VesReturnCode>;
  Block<TypeParam> X(5, 3), M(3, 3), L(5, 5), d(3, 1), odd(3, 3), oddColumn(3, 1);
  odd.storageType = oddColumn.storageType = static_cast<VesVectorType>(2);
  const VesMatrixEmpty none;
  int count = -5;
  const Codes products{M.Gemm(M, X), M.Gemm(X, M), X.Gemm(odd, M), L.InnerProduct(X, X)};
  EXPECT_EQ(products, Codes(4, VES_ERR_INCOMPATIBLE));
  const Codes sums{X.ScaleAdd(X, M, d, 1), X.ScaleAdd(X, X, L, 1), X.EigResidual(none, none, M, d),
                   X.EigResidual(none, none, X, M)};
  EXPECT_EQ(sums, Codes(4, VES_ERR_INCOMPATIBLE));
  const Codes kinds{M.Gemm(odd, M), M.Gemm(M, odd), X.ScaleAdd(X, X, oddColumn, 1),
                    X.TriangularSolve(odd, 'R', 'U', 'N', 'N')};
  EXPECT_EQ(kinds, Codes(4, VES_ERR_UNSUPPORTED));
  EXPECT_EQ(X.TriangularSolve(X, 'q', 'U', 'N', 'N'), VES_ERR_INVALID_VALUE) << "not square";
  for (const char side : {'L', 'r'}) // the wrong one, and lower case
    EXPECT_EQ(X.TriangularSolve(M, side, 'U', 'N', 'N'), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(X.PermuteCols(X, 1, count), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(X.PermuteCols(VectorDense<TypeParam>(world, self, 3, 1, 3), 1, count),
            VES_ERR_NULL_POINTER);
  EXPECT_EQ(X.PermuteCols(oddColumn, 1, count), VES_ERR_MISMATCH);
  EXPECT_EQ(count, -5);
  X.Expect(0.0, [&](int i, int j) { return L(i, j); }); // which began with the same numbers
}

} // namespace
