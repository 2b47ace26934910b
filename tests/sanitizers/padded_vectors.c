/* Releases of OpenBLAS read one number past the end of y in zhemv of odd order, upper triangle,
   whatever its kernels. ScaLAPACK passes buffers of its own without slack, and under the address
   sanitizer these may lie at the end of what is mapped. Calls with y of unit stride get a longer
   copy. */
#define _GNU_SOURCE
#include <complex.h>
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

typedef void Hemv(const char* uplo, const int* n, const void* alpha, const void* a, const int* lda,
                  const void* x, const int* incx, const void* beta, void* y, const int* incy);
Hemv zhemv_, chemv_;

static void CallPadded(const char* name, size_t size, const char* uplo, const int* n,
                       const void* alpha, const void* a, const int* lda, const void* x,
                       const int* incx, const void* beta, void* y, const int* incy) {
  Hemv* call;
  *(void**)&call = dlsym(RTLD_NEXT, name);
  char* const padded = *n > 0 && *incy == 1 ? malloc(((size_t)*n + 8) * size) : NULL;
  if (padded == NULL) {
    call(uplo, n, alpha, a, lda, x, incx, beta, y, incy);
    return;
  }
  memcpy(padded, y, (size_t)*n * size);
  memset(padded + (size_t)*n * size, 0, 8 * size);
  call(uplo, n, alpha, a, lda, x, incx, beta, padded, incy);
  memcpy(y, padded, (size_t)*n * size);
  free(padded);
}

void zhemv_(const char* uplo, const int* n, const void* alpha, const void* a, const int* lda,
            const void* x, const int* incx, const void* beta, void* y, const int* incy) {
  CallPadded("zhemv_", sizeof(double complex), uplo, n, alpha, a, lda, x, incx, beta, y, incy);
}

void chemv_(const char* uplo, const int* n, const void* alpha, const void* a, const int* lda,
            const void* x, const int* incx, const void* beta, void* y, const int* incy) {
  CallPadded("chemv_", sizeof(float complex), uplo, n, alpha, a, lda, x, incx, beta, y, incy);
}
