#include "math_kernel.h"

#include "fortran.h"

namespace Ves {

namespace {

/// The routines of one scalar type, so that each wrapper below is written once.
template <typename Scalar>
struct Routines;

#define VES_COMMON_ROUTINES(x)                                                                     \
  static constexpr auto gemm = x##gemm_;                                                           \
  static constexpr auto trsm = x##trsm_;                                                           \
  static constexpr auto ptrsm = p##x##trsm_;                                                       \
  static constexpr auto scal = x##scal_;                                                           \
  static constexpr auto copy = x##copy_;                                                           \
  static constexpr auto laset = x##laset_;                                                         \
  static constexpr auto larnv = x##larnv_;                                                         \
  static constexpr auto lacpy = x##lacpy_;                                                         \
  static constexpr auto potrf = x##potrf_;                                                         \
  static constexpr auto ppotrf = p##x##potrf_

template <>
struct Routines<double> {
  VES_COMMON_ROUTINES(d);
  static constexpr VesScalarType code = VES_DOUBLE;
  static constexpr auto herk = dsyrk_;
  static constexpr auto dot = ddot_;
  static constexpr auto hetrd = dsytrd_;
  static constexpr auto unmtr = dormtr_;
  static constexpr auto stedc = dstedc_;
  static constexpr auto evd = dsyevd_;
  static constexpr auto pevd = pdsyevd_;
};
template <>
struct Routines<float> {
  VES_COMMON_ROUTINES(s);
  static constexpr VesScalarType code = VES_FLOAT;
  static constexpr auto herk = ssyrk_;
  static constexpr auto dot = sdot_;
  static constexpr auto hetrd = ssytrd_;
  static constexpr auto unmtr = sormtr_;
  static constexpr auto stedc = sstedc_;
  static constexpr auto evd = ssyevd_;
  static constexpr auto pevd = pssyevd_;
};
template <>
struct Routines<std::complex<double>> {
  VES_COMMON_ROUTINES(z);
  static constexpr VesScalarType code = VES_COMPLEX_DOUBLE;
  static constexpr auto herk = zherk_;
  static constexpr auto dot = zdotc_;
  static constexpr auto hetrd = zhetrd_;
  static constexpr auto unmtr = zunmtr_;
  static constexpr auto stedc = dstedc_;
  static constexpr auto evd = zheevd_;
  static constexpr auto pevd = pzheevd_;
};
template <>
struct Routines<std::complex<float>> {
  VES_COMMON_ROUTINES(c);
  static constexpr VesScalarType code = VES_COMPLEX_FLOAT;
  static constexpr auto herk = cherk_;
  static constexpr auto dot = cdotc_;
  static constexpr auto hetrd = chetrd_;
  static constexpr auto unmtr = cunmtr_;
  static constexpr auto stedc = sstedc_;
  static constexpr auto evd = cheevd_;
  static constexpr auto pevd = pcheevd_;
};

#undef VES_COMMON_ROUTINES

} // namespace

template <typename Scalar>
void MathKernel<Scalar>::SetScalarType(VesScalarType& scalarType) {
  scalarType = Routines<Scalar>::code;
}

template <typename Scalar>
void MathKernel<Scalar>::Gemm(const char* transa, const char* transb, const int* m, const int* n,
                              const int* k, const Scalar* alpha, const Scalar* A, const int* lda,
                              const Scalar* B, const int* ldb, const Scalar* beta, Scalar* C,
                              const int* ldc) {
  Routines<Scalar>::gemm(transa, transb, m, n, k, alpha, A, lda, B, ldb, beta, C, ldc);
}

template <typename Scalar>
void MathKernel<Scalar>::Herk(const char* uplo, const char* trans, const int* n, const int* k,
                              const RealType<Scalar>* alpha, const Scalar* A, const int* lda,
                              const RealType<Scalar>* beta, Scalar* C, const int* ldc) {
  Routines<Scalar>::herk(uplo, trans, n, k, alpha, A, lda, beta, C, ldc);
}

template <typename Scalar>
void MathKernel<Scalar>::Trsm(const char* side, const char* uplo, const char* transa,
                              const char* diag, const int* m, const int* n, const Scalar* alpha,
                              const Scalar* A, const int* lda, Scalar* B, const int* ldb) {
  Routines<Scalar>::trsm(side, uplo, transa, diag, m, n, alpha, A, lda, B, ldb);
}

template <typename Scalar>
void MathKernel<Scalar>::Ptrsm(const char* side, const char* uplo, const char* transa,
                               const char* diag, const int* m, const int* n, const Scalar* alpha,
                               const Scalar* A, const int* ia, const int* ja, const int* descA,
                               Scalar* B, const int* ib, const int* jb, const int* descB) {
  Routines<Scalar>::ptrsm(side, uplo, transa, diag, m, n, alpha, A, ia, ja, descA, B, ib, jb,
                          descB);
}

template <typename Scalar>
void MathKernel<Scalar>::Scal(const int* n, const Scalar* alpha, Scalar* x, const int* incx) {
  Routines<Scalar>::scal(n, alpha, x, incx);
}

template <typename Scalar>
void MathKernel<Scalar>::Copy(const int* n, const Scalar* x, const int* incx, Scalar* y,
                              const int* incy) {
  Routines<Scalar>::copy(n, x, incx, y, incy);
}

template <typename Scalar>
void MathKernel<Scalar>::Laset(const char* uplo, const int* m, const int* n, const Scalar* alpha,
                               const Scalar* beta, Scalar* A, const int* lda) {
  Routines<Scalar>::laset(uplo, m, n, alpha, beta, A, lda);
}

template <typename Scalar>
void MathKernel<Scalar>::Larnv(const int* idist, int* iseed, const int* n, Scalar* x) {
  Routines<Scalar>::larnv(idist, iseed, n, x);
}

template <typename Scalar>
void MathKernel<Scalar>::Lacpy(const char* uplo, const int* m, const int* n, const Scalar* A,
                               const int* lda, Scalar* B, const int* ldb) {
  Routines<Scalar>::lacpy(uplo, m, n, A, lda, B, ldb);
}

template <typename Scalar>
Scalar MathKernel<Scalar>::Dot(const int* n, const Scalar* x, const int* incx, const Scalar* y,
                               const int* incy) {
#ifdef VES_COMPLEX_DOT_BY_ARGUMENT
  if constexpr (isComplex<Scalar>) {
    Scalar result;
    Routines<Scalar>::dot(&result, n, x, incx, y, incy);
    return result;
  } else
#endif
    return Routines<Scalar>::dot(n, x, incx, y, incy);
}

template <typename Scalar>
void MathKernel<Scalar>::Potrf(const char* uplo, const int* n, Scalar* A, const int* lda,
                               int* info) {
  Routines<Scalar>::potrf(uplo, n, A, lda, info);
}

template <typename Scalar>
void MathKernel<Scalar>::Ppotrf(const char* uplo, const int* n, Scalar* A, const int* ia,
                                const int* ja, const int* descA, int* info) {
  Routines<Scalar>::ppotrf(uplo, n, A, ia, ja, descA, info);
}

template <typename Scalar>
void MathKernel<Scalar>::Hetrd(const char* uplo, const int* n, Scalar* A, const int* lda,
                               RealType<Scalar>* d, RealType<Scalar>* e, Scalar* tau, Scalar* work,
                               const int* lwork, int* info) {
  Routines<Scalar>::hetrd(uplo, n, A, lda, d, e, tau, work, lwork, info);
}

template <typename Scalar>
void MathKernel<Scalar>::Unmtr(const char* side, const char* uplo, const char* trans, const int* m,
                               const int* n, const Scalar* A, const int* lda, const Scalar* tau,
                               Scalar* C, const int* ldc, Scalar* work, const int* lwork,
                               int* info) {
  Routines<Scalar>::unmtr(side, uplo, trans, m, n, A, lda, tau, C, ldc, work, lwork, info);
}

template <typename Scalar>
void MathKernel<Scalar>::Stedc(const char* compz, const int* n, RealType<Scalar>* d,
                               RealType<Scalar>* e, RealType<Scalar>* Z, const int* ldz,
                               RealType<Scalar>* work, const int* lwork, int* iwork,
                               const int* liwork, int* info) {
  Routines<Scalar>::stedc(compz, n, d, e, Z, ldz, work, lwork, iwork, liwork, info);
}

template <typename Real>
void MathKernelReal<Real>::Syevd(const char* jobz, const char* uplo, const int* n, Real* A,
                                 const int* lda, Real* W, Real* work, const int* lwork, int* iwork,
                                 const int* liwork, int* info) {
  Routines<Real>::evd(jobz, uplo, n, A, lda, W, work, lwork, iwork, liwork, info);
}

template <typename Real>
void MathKernelReal<Real>::Psyevd(const char* jobz, const char* uplo, const int* n, Real* A,
                                  const int* ia, const int* ja, const int* descA, Real* W, Real* Z,
                                  const int* iz, const int* jz, const int* descZ, Real* work,
                                  const int* lwork, int* iwork, const int* liwork, int* info) {
  Routines<Real>::pevd(jobz, uplo, n, A, ia, ja, descA, W, Z, iz, jz, descZ, work, lwork, iwork,
                       liwork, info);
}

template <typename Scalar>
void MathKernelCmplx<Scalar>::Heevd(const char* jobz, const char* uplo, const int* n, Scalar* A,
                                    const int* lda, Real* W, Scalar* work, const int* lwork,
                                    Real* rwork, const int* lrwork, int* iwork, const int* liwork,
                                    int* info) {
  Routines<Scalar>::evd(jobz, uplo, n, A, lda, W, work, lwork, rwork, lrwork, iwork, liwork, info);
}

template <typename Scalar>
void MathKernelCmplx<Scalar>::Pheevd(const char* jobz, const char* uplo, const int* n, Scalar* A,
                                     const int* ia, const int* ja, const int* descA, Real* W,
                                     Scalar* Z, const int* iz, const int* jz, const int* descZ,
                                     Scalar* work, const int* lwork, Real* rwork, const int* lrwork,
                                     int* iwork, const int* liwork, int* info) {
  Routines<Scalar>::pevd(jobz, uplo, n, A, ia, ja, descA, W, Z, iz, jz, descZ, work, lwork, rwork,
                         lrwork, iwork, liwork, info);
}

VES_INSTANTIATE(MathKernel);
template class MathKernelReal<double>;
template class MathKernelReal<float>;
template class MathKernelCmplx<std::complex<double>>;
template class MathKernelCmplx<std::complex<float>>;

} // namespace Ves
