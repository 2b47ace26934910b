#ifndef VES_KERNEL_MATH_KERNEL_H
#define VES_KERNEL_MATH_KERNEL_H

#include <ves.h>

#include "instantiate.h"
#include "math_constants.h"
#include "scalar_traits.h"

namespace Ves {

/// Typed wrappers over BLAS, LAPACK and ScaLAPACK: each forwards the routine's own argument list
/// to the routine of the scalar type's precision and field, and checks nothing.
template <typename Scalar>
class VES_EXPORT MathKernel {
public:
  virtual ~MathKernel() = default;

  /// Writes the public code of Scalar.
  static void SetScalarType(VesScalarType& scalarType);

  static void Gemm(const char* transa, const char* transb, const int* m, const int* n, const int* k,
                   const Scalar* alpha, const Scalar* A, const int* lda, const Scalar* B,
                   const int* ldb, const Scalar* beta, Scalar* C, const int* ldc);
  /// The complex ?herk, the real ?syrk.
  static void Herk(const char* uplo, const char* trans, const int* n, const int* k,
                   const RealType<Scalar>* alpha, const Scalar* A, const int* lda,
                   const RealType<Scalar>* beta, Scalar* C, const int* ldc);
  static void Trsm(const char* side, const char* uplo, const char* transa, const char* diag,
                   const int* m, const int* n, const Scalar* alpha, const Scalar* A, const int* lda,
                   Scalar* B, const int* ldb);
  static void Ptrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                    const int* m, const int* n, const Scalar* alpha, const Scalar* A, const int* ia,
                    const int* ja, const int* descA, Scalar* B, const int* ib, const int* jb,
                    const int* descB);
  static void Scal(const int* n, const Scalar* alpha, Scalar* x, const int* incx);
  static void Copy(const int* n, const Scalar* x, const int* incx, Scalar* y, const int* incy);
  static void Laset(const char* uplo, const int* m, const int* n, const Scalar* alpha,
                    const Scalar* beta, Scalar* A, const int* lda);
  static void Larnv(const int* idist, int* iseed, const int* n, Scalar* x);
  static void Lacpy(const char* uplo, const int* m, const int* n, const Scalar* A, const int* lda,
                    Scalar* B, const int* ldb);
  /// x^H y: the first operand is conjugated.
  static Scalar Dot(const int* n, const Scalar* x, const int* incx, const Scalar* y,
                    const int* incy);
  static void Potrf(const char* uplo, const int* n, Scalar* A, const int* lda, int* info);
  static void Ppotrf(const char* uplo, const int* n, Scalar* A, const int* ia, const int* ja,
                     const int* descA, int* info);
  /// The complex ?hetrd and ?unmtr, the real ?sytrd and ?ormtr.
  static void Hetrd(const char* uplo, const int* n, Scalar* A, const int* lda, RealType<Scalar>* d,
                    RealType<Scalar>* e, Scalar* tau, Scalar* work, const int* lwork, int* info);
  static void Unmtr(const char* side, const char* uplo, const char* trans, const int* m,
                    const int* n, const Scalar* A, const int* lda, const Scalar* tau, Scalar* C,
                    const int* ldc, Scalar* work, const int* lwork, int* info);
  /// Of a real tridiagonal matrix, whose vectors are real.
  static void Stedc(const char* compz, const int* n, RealType<Scalar>* d, RealType<Scalar>* e,
                    RealType<Scalar>* Z, const int* ldz, RealType<Scalar>* work, const int* lwork,
                    int* iwork, const int* liwork, int* info);
};

/// Adds the symmetric eigensolvers of the real types.
template <typename Real>
class VES_EXPORT MathKernelReal : public MathKernel<Real> {
public:
  static void Syevd(const char* jobz, const char* uplo, const int* n, Real* A, const int* lda,
                    Real* W, Real* work, const int* lwork, int* iwork, const int* liwork,
                    int* info);
  static void Psyevd(const char* jobz, const char* uplo, const int* n, Real* A, const int* ia,
                     const int* ja, const int* descA, Real* W, Real* Z, const int* iz,
                     const int* jz, const int* descZ, Real* work, const int* lwork, int* iwork,
                     const int* liwork, int* info);
};

/// Adds the Hermitian eigensolvers of the complex types; eigenvalues and rwork are real.
template <typename Scalar>
class VES_EXPORT MathKernelCmplx : public MathKernel<Scalar> {
public:
  using Real = RealType<Scalar>;
  static void Heevd(const char* jobz, const char* uplo, const int* n, Scalar* A, const int* lda,
                    Real* W, Scalar* work, const int* lwork, Real* rwork, const int* lrwork,
                    int* iwork, const int* liwork, int* info);
  static void Pheevd(const char* jobz, const char* uplo, const int* n, Scalar* A, const int* ia,
                     const int* ja, const int* descA, Real* W, Scalar* Z, const int* iz,
                     const int* jz, const int* descZ, Scalar* work, const int* lwork, Real* rwork,
                     const int* lrwork, int* iwork, const int* liwork, int* info);
};

VES_EXTERN_TEMPLATE(MathKernel);
extern template class MathKernelReal<double>;
extern template class MathKernelReal<float>;
extern template class MathKernelCmplx<std::complex<double>>;
extern template class MathKernelCmplx<std::complex<float>>;

} // namespace Ves

#endif
