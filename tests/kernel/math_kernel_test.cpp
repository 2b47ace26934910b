// Every wrapper calls the routine of its own type with its arguments in place: each once, against
// sums written out.
#include "parallel/blacs_wrapper.h"
#include "support/scalars.h"

#include <vector>

using namespace VesTest;
using Wide = std::complex<double>;

namespace {

constexpr int one = 1, n = 4;

template <typename Scalar>
using Kernel = Ves::MathKernel<Scalar>;

/// A square block with a leading dimension of its own; on demand Hermitian and positive definite.
template <typename Scalar>
struct Block {
  int ld;
  std::vector<Scalar> storage;

  explicit Block(unsigned stream, int leading = n, bool definite = false)
      : ld(leading), storage(static_cast<std::size_t>(leading * n)) {
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i)
        (*this)(i, j) = HashedNumber<Scalar>(i, j, stream) +
                        (definite ? Conj(HashedNumber<Scalar>(j, i, stream)) : Scalar(0)) +
                        Number<Scalar>(definite && i == j ? 9.0 : 0.0);
  }
  Scalar* data() { return storage.data(); }
  Scalar& operator()(int i, int j) { return storage.data()[i + j * ld]; }
};

/// Entry (i, j) of A^H B ('C') or A B ('N') over the first inner terms.
template <typename Scalar>
Wide ProductEntry(char trans, Block<Scalar>& A, Block<Scalar>& B, int i, int j, int inner = n) {
  Wide sum = 0.0;
  for (int k = 0; k < inner; ++k)
    sum += Wide(trans == 'C' ? Conj(A(k, i)) : A(i, k)) * Wide(B(k, j));
  return sum;
}

template <typename Scalar>
void ExpectNear(const Wide& value, const Wide& expected) {
  EXPECT_LE(std::abs(value - expected), 50.0 * eps<Scalar>) << value << " " << expected;
}

template <typename Scalar>
class MathKernelTest : public testing::Test {
public:
  const Scalar alpha = Number<Scalar>(0.5, -2.0), beta = Number<Scalar>(3.0, 4.0);
};
TYPED_TEST_SUITE(MathKernelTest, AllScalars);

TEST(ScalarCodes, AreThePublicOnes) {
  EXPECT_EQ(ScalarCode<double>(), 0);
  EXPECT_EQ(ScalarCode<float>(), 1);
  EXPECT_EQ(ScalarCode<std::complex<double>>(), 2);
  EXPECT_EQ(ScalarCode<std::complex<float>>(), 3);
}

/// The conjugating dot product is also the self-test of how the provider returns complex values.
TYPED_TEST(MathKernelTest, Products) {
  Block<TypeParam> A(1, 6), B(2, 5), C(3, 7), old = C;
  const TypeParam dot = Kernel<TypeParam>::Dot(&n, A.data(), &one, B.data(), &one);
  ExpectNear<TypeParam>(dot, ProductEntry('C', A, B, 0, 0));
  const TypeParam square = Kernel<TypeParam>::Dot(&n, A.data(), &A.ld, A.data(), &A.ld);
  EXPECT_GT(std::real(square), 0);
  EXPECT_EQ(std::imag(square), 0);
  for (const char trans : {'N', 'C'}) {
    C = old;
    Kernel<TypeParam>::Gemm(&trans, "N", &n, &n, &n, &this->alpha, A.data(), &A.ld, B.data(), &B.ld,
                            &this->beta, C.data(), &C.ld);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i)
        ExpectNear<TypeParam>(C(i, j), Wide(this->alpha) * ProductEntry(trans, A, B, i, j) +
                                           Wide(this->beta) * Wide(old(i, j)));
  }
}

TYPED_TEST(MathKernelTest, ScaleCopyFillAndRandom) {
  Block<TypeParam> A(1, 6), B(2, 5), row(3), old = B, random(4), halves(5);
  Kernel<TypeParam>::Copy(&n, B.data(), &B.ld, row.data(), &one);
  Kernel<TypeParam>::Laset("A", &n, &n, &this->alpha, &this->beta, A.data(), &A.ld);
  Kernel<TypeParam>::Lacpy("U", &n, &n, A.data(), &A.ld, B.data(), &B.ld);
  Kernel<TypeParam>::Scal(&n, &this->alpha, B.data(), &B.ld);
  for (int j = 0; j < n; ++j) {
    EXPECT_EQ(row(j, 0), old(0, j));
    ExpectNear<TypeParam>(B(0, j), Wide(this->alpha) * Wide(j == 0 ? this->beta : this->alpha));
    for (int i = 1; i < n; ++i)
      EXPECT_EQ(B(i, j), i > j ? old(i, j) : (i == j ? this->beta : this->alpha));
  }
  int seed[4] = {1, 2, 3, 5}, again[4] = {1, 2, 3, 5};
  const int uniform = 2, half = n / 2;
  Kernel<TypeParam>::Larnv(&uniform, seed, &n, random.data());
  Kernel<TypeParam>::Larnv(&uniform, again, &half, halves.data());
  Kernel<TypeParam>::Larnv(&uniform, again, &half, halves.data() + half);
  for (int i = 0; i < n; ++i) {
    EXPECT_EQ(random(i, 0), halves(i, 0)) << "the seed carries the stream on";
    EXPECT_LT(std::abs(std::real(random(i, 0))), 1);
    EXPECT_EQ(std::imag(random(i, 0)) != 0, Ves::isComplex<TypeParam>);
  }
}

/// By LAPACK and BLAS, and by ScaLAPACK on a grid of one process, where the distributed matrix is
/// the whole one. The eigensolvers are tested with the components that call them.
TYPED_TEST(MathKernelTest, FactorAndSolve) {
  Ves::BlacsBase grid;
  int desc[9];
  grid.InitDesc(desc, MPI_COMM_SELF, n);
  for (const bool distributed : {false, true}) {
    Block<TypeParam> M(1, distributed ? n : 6, true), R = M, B(2), X = B;
    int info = -77;
    if (distributed) {
      Kernel<TypeParam>::Ppotrf("U", &n, R.data(), &one, &one, desc, &info);
      Kernel<TypeParam>::Ptrsm("R", "U", "N", "N", &n, &n, &this->alpha, R.data(), &one, &one, desc,
                               X.data(), &one, &one, desc);
    } else {
      Kernel<TypeParam>::Potrf("U", &n, R.data(), &R.ld, &info);
      Kernel<TypeParam>::Trsm("R", "U", "N", "N", &n, &n, &this->alpha, R.data(), &R.ld, X.data(),
                              &X.ld);
    }
    EXPECT_EQ(info, 0);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) { // R^H R = M and X R = alpha B, R being an upper triangle
        ExpectNear<TypeParam>(ProductEntry('C', R, R, i, j, std::min(i, j) + 1), M(i, j));
        ExpectNear<TypeParam>(ProductEntry('N', X, R, i, j, j + 1),
                              Wide(this->alpha) * Wide(B(i, j)));
      }
  }
}

} // namespace
