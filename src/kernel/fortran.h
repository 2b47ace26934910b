/// Declarations of the BLAS, LAPACK, ScaLAPACK and BLACS routines that the library calls. The
/// calling program links their provider; nothing outside this folder names one of these symbols.
/// Integers are 32 bits wide; character arguments come without their hidden lengths.
#ifndef VES_KERNEL_FORTRAN_H
#define VES_KERNEL_FORTRAN_H

#include <complex>

#ifdef __clang__
#pragma clang diagnostic push
// A Fortran COMPLEX function returns what C returns for its own complex type; std::complex comes
// back in the same registers on the ABIs in use, which the build's probe confirms.
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif

extern "C" {

// Routines of every scalar type T with the letter x.
#define VES_DECLARE_FOR_ALL(x, T)                                                                  \
  void x##gemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,  \
                const T* alpha, const T* a, const int* lda, const T* b, const int* ldb,            \
                const T* beta, T* c, const int* ldc);                                              \
  void x##trsm_(const char* side, const char* uplo, const char* transa, const char* diag,          \
                const int* m, const int* n, const T* alpha, const T* a, const int* lda, T* b,      \
                const int* ldb);                                                                   \
  void x##scal_(const int* n, const T* alpha, T* v, const int* incv);                              \
  void x##copy_(const int* n, const T* v, const int* incv, T* w, const int* incw);                 \
  void x##laset_(const char* uplo, const int* m, const int* n, const T* alpha, const T* beta,      \
                 T* a, const int* lda);                                                            \
  void x##larnv_(const int* idist, int* iseed, const int* n, T* v);                                \
  void x##lacpy_(const char* uplo, const int* m, const int* n, const T* a, const int* lda, T* b,   \
                 const int* ldb);                                                                  \
  void x##potrf_(const char* uplo, const int* n, T* a, const int* lda, int* info);                 \
  void p##x##trsm_(const char* side, const char* uplo, const char* transa, const char* diag,       \
                   const int* m, const int* n, const T* alpha, const T* a, const int* ia,          \
                   const int* ja, const int* desca, T* b, const int* ib, const int* jb,            \
                   const int* descb);                                                              \
  void p##x##potrf_(const char* uplo, const int* n, T* a, const int* ia, const int* ja,            \
                    const int* desca, int* info);

// The reduction of a Hermitian matrix of type T, over the real type R, to a tridiagonal one, and
// products with what it leaves.
#define VES_DECLARE_REDUCTION(reduce, multiply, T, R)                                              \
  void reduce(const char* uplo, const int* n, T* a, const int* lda, R* d, R* e, T* tau, T* work,   \
              const int* lwork, int* info);                                                        \
  void multiply(const char* side, const char* uplo, const char* trans, const int* m, const int* n, \
                const T* a, const int* lda, const T* tau, T* c, const int* ldc, T* work,           \
                const int* lwork, int* info);

// Routines of the real types.
#define VES_DECLARE_FOR_REAL(x, T)                                                                 \
  VES_DECLARE_REDUCTION(x##sytrd_, x##ormtr_, T, T)                                                \
  void x##stedc_(const char* compz, const int* n, T* d, T* e, T* z, const int* ldz, T* work,       \
                 const int* lwork, int* iwork, const int* liwork, int* info);                      \
  void x##syrk_(const char* uplo, const char* trans, const int* n, const int* k, const T* alpha,   \
                const T* a, const int* lda, const T* beta, T* c, const int* ldc);                  \
  T x##dot_(const int* n, const T* v, const int* incv, const T* w, const int* incw);               \
  void x##syevd_(const char* jobz, const char* uplo, const int* n, T* a, const int* lda, T* w,     \
                 T* work, const int* lwork, int* iwork, const int* liwork, int* info);             \
  void p##x##syevd_(const char* jobz, const char* uplo, const int* n, T* a, const int* ia,         \
                    const int* ja, const int* desca, T* w, T* z, const int* iz, const int* jz,     \
                    const int* descz, T* work, const int* lwork, int* iwork, const int* liwork,    \
                    int* info);

// Routines of the complex types C over the real type R.
#ifdef VES_COMPLEX_DOT_BY_ARGUMENT
#define VES_DECLARE_DOTC(x, C)                                                                     \
  void x##dotc_(C* result, const int* n, const C* v, const int* incv, const C* w, const int* incw);
#else
#define VES_DECLARE_DOTC(x, C)                                                                     \
  C x##dotc_(const int* n, const C* v, const int* incv, const C* w, const int* incw);
#endif
#define VES_DECLARE_FOR_COMPLEX(x, C, R)                                                           \
  VES_DECLARE_REDUCTION(x##hetrd_, x##unmtr_, C, R)                                                \
  VES_DECLARE_DOTC(x, C)                                                                           \
  void x##herk_(const char* uplo, const char* trans, const int* n, const int* k, const R* alpha,   \
                const C* a, const int* lda, const R* beta, C* c, const int* ldc);                  \
  void x##heevd_(const char* jobz, const char* uplo, const int* n, C* a, const int* lda, R* w,     \
                 C* work, const int* lwork, R* rwork, const int* lrwork, int* iwork,               \
                 const int* liwork, int* info);                                                    \
  void p##x##heevd_(const char* jobz, const char* uplo, const int* n, C* a, const int* ia,         \
                    const int* ja, const int* desca, R* w, C* z, const int* iz, const int* jz,     \
                    const int* descz, C* work, const int* lwork, R* rwork, const int* lrwork,      \
                    int* iwork, const int* liwork, int* info);

VES_DECLARE_FOR_ALL(d, double)
VES_DECLARE_FOR_ALL(s, float)
VES_DECLARE_FOR_ALL(z, std::complex<double>)
VES_DECLARE_FOR_ALL(c, std::complex<float>)
VES_DECLARE_FOR_REAL(d, double)
VES_DECLARE_FOR_REAL(s, float)
VES_DECLARE_FOR_COMPLEX(z, std::complex<double>, double)
VES_DECLARE_FOR_COMPLEX(c, std::complex<float>, float)

#undef VES_DECLARE_FOR_ALL
#undef VES_DECLARE_FOR_REAL
#undef VES_DECLARE_REDUCTION
#undef VES_DECLARE_DOTC
#undef VES_DECLARE_FOR_COMPLEX

void blacs_get_(const int* context, const int* what, int* value);
void blacs_set_(const int* context, const int* what, const int* value);
void blacs_gridmap_(int* context, const int* map, const int* ldmap, const int* nprow,
                    const int* npcol);
void blacs_gridinfo_(const int* context, int* nprow, int* npcol, int* myrow, int* mycol);
void blacs_gridexit_(const int* context);
int numroc_(const int* n, const int* nb, const int* iproc, const int* isrcproc, const int* nprocs);
void descinit_(int* desc, const int* m, const int* n, const int* mb, const int* nb,
               const int* irsrc, const int* icsrc, const int* context, const int* lld, int* info);

} // extern "C"

#ifdef __clang__
#pragma clang diagnostic pop
#endif

#endif
