#include "blas_meter.h"

#include <dlfcn.h>
#include <mpi.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <map>
#include <tuple>
#include <vector>

namespace {

using Complex = std::complex<double>;

enum class Routine { product, gram, solve };

struct Shape {
  Routine routine;
  bool isComplex;
  char transa, transb;
  int m, n, k;

  auto Key() const { return std::tie(routine, isComplex, transa, transb, m, n, k); }
  bool operator<(const Shape& other) const { return Key() < other.Key(); }

  double Flops() const {
    const double products = 1.0 * m * n * k;
    return (isComplex ? 8 : 2) * (routine == Routine::product ? products : products / 2);
  }
};

struct Count {
  long calls = 0;
  double seconds = 0.0;
};

std::map<Shape, Count>& Counts() {
  static std::map<Shape, Count> counts;
  return counts;
}

/// The routine that this program stands in front of.
template <typename Function>
Function Behind(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <typename Call>
void Timed(const Shape& shape, const Call& call) {
  const double start = MPI_Wtime();
  call();
  Count& count = Counts()[shape];
  ++count.calls;
  count.seconds += MPI_Wtime() - start;
}

} // namespace

#define VES_METER_BLAS(x, T, Real, herk, isComplex)                                                \
  extern "C" void x##gemm_(const char* ta, const char* tb, const int* m, const int* n,             \
                           const int* k, const T* alpha, const T* a, const int* lda, const T* b,   \
                           const int* ldb, const T* beta, T* c, const int* ldc) {                  \
    static const auto routine = Behind<decltype(&x##gemm_)>(#x "gemm_");                           \
    Timed({Routine::product, isComplex, *ta, *tb, *m, *n, *k},                                     \
          [&] { routine(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc); });                 \
  }                                                                                                \
  extern "C" void herk(const char* uplo, const char* trans, const int* n, const int* k,            \
                       const Real* alpha, const T* a, const int* lda, const Real* beta, T* c,      \
                       const int* ldc) {                                                           \
    static const auto routine = Behind<decltype(&herk)>(#herk);                                    \
    Timed({Routine::gram, isComplex, *trans, *uplo, *n, *n, *k},                                   \
          [&] { routine(uplo, trans, n, k, alpha, a, lda, beta, c, ldc); });                       \
  }                                                                                                \
  extern "C" void x##trsm_(const char* side, const char* uplo, const char* trans,                  \
                           const char* diag, const int* m, const int* n, const T* alpha,           \
                           const T* a, const int* lda, T* b, const int* ldb) {                     \
    static const auto routine = Behind<decltype(&x##trsm_)>(#x "trsm_");                           \
    Timed({Routine::solve, isComplex, *side, *trans, *m, *n, *side == 'R' ? *n : *m},              \
          [&] { routine(side, uplo, trans, diag, m, n, alpha, a, lda, b, ldb); });                 \
  }
VES_METER_BLAS(d, double, double, dsyrk_, false)
VES_METER_BLAS(z, Complex, double, zherk_, true)
#undef VES_METER_BLAS

namespace VesBench {

namespace {

/// One call of the shape on operands of its own.
template <typename T>
void Repeat(const Shape& s, std::vector<T>& a, std::vector<T>& b, std::vector<T>& c) {
  const auto size = [](int rows, int cols) {
    return static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols + 1);
  };
  const auto grow = [](std::vector<T>& v, std::size_t n) {
    if (v.size() < n) v.resize(n, T(0.5));
  };
  const T one(1.0), zero(0.0);
  const double realOne = 1.0, realZero = 0.0;
  if (s.routine == Routine::product) {
    const int lda = s.transa == 'N' ? s.m : s.k, ldb = s.transb == 'N' ? s.k : s.n;
    grow(a, size(s.m, s.k) + size(s.k, s.m));
    grow(b, size(s.k, s.n) + size(s.n, s.k));
    grow(c, size(s.m, s.n));
    if constexpr (std::is_same_v<T, double>)
      dgemm_(&s.transa, &s.transb, &s.m, &s.n, &s.k, &one, a.data(), &lda, b.data(), &ldb, &zero,
             c.data(), &s.m);
    else
      zgemm_(&s.transa, &s.transb, &s.m, &s.n, &s.k, &one, a.data(), &lda, b.data(), &ldb, &zero,
             c.data(), &s.m);
  } else if (s.routine == Routine::gram) {
    grow(a, size(s.k, s.n));
    grow(c, size(s.n, s.n));
    if constexpr (std::is_same_v<T, double>)
      dsyrk_(&s.transb, &s.transa, &s.n, &s.k, &realOne, a.data(), &s.k, &realZero, c.data(), &s.n);
    else
      zherk_(&s.transb, &s.transa, &s.n, &s.k, &realOne, a.data(), &s.k, &realZero, c.data(), &s.n);
  } else { // the unit triangle of zeros: the same work, and no number that grows
    std::vector<T> unit(size(s.k, s.k));
    grow(a, size(s.m, s.n));
    if constexpr (std::is_same_v<T, double>)
      dtrsm_(&s.transa, "U", &s.transb, "U", &s.m, &s.n, &one, unit.data(), &s.k, a.data(), &s.m);
    else
      ztrsm_(&s.transa, "U", &s.transb, "U", &s.m, &s.n, &one, unit.data(), &s.k, a.data(), &s.m);
  }
}

} // namespace

void ResetBlasMeter() {
  Counts().clear();
}

BlasCost TallProducts(int order) {
  const std::map<Shape, Count> counted = Counts();
  BlasCost cost;
  std::vector<double> a, b, c;
  std::vector<Complex> za, zb, zc;
  for (const auto& [shape, count] : counted) {
    if (std::max(shape.m, shape.k) <= order) continue;
    double best = 1e300;
    for (int i = 0; i < 3; ++i) {
      const double start = MPI_Wtime();
      if (shape.isComplex)
        Repeat(shape, za, zb, zc);
      else
        Repeat(shape, a, b, c);
      best = std::min(best, MPI_Wtime() - start);
    }
    const auto calls = static_cast<double>(count.calls);
    cost.seconds += count.seconds;
    cost.alone += calls * best;
    cost.flops += calls * shape.Flops();
  }
  return cost;
}

} // namespace VesBench
