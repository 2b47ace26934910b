/* Releases of OpenBLAS read one number past the end of y in zhemv of odd order, upper triangle, and
   of x in zgemv, as it stands, whatever their kernels. ScaLAPACK passes buffers of its own without
   slack, and under the address sanitizer these may lie at the end of what is mapped. Calls with
   such a vector of unit stride get a longer copy. */
#define _GNU_SOURCE
#include <complex.h>
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

typedef void Hemv(const char* uplo, const int* n, const void* alpha, const void* a, const int* lda,
                  const void* x, const int* incx, const void* beta, void* y, const int* incy);
typedef void Gemv(const char* trans, const int* m, const int* n, const void* alpha, const void* a,
                  const int* lda, const void* x, const int* incx, const void* beta, void* y,
                  const int* incy);
Hemv zhemv_, chemv_;
Gemv zgemv_, cgemv_;

/* n > 0 numbers and zeros behind them, or null; to be freed. */
static void* Padded(const void* vector, int n, int inc, size_t size) {
  char* const copy = n > 0 && inc == 1 ? malloc(((size_t)n + 8) * size) : NULL;
  if (copy == NULL) return NULL;
  memcpy(copy, vector, (size_t)n * size);
  memset(copy + (size_t)n * size, 0, 8 * size);
  return copy;
}

static void CallHemv(const char* name, size_t size, const char* uplo, const int* n,
                     const void* alpha, const void* a, const int* lda, const void* x,
                     const int* incx, const void* beta, void* y, const int* incy) {
  Hemv* call;
  *(void**)&call = dlsym(RTLD_NEXT, name);
  void* const padded = Padded(y, *n, *incy, size);
  call(uplo, n, alpha, a, lda, x, incx, beta, padded == NULL ? y : padded, incy);
  if (padded != NULL) memcpy(y, padded, (size_t)*n * size);
  free(padded);
}

static void CallGemv(const char* name, size_t size, const char* trans, const int* m, const int* n,
                     const void* alpha, const void* a, const int* lda, const void* x,
                     const int* incx, const void* beta, void* y, const int* incy) {
  Gemv* call;
  *(void**)&call = dlsym(RTLD_NEXT, name);
  void* const padded = Padded(x, *trans == 'N' ? *n : *m, *incx, size);
  call(trans, m, n, alpha, a, lda, padded == NULL ? x : padded, incx, beta, y, incy);
  free(padded);
}

void zhemv_(const char* uplo, const int* n, const void* alpha, const void* a, const int* lda,
            const void* x, const int* incx, const void* beta, void* y, const int* incy) {
  CallHemv("zhemv_", sizeof(double complex), uplo, n, alpha, a, lda, x, incx, beta, y, incy);
}

void chemv_(const char* uplo, const int* n, const void* alpha, const void* a, const int* lda,
            const void* x, const int* incx, const void* beta, void* y, const int* incy) {
  CallHemv("chemv_", sizeof(float complex), uplo, n, alpha, a, lda, x, incx, beta, y, incy);
}

void zgemv_(const char* trans, const int* m, const int* n, const void* alpha, const void* a,
            const int* lda, const void* x, const int* incx, const void* beta, void* y,
            const int* incy) {
  CallGemv("zgemv_", sizeof(double complex), trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

void cgemv_(const char* trans, const int* m, const int* n, const void* alpha, const void* a,
            const int* lda, const void* x, const int* incx, const void* beta, void* y,
            const int* incy) {
  CallGemv("cgemv_", sizeof(float complex), trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}
