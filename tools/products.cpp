#include "products.h"

#include <Eigen/Core>

#include <complex>
#include <limits>
#include <random>

#ifdef EIGEN_USE_BLAS
#error "The BLAS would be compared with itself."
#endif

#define VES_DECLARE(x, T, herk, R)                                                                 \
  extern "C" {                                                                                     \
  void x##gemm_(const char*, const char*, const int* m, const int* n, const int* k,                \
                const T* alpha, const T* a, const int* lda, const T* b, const int* ldb,            \
                const T* beta, T* c, const int* ldc);                                              \
  void x##herk(const char* uplo, const char* trans, const int* n, const int* k, const R* alpha,    \
               const T* a, const int* lda, const R* beta, T* c, const int* ldc);                   \
  void x##trsm_(const char* side, const char* uplo, const char* transa, const char* diag,          \
                const int* m, const int* n, const T* alpha, const T* a, const int* lda, T* b,      \
                const int* ldb);                                                                   \
  }                                                                                                \
  template <>                                                                                      \
  struct ProductRoutines<T> {                                                                      \
    static constexpr auto gemm = x##gemm_;                                                         \
    static constexpr auto rankUpdate = x##herk;                                                    \
    static constexpr auto trsm = x##trsm_;                                                         \
  };

namespace VesTools {
namespace {

template <typename Scalar>
struct ProductRoutines;

VES_DECLARE(s, float, syrk_, float)
VES_DECLARE(d, double, syrk_, double)
VES_DECLARE(c, std::complex<float>, herk_, float)
VES_DECLARE(z, std::complex<double>, herk_, double)

template <typename Scalar>
using Dense = Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>;
template <typename Scalar>
using Real = typename Eigen::NumTraits<Scalar>::Real;

// Small whole numbers, of whose products all sums are exact in each type and in any order: right
// results are the same to the last bit.
template <typename Scalar>
Dense<Scalar> WholeNumbers(int rows, int cols) {
  static std::minstd_rand random;
  const auto next = [] { return static_cast<Real<Scalar>>(static_cast<int>(random() % 17) - 8); };
  return Dense<Scalar>::NullaryExpr(rows, cols, [&] {
    Scalar number(next());
    if constexpr (Eigen::NumTraits<Scalar>::IsComplex) number.imag(next());
    return number;
  });
}

// What a routine does not set spoils the comparison.
template <typename Scalar>
Dense<Scalar> NotANumber(int rows, int cols) {
  return Dense<Scalar>::Constant(rows, cols, std::numeric_limits<Real<Scalar>>::quiet_NaN());
}

template <typename Scalar>
bool IsGemmRight(char transA, char transB, int m, int n, int k) {
  const Scalar one(1), zero(0);
  const Dense<Scalar> A = WholeNumbers<Scalar>(m, k), B = WholeNumbers<Scalar>(k, n);
  const Dense<Scalar> storedA = transA == 'N' ? A : Dense<Scalar>(A.adjoint());
  const Dense<Scalar> storedB = transB == 'N' ? B : Dense<Scalar>(B.adjoint());
  const int lda = transA == 'N' ? m : k, ldb = transB == 'N' ? k : n;
  Dense<Scalar> C = NotANumber<Scalar>(m, n);
  ProductRoutines<Scalar>::gemm(&transA, &transB, &m, &n, &k, &one, storedA.data(), &lda,
                                storedB.data(), &ldb, &zero, C.data(), &m);
  return C == A.lazyProduct(B);
}

template <typename Scalar>
bool IsRankUpdateRight(int n, int k) {
  const char trans = Eigen::NumTraits<Scalar>::IsComplex ? 'C' : 'T';
  const Real<Scalar> one(1), zero(0);
  const Dense<Scalar> A = WholeNumbers<Scalar>(k, n);
  Dense<Scalar> C = NotANumber<Scalar>(n, n);
  ProductRoutines<Scalar>::rankUpdate("U", &trans, &n, &k, &one, A.data(), &k, &zero, C.data(), &n);
  const Dense<Scalar> gram = A.adjoint().lazyProduct(A);
  const Dense<Scalar> upper = C.template triangularView<Eigen::Upper>();
  return upper == Dense<Scalar>(gram.template triangularView<Eigen::Upper>());
}

// X R for a triangle R with a diagonal of ones gives X back without a rounding error.
template <typename Scalar>
bool IsTrsmRight(int m, int n) {
  const Scalar one(1);
  const Dense<Scalar> X = WholeNumbers<Scalar>(m, n);
  const Dense<Scalar> R = WholeNumbers<Scalar>(n, n).template triangularView<Eigen::UnitUpper>();
  Dense<Scalar> B = X.lazyProduct(R);
  ProductRoutines<Scalar>::trsm("R", "U", "N", "N", &m, &n, &one, R.data(), &n, B.data(), &m);
  return B == X;
}

template <typename Scalar>
bool AreRight(int m, int n, int k) {
  return IsGemmRight<Scalar>('N', 'N', m, n, k) && IsGemmRight<Scalar>('C', 'N', m, n, k) &&
         IsGemmRight<Scalar>('N', 'C', m, n, k) && IsRankUpdateRight<Scalar>(n, k) &&
         IsTrsmRight<Scalar>(m, n);
}

// Sizes that no tile of a kernel divides: OpenBLAS has kernels of their own up to m n k = 1e6.
template <typename Scalar>
bool AreRightInAllSizes() {
  return AreRight<Scalar>(1, 1, 1) && AreRight<Scalar>(13, 11, 17) && AreRight<Scalar>(71, 53, 290);
}

} // namespace

bool AreProductsRight() {
  return AreRightInAllSizes<float>() && AreRightInAllSizes<double>() &&
         AreRightInAllSizes<std::complex<float>>() && AreRightInAllSizes<std::complex<double>>();
}

} // namespace VesTools
