// Products of dense blocks, residuals and orthogonality checks. Some processes hold no rows.
#include "data/matrix_shell.h"
#include "support/mpi_meter.h"
#include "support/problem.h"

using namespace VesTest;
using Ves::VectorDense;
using Wide = std::complex<double>;
using Ints = std::vector<int>;

namespace {

const MPI_Comm world = MPI_COMM_WORLD, self = MPI_COMM_SELF;

template <typename Scalar>
struct Block : VectorDense<Scalar> {
  Block(int rows, int k, unsigned stream = 0, int first = 0)
      : VectorDense<Scalar>(world, self, rows, k, rows + 2) {
    this->AllocateMem();
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < rows; ++i)
        (*this)(i, j) = HashedNumber<Scalar>(first + i, j, stream);
  }
  Block(const Rows& rows, int k, unsigned stream = 0) : Block(rows.local, k, stream, rows.first) {}
  template <typename Formula>
  void Expect(double units, Formula formula) const {
    for (int j = 0; j < this->nCols; ++j)
      for (int i = 0; i < this->nRows; ++i)
        EXPECT_LE(std::abs(Wide((*this)(i, j)) - Wide(formula(i, j))), units * eps<Scalar>);
  }
};

template <typename Scalar>
struct ProductsTest : testing::Test {
  const Rows rows{16, world, Deal::gaps};
};
TYPED_TEST_SUITE(ProductsTest, AllScalars);

TYPED_TEST(ProductsTest, GemmTransposesAndConjugates) {
  const Block<TypeParam> A(2, 3, 1), B(2, 4, 2), old(3, 4);
  for (const char trans : {'T', 't', 'C', 'c'}) {
    Block<TypeParam> C(3, 4);
    EXPECT_EQ(C.Gemm(A, B, trans, 'n', -1, 2), VES_GOOD);
    C.Expect(20.0, [&](int i, int j) {
      const bool conjugate = trans == 'C' || trans == 'c';
      const Wide a = conjugate ? Conj(A(0, i)) : A(0, i), b = conjugate ? Conj(A(1, i)) : A(1, i);
      return 2.0 * Wide(old(i, j)) - a * Wide(B(0, j)) - b * Wide(B(1, j));
    });
  }
}

TYPED_TEST(ProductsTest, PermuteColsMovesSmallValuesToTheFront) {
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

TYPED_TEST(ProductsTest, EigResidualAndItsUndoing) {
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
TYPED_TEST(ProductsTest, OrthogonalityOfBlocksAndGroups) {
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
      const Wide g = 4.0 * Wide(Conj(turn) * HashedNumber<TypeParam>(0, firstX + j));
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

/// Shapes are judged before kinds, each operation has its codes, and nothing is written.
TYPED_TEST(ProductsTest, Refusals) {
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
