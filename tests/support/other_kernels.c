// Loaded first, makes OpenBLAS one that does not know the processor: it takes the oldest kernels
// unless it is told others. LACKING_KERNELS, CRASHING_KERNELS: those which it lacks, or which are
// not for the processor; WRONG_PRODUCTS=KERNELS:ROUTINE: those which multiply wrongly.
#define _GNU_SOURCE
#include <complex.h>
#include <dlfcn.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static char* Find(const char* name) {
  const size_t length = strlen(name);
  for (char** each = environ; each != NULL && *each != NULL; ++each)
    if (strncmp(*each, name, length) == 0 && (*each)[length] == '=') return *each + length + 1;
  return NULL;
}

static int IsSet(const char* name, const char* text) {
  const char* found = Find(name);
  return found != NULL && strcmp(found, text) == 0;
}

// Of the library, which asks but once, when it is loaded.
char* getenv(const char* name) {
  static char oldest[] = "Prescott";
  char* found = Find(name);
  Dl_info caller;
  if (strcmp(name, "OPENBLAS_CORETYPE") != 0 || !dladdr(__builtin_return_address(0), &caller) ||
      strstr(caller.dli_fname, "openblas") == NULL)
    return found;
  if (found == NULL || *found == '\0' || IsSet("LACKING_KERNELS", found)) return oldest;
  if (IsSet("CRASHING_KERNELS", found)) raise(SIGILL);
  return found;
}

static int IsWrong(const char* routine) {
  char spoiled[64];
  char* (*inUse)(void) = (char* (*)(void))dlsym(RTLD_DEFAULT, "openblas_get_corename");
  snprintf(spoiled, sizeof spoiled, "%s:%s", inUse(), routine);
  return IsSet("WRONG_PRODUCTS", spoiled);
}

// The last entry of a product is wrong by one.
#define SPOILED_GEMM(name, T)                                                                      \
  void name(const char* transa, const char* transb, const int* m, const int* n, const int* k,      \
            const T* alpha, const T* a, const int* lda, const T* b, const int* ldb, const T* beta, \
            T* c, const int* ldc) {                                                                \
    typedef void Gemm(const char*, const char*, const int*, const int*, const int*, const T*,      \
                      const T*, const int*, const T*, const int*, const T*, T*, const int*);       \
    Gemm* gemm = (Gemm*)dlsym(RTLD_NEXT, #name);                                                   \
    gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);                            \
    if (IsWrong(#name)) c[*m - 1 + (*n - 1) * *ldc] += 1;                                          \
  }
SPOILED_GEMM(sgemm_, float)
SPOILED_GEMM(dgemm_, double)
SPOILED_GEMM(cgemm_, float complex)
SPOILED_GEMM(zgemm_, double complex)
