// Every wrapper calls the routine of its own type with its arguments in place: against sums written
// out on 4 x 4 matrices. The eigensolvers are tested with the components that call them.
#include "parallel/blacs_wrapper.h"
#include "support/scalars.h"

#include <array>

using namespace VesTest;
using Wide = std::complex<double>;

namespace {

constexpr int one = 1, n = 4;

template <typename Scalar>
using Kernel = Ves::MathKernel<Scalar>;
template <typename Scalar>
const Scalar alpha = Number<Scalar>(0.5, -2.0);
template <typename Scalar>
const Scalar beta = Number<Scalar>(3.0, 4.0);

template <typename Scalar>
struct Matrix {
  std::array<Scalar, n * n> v;

  explicit Matrix(unsigned stream, bool definite = false) {
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i)
        (*this)(i, j) = HashedNumber<Scalar>(i, j, stream) +
                        (definite ? Conj(HashedNumber<Scalar>(j, i, stream)) : Scalar(0)) +
                        Number<Scalar>(definite && i == j ? 9.0 : 0.0);
  }
  Scalar* data() { return v.data(); }
  Scalar& operator()(int i, int j) { return v.data()[i + j * n]; }
};

/// Entry (i, j) of A^H B ('C') or A B ('N') over the first inner terms.
template <typename Scalar>
Wide Product(char trans, Matrix<Scalar>& A, Matrix<Scalar>& B, int i, int j, int inner = n) {
  Wide sum = 0.0;
  for (int k = 0; k < inner; ++k)
    sum += Wide(trans == 'C' ? Conj(A(k, i)) : A(i, k)) * Wide(B(k, j));
  return sum;
}

template <typename Scalar>
void ExpectNear(const Wide& value, const Wide& expected) {
  EXPECT_LE(std::abs(value - expected), 50 * eps<Scalar>) << value << " " << expected;
}

template <typename Scalar>
struct MathKernelTest : testing::Test {};
TYPED_TEST_SUITE(MathKernelTest, AllScalars);

TEST(ScalarCodes, AreThePublicOnes) {
  EXPECT_EQ(ScalarCode<double>(), 0);
  EXPECT_EQ(ScalarCode<float>(), 1);
  EXPECT_EQ(ScalarCode<std::complex<double>>(), 2);
  EXPECT_EQ(ScalarCode<std::complex<float>>(), 3);
}

/// The conjugating dot product is also the self-test of how the provider returns complex values.
TYPED_TEST(MathKernelTest, Products) {
  Matrix<TypeParam> A(1), B(2), old(3);
  const TypeParam dot = Kernel<TypeParam>::Dot(&n, A.data(), &one, B.data(), &one);
  ExpectNear<TypeParam>(dot, Product('C', A, B, 0, 0));
  const TypeParam square = Kernel<TypeParam>::Dot(&n, A.data(), &n, A.data(), &n); // of a row
  EXPECT_GT(std::real(square), 0);
  EXPECT_EQ(std::imag(square), 0);
  for (const char trans : {'N', 'C'}) {
    auto C = old;
    Kernel<TypeParam>::Gemm(&trans, "N", &n, &n, &n, &alpha<TypeParam>, A.data(), &n, B.data(), &n,
                            &beta<TypeParam>, C.data(), &n);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i)
        ExpectNear<TypeParam>(C(i, j), Wide(alpha<TypeParam>) * Product(trans, A, B, i, j) +
                                           Wide(beta<TypeParam>) * Wide(old(i, j)));
  }
}

TYPED_TEST(MathKernelTest, ScaleCopyFillAndRandom) {
  Matrix<TypeParam> A(1), oldA(1), B(2), oldB(2), C(3);
  Kernel<TypeParam>::Copy(&n, A.data(), &n, C.data(), &one); // a row to a column
  Kernel<TypeParam>::Laset("A", &n, &n, &alpha<TypeParam>, &beta<TypeParam>, A.data(), &n);
  Kernel<TypeParam>::Lacpy("U", &n, &n, A.data(), &n, B.data(), &n);
  Kernel<TypeParam>::Scal(&n, &alpha<TypeParam>, A.data(), &n);
  for (int j = 0; j < n; ++j) {
    const TypeParam filled = j == 0 ? beta<TypeParam> : alpha<TypeParam>;
    EXPECT_EQ(C(j, 0), oldA(0, j));
    ExpectNear<TypeParam>(A(0, j), Wide(alpha<TypeParam>) * Wide(filled));
    EXPECT_EQ(B(0, j), filled);
    EXPECT_EQ(B(3, j), j < 3 ? oldB(3, j) : beta<TypeParam>);
  }
  int seed[4] = {1, 2, 3, 5}, again[4] = {1, 2, 3, 5};
  const int uniform = 2, twice = 2 * n;
  Kernel<TypeParam>::Larnv(&uniform, seed, &twice, A.data());
  Kernel<TypeParam>::Larnv(&uniform, again, &n, B.data());
  Kernel<TypeParam>::Larnv(&uniform, again, &n, B.data() + n);
  EXPECT_TRUE(std::equal(A.data(), A.data() + twice, B.data())) << "the seed carries on";
  EXPECT_EQ(std::imag(A(1, 0)) != 0, Ves::isComplex<TypeParam>);
  EXPECT_LT(std::abs(std::real(A(1, 0))), 1);
}

/// R^H R = M and X R = alpha B, by LAPACK and BLAS, and by ScaLAPACK on a grid of one process,
/// where the distributed matrix is the whole one.
TYPED_TEST(MathKernelTest, FactorAndSolve) {
  Ves::BlacsBase grid;
  int desc[9], info = -77;
  grid.InitDesc(desc, MPI_COMM_SELF, n);
  for (const bool distributed : {false, true}) {
    Matrix<TypeParam> M(1, true), R = M, B(2), X = B;
    if (distributed) {
      Kernel<TypeParam>::Ppotrf("U", &n, R.data(), &one, &one, desc, &info);
      Kernel<TypeParam>::Ptrsm("R", "U", "N", "N", &n, &n, &alpha<TypeParam>, R.data(), &one, &one,
                               desc, X.data(), &one, &one, desc);
    } else {
      Kernel<TypeParam>::Potrf("U", &n, R.data(), &n, &info);
      Kernel<TypeParam>::Trsm("R", "U", "N", "N", &n, &n, &alpha<TypeParam>, R.data(), &n, X.data(),
                              &n);
    }
    EXPECT_EQ(info, 0);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) {
        ExpectNear<TypeParam>(Product('C', R, R, i, j, std::min(i, j) + 1), M(i, j));
        ExpectNear<TypeParam>(Product('N', X, R, i, j, j + 1),
                              Wide(alpha<TypeParam>) * Wide(B(i, j)));
      }
  }
}

} // namespace
