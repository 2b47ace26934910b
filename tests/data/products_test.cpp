// Products of dense blocks, solves, residuals and orthogonality checks, against sums over the
// globally known entries. Some processes hold no rows.
#include "data/matrix_shell.h"
#include "support/problem.h"

using namespace VesTest;
using Ves::VectorDense;
using Wide = std::complex<double>;
using Ints = std::vector<int>;

namespace {

int reductions = 0; ///< of this process, so far

} // namespace

extern "C" int MPI_Allreduce(const void* from, void* to, int count, MPI_Datatype type, MPI_Op op,
                             MPI_Comm comm) {
  ++reductions;
  return PMPI_Allreduce(from, to, count, type, op, comm);
}

namespace {

const MPI_Comm world = MPI_COMM_WORLD, self = MPI_COMM_SELF;

template <typename Scalar>
struct Block : VectorDense<Scalar> {
  Block(int m, int k, unsigned stream = 0, int first = 0)
      : VectorDense<Scalar>(world, self, m, k, m + 2) {
    this->AllocateMem();
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < m; ++i)
        (*this)(i, j) = HashedNumber<Scalar>(first + i, j, stream);
  }
  Block(const Rows& rows, int k, unsigned stream = 0) : Block(rows.local, k, stream, rows.first) {}
  /// Entry (i, j) of op(this).
  Wide Op(char trans, int i, int j) const {
    const char upper = static_cast<char>(std::toupper(trans));
    return upper == 'N' ? (*this)(i, j) : upper == 'T' ? (*this)(j, i) : Conj((*this)(j, i));
  }
  template <typename Formula>
  void Expect(Formula formula, double units) const {
    for (int j = 0; j < this->nCols; ++j)
      for (int i = 0; i < this->nRows; ++i)
        EXPECT_LE(std::abs(Wide((*this)(i, j)) - Wide(formula(i, j))), units * eps<Scalar>)
            << i << " " << j;
  }
};

/// Sum over k of x_k^H y_k, for column i of the hashed block of stream 1 and j of stream 2.
template <typename Scalar>
Wide HashedDot(int i, int j, int first, int n) {
  Wide sum = 0.0;
  for (int k = first; k < first + n; ++k)
    sum += std::conj(Wide(HashedNumber<Scalar>(k, i, 1))) * Wide(HashedNumber<Scalar>(k, j, 2));
  return sum;
}

template <typename Scalar>
struct ProductsTest : testing::Test {
  const Rows rows{13, world, Deal::gaps};
};
TYPED_TEST_SUITE(ProductsTest, AllScalars);

TYPED_TEST(ProductsTest, GemmInAllTranspositions) {
  const int m = 3, n = 2, k = 4;
  for (const char ta : {'N', 'n', 'T', 't', 'C', 'c'})
    for (const char tb : {'N', 'n', 'T', 't', 'C', 'c'})
      for (const int alpha : {1, -1}) {
        SCOPED_TRACE(testing::Message() << ta << tb << alpha);
        const bool plainA = std::toupper(ta) == 'N', plainB = std::toupper(tb) == 'N';
        const Block<TypeParam> A(plainA ? m : k, plainA ? k : m, 1);
        const Block<TypeParam> B(plainB ? k : n, plainB ? n : k, 2), old(m, n, 3);
        Block<TypeParam> C(m, n, 3);
        EXPECT_EQ(C.Gemm(A, B, ta, tb, alpha, alpha - 1), VES_GOOD);
        C.Expect(
            [&](int i, int j) {
              Wide sum = 0.0;
              for (int l = 0; l < k; ++l)
                sum += A.Op(ta, i, l) * B.Op(tb, l, j);
              return static_cast<double>(alpha) * sum + (alpha - 1.0) * Wide(old(i, j));
            },
            20.0);
      }
}

TYPED_TEST(ProductsTest, InnerProductInOneReduction) {
  const Block<TypeParam> X(this->rows, 3, 1), Y(this->rows, 4, 2);
  for (const bool global : {true, false}) {
    Block<TypeParam> M(3, 4);
    const int before = reductions, n = global ? 13 : this->rows.local;
    EXPECT_EQ(M.InnerProduct(X, Y, global), VES_GOOD);
    EXPECT_EQ(reductions - before, global ? 1 : 0);
    const int first = global ? 0 : this->rows.first;
    M.Expect([&](int i, int j) { return HashedDot<TypeParam>(i, j, first, n); }, 30.0);
  }
}

TYPED_TEST(ProductsTest, ScaleAddBySignAndInPlace) {
  const Block<TypeParam> X(5, 3, 1), Y(5, 3, 2), d(3, 1, 3);
  for (const int sign : {1, -1})
    for (const bool inPlace : {false, true}) {
      Block<TypeParam> R(5, 3, 1);
      EXPECT_EQ(R.ScaleAdd(inPlace ? R : X, Y, d, sign), VES_GOOD);
      R.Expect(
          [&](int i, int j) { return Wide(X(i, j)) + sign * 1.0 * Wide(Y(i, j)) * Wide(d(j)); },
          4.0);
    }
}

/// The solution times the triangle is the block before; the other triangle is never read.
TYPED_TEST(ProductsTest, TriangularSolveOnBothSides) {
  const int n = 4;
  for (const char side : {'L', 'R'})
    for (const char uplo : {'U', 'L'})
      for (const char trans : {'N', 'C'})
        for (const char diag : {'N', 'U'}) {
          SCOPED_TRACE(testing::Message() << side << uplo << trans << diag);
          Block<TypeParam> M(n, n, 1), T(n, n, 1), X(n, n, 2);
          for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
              const bool inside = i == j ? diag == 'N' : (i < j) == (uplo == 'U');
              M(i, j) =
                  inside ? M(i, j) + Number<TypeParam>(i == j ? 3.0 : 0.0) : Number<TypeParam>(777);
              T(i, j) = inside ? M(i, j) : Number<TypeParam>(i == j ? 1.0 : 0.0);
            }
          EXPECT_EQ(X.TriangularSolve(M, side, uplo, trans, diag), VES_GOOD);
          const Block<TypeParam> B(n, n, 2);
          B.Expect(
              [&](int i, int j) {
                Wide sum = 0.0;
                for (int k = 0; k < n; ++k)
                  sum += side == 'L' ? T.Op(trans, i, k) * Wide(X(k, j))
                                     : Wide(X(i, k)) * T.Op(trans, k, j);
                return sum;
              },
              200.0);
        }
}

TYPED_TEST(ProductsTest, PermuteColsMovesSmallValuesToTheFront) {
  const struct {
    const char* why;
    Ints sizes;
    double tol;
    Ints order;
  } cases[] = {{"the outermost pairs swap", {9, 1, 9, 1}, 2.0, {3, 1, 2, 0}},
               {"the sign of the tolerance does not count", {9, 9, 1}, -2.0, {2, 1, 0}},
               {"strictly below", {2, 2, 1, 2}, 2.0, {2, 1, 0, 3}},
               {"nothing is below zero", {1, 0, 1}, 0.0, {0, 1, 2}},
               {"all are small", {1, 0, 1, 1}, 2.0, {0, 1, 2, 3}},
               {"already in order", {1, 1, 9, 9}, 2.0, {0, 1, 2, 3}},
               {"one column", {1}, 2.0, {0}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const int k = static_cast<int>(c.sizes.size());
    Block<TypeParam> X(this->rows, k), v(k, 1);
    const Block<TypeParam> old(this->rows, k);
    const auto phase = Number<TypeParam>(Ves::isComplex<TypeParam> ? 0.6 : -1.0, 0.8);
    int count = -1, small = 0;
    for (int j = 0; j < k; ++j) {
      v(j) = Number<TypeParam>(c.sizes.data()[j]) * phase;
      small += c.sizes.data()[j] < std::abs(c.tol) ? 1 : 0;
    }
    EXPECT_EQ(X.PermuteCols(v, c.tol, count), VES_GOOD);
    EXPECT_EQ(count, small);
    X.Expect([&](int i, int j) { return old(i, c.order.data()[j]); }, 0.0);
  }
}

/// y_i = (1 + i) x_i on local rows, counted.
template <typename Scalar>
void MultiplyByRow(void* calls, void* x, void* y, int nRows, int nCols, int ld) {
  ++*static_cast<int*>(calls);
  for (int j = 0; j < nCols; ++j)
    for (int i = 0; i < nRows; ++i)
      static_cast<Scalar*>(y)[i + j * ld] =
          Number<Scalar>(1.0 + i) * static_cast<Scalar*>(x)[i + j * ld];
}

TYPED_TEST(ProductsTest, EigResidualWithAndWithoutB) {
  const Block<TypeParam> X(this->rows, 3), lambda(3, 1, 1);
  int calls = 0;
  Ves::MatrixShell<TypeParam> shell;
  const VesMatrixEmpty identity;
  shell.SetShellMatVec(&MultiplyByRow<TypeParam>);
  shell.SetShellData(&calls);
  for (const bool generalized : {true, false}) {
    Block<TypeParam> R(this->rows, 3, 5);
    const auto& B = generalized ? static_cast<const VesMatrixBase&>(shell) : identity;
    EXPECT_EQ(R.EigResidual(shell, B, X, lambda), VES_GOOD);
    R.Expect(
        [&](int i, int j) {
          return Wide(X(i, j)) * (1.0 + i - Wide(lambda(j)) * (generalized ? 1.0 + i : 1.0));
        },
        60.0);
  }
  EXPECT_EQ(calls, this->rows.local > 0 ? 3 : 0);
}

/// max_j ||(Y^H X - I) e_j|| / sqrt(nY) over the columns of a group, from all rows.
template <typename Scalar>
double GroupError(int firstY, int nY, int firstX, int nX, bool minusIdentity) {
  double worst = 0.0;
  for (int j = 0; j < nX; ++j) {
    double square = 0.0;
    for (int i = 0; i < nY; ++i)
      square += std::norm(HashedDot<Scalar>(firstY + i, firstX + j, 0, 13) -
                          (minusIdentity && i == j ? 1.0 : 0.0));
    worst = std::max(worst, std::sqrt(square / nY));
  }
  return worst;
}

TYPED_TEST(ProductsTest, OrthogonalityOfBlocksAndGroups) {
  const Block<TypeParam> Y(this->rows, 7, 1), X(this->rows, 8, 2), none(this->rows, 0);
  const Ints dispY{0, 2, 7, 3}, nYs{2, 1, 0, 4}, dispX{1, 0, 3, 4}, nXs{2, 3, 1, 4};
  for (const bool minusIdentity : {true, false}) {
    double error = -1.0;
    EXPECT_EQ(Y.CheckOrthogonality(X, error, minusIdentity, true), VES_GOOD);
    EXPECT_NEAR(error, GroupError<TypeParam>(0, 7, 0, 8, minusIdentity), 50 * eps<TypeParam>);

    std::vector<double> errors(5, -1.0); // one entry more than groups
    const int before = reductions;
    EXPECT_EQ(Y.CheckBatchOrthogonality(X, dispY, nYs, dispX, nXs, errors, minusIdentity, true),
              VES_GOOD);
    EXPECT_EQ(reductions - before, 1) << "one reduction for all groups";
    for (const std::size_t b : {0U, 1U, 3U})
      EXPECT_NEAR(errors[b],
                  GroupError<TypeParam>(dispY[b], nYs[b], dispX[b], nXs[b], minusIdentity),
                  50 * eps<TypeParam>);
    EXPECT_TRUE(std::isnan(errors[2])) << "a group without columns has no error";
    EXPECT_EQ(errors[4], -1.0);
  }
  // Without columns process 0 need not wait for anybody.
  double error = -1.0;
  if (RankIn(world) == 0) {
    EXPECT_EQ(none.CheckOrthogonality(X, error, true, true), VES_GOOD);
    EXPECT_EQ(error, 0.0);
  }
}

/// Shapes are judged before kinds, and nothing is written.
TYPED_TEST(ProductsTest, Refusals) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  Block<TypeParam> X(5, 3), M(3, 3), L(5, 5), column(3, 1), odd(3, 3), short2(2, 1);
  const Block<Other> other(3, 3), otherColumn(3, 1);
  odd.storageType = static_cast<VesVectorType>(2);
  const VectorDense<TypeParam> bare(world, self, 3, 1, 3);
  const VesMatrixEmpty none;
  int count = -5;
  const struct {
    const char* why;
    VesReturnCode expected, got;
  } verdicts[] = {
      {"inner dimensions", VES_ERR_INCOMPATIBLE, M.Gemm(M, X)},
      {"rows of the result", VES_ERR_INCOMPATIBLE, M.Gemm(X, M)},
      {"transposed shapes", VES_ERR_INCOMPATIBLE, X.Gemm(X, M, 'x', 'N')},
      {"first operand of another type", VES_ERR_UNSUPPORTED,
       X.Gemm(other, M, 'N', 'N') == VES_ERR_INCOMPATIBLE ? M.Gemm(other, M) : VES_GOOD},
      {"second operand not dense", VES_ERR_UNSUPPORTED, M.Gemm(M, odd)},
      {"inner product, shapes", VES_ERR_INCOMPATIBLE, L.InnerProduct(X, X)},
      {"residual, dimensions", VES_ERR_INCOMPATIBLE, X.ScaleAdd(X, M, column, 1)},
      {"residual, factors", VES_ERR_INCOMPATIBLE, X.ScaleAdd(X, X, short2, 1)},
      {"residual, factors of another type", VES_ERR_UNSUPPORTED, X.ScaleAdd(X, X, otherColumn, 1)},
      {"triangle not square", VES_ERR_INVALID_VALUE, X.TriangularSolve(X, 'q', 'U', 'N', 'N')},
      {"triangle on the wrong side", VES_ERR_INCOMPATIBLE,
       X.TriangularSolve(M, 'L', 'U', 'N', 'N')},
      {"side in lower case", VES_ERR_INCOMPATIBLE, X.TriangularSolve(M, 'r', 'U', 'N', 'N')},
      {"triangle not dense", VES_ERR_UNSUPPORTED, X.TriangularSolve(odd, 'R', 'U', 'N', 'N')},
      {"values for other columns", VES_ERR_INVALID_VALUE, X.PermuteCols(short2, 1.0, count)},
      {"no values", VES_ERR_NULL_POINTER, X.PermuteCols(bare, 1.0, count)},
      {"values of another type", VES_ERR_MISMATCH, X.PermuteCols(otherColumn, 1.0, count)},
      {"residual of other dimensions", VES_ERR_INCOMPATIBLE, X.EigResidual(none, none, M, column)},
      {"eigenvalues as a row", VES_ERR_INCOMPATIBLE, X.EigResidual(none, none, X, M)}};
  for (const auto& v : verdicts)
    EXPECT_EQ(v.got, v.expected) << v.why;
  EXPECT_EQ(count, -5);
  for (const auto* block : {&X, &M, &L})
    block->Expect([](int i, int j) { return HashedNumber<TypeParam>(i, j); }, 0.0);
}

} // namespace
