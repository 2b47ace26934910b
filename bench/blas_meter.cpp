#include "blas_meter.h"

#include <dlfcn.h>
#include <mpi.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <map>
#include <thread>
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
  int rowsA; ///< of the block that a product's left operand is a band of; else m

  auto Key() const { return std::tie(routine, isComplex, transa, transb, m, n, k, rowsA); }
  bool operator<(const Shape& other) const { return Key() < other.Key(); }

  bool IsTall(int order) const { return std::max(m, k) > order; }

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

/// Of the program, whose calls count; those of others are made beside them, on shares like theirs.
const auto mainThread = std::this_thread::get_id();

template <typename Call>
void Timed(const Shape& shape, const Call& call) {
  if (std::this_thread::get_id() != mainThread) return call();
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
    Timed({Routine::product, isComplex, *ta, *tb, *m, *n, *k, *ta == 'N' ? *lda : *m},             \
          [&] { routine(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc); });                 \
  }                                                                                                \
  extern "C" void herk(const char* uplo, const char* trans, const int* n, const int* k,            \
                       const Real* alpha, const T* a, const int* lda, const Real* beta, T* c,      \
                       const int* ldc) {                                                           \
    static const auto routine = Behind<decltype(&herk)>(#herk);                                    \
    Timed({Routine::gram, isComplex, *trans, *uplo, *n, *n, *k, *n},                               \
          [&] { routine(uplo, trans, n, k, alpha, a, lda, beta, c, ldc); });                       \
  }                                                                                                \
  extern "C" void x##trsm_(const char* side, const char* uplo, const char* trans,                  \
                           const char* diag, const int* m, const int* n, const T* alpha,           \
                           const T* a, const int* lda, T* b, const int* ldb) {                     \
    static const auto routine = Behind<decltype(&x##trsm_)>(#x "trsm_");                           \
    Timed({Routine::solve, isComplex, *side, *trans, *m, *n, *side == 'R' ? *n : *m, *m},          \
          [&] { routine(side, uplo, trans, diag, m, n, alpha, a, lda, b, ldb); });                 \
  }
VES_METER_BLAS(d, double, double, dsyrk_, false)
VES_METER_BLAS(z, Complex, double, zherk_, true)
#undef VES_METER_BLAS

namespace VesBench {

namespace {

// What an operand is taken from: several times the caches, so that it comes from memory as in a
// run.
constexpr std::size_t arenaBytes = std::size_t(256) << 20;

/// Memory that the operands of repeated calls are taken from in turn.
template <typename T>
class Arena {
public:
  T* Take(int rows, int cols) {
    const std::size_t n = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    if (used + n > values.size()) used = 0;
    if (n > values.size()) values.resize(n, T(0.5));
    used += n;
    return values.data() + (used - n);
  }

private:
  std::vector<T> values = std::vector<T>(arenaBytes / sizeof(T), T(0.5));
  std::size_t used = 0;
};

/// All bands of the tall left operand, one after the other, into the same small block.
/// \return seconds of one of them
template <typename T>
double RepeatProduct(const Shape& s, Arena<T>& arena) {
  const int rowsA = s.transa == 'N' ? std::max(s.rowsA, s.m) : s.k,
            colsA = s.transa == 'N' ? s.k : s.m;
  const int ldb = s.transb == 'N' ? s.k : s.n, colsB = s.transb == 'N' ? s.n : s.k;
  const int nBands = s.transa == 'N' ? rowsA / s.m : 1;
  const T one(1.0), zero(0.0);
  const T *a = arena.Take(rowsA, colsA), *b = arena.Take(ldb, colsB);
  T* c = arena.Take(s.m, s.n);
  const double start = MPI_Wtime();
  for (int i = 0; i < nBands; ++i, a += s.m)
    if constexpr (std::is_same_v<T, double>)
      dgemm_(&s.transa, &s.transb, &s.m, &s.n, &s.k, &one, a, &rowsA, b, &ldb, &zero, c, &s.m);
    else
      zgemm_(&s.transa, &s.transb, &s.m, &s.n, &s.k, &one, a, &rowsA, b, &ldb, &zero, c, &s.m);
  return (MPI_Wtime() - start) / nBands;
}

template <typename T>
double RepeatGram(const Shape& s, Arena<T>& arena) {
  const double one = 1.0, zero = 0.0;
  const T* a = arena.Take(s.k, s.n);
  T* c = arena.Take(s.n, s.n);
  const double start = MPI_Wtime();
  if constexpr (std::is_same_v<T, double>)
    dsyrk_(&s.transb, &s.transa, &s.n, &s.k, &one, a, &s.k, &zero, c, &s.n);
  else
    zherk_(&s.transb, &s.transa, &s.n, &s.k, &one, a, &s.k, &zero, c, &s.n);
  return MPI_Wtime() - start;
}

/// With the unit triangle of zeros: the same work, and no number that grows.
template <typename T>
double RepeatSolve(const Shape& s, Arena<T>& arena) {
  const T one(1.0);
  const std::vector<T> unit(static_cast<std::size_t>(s.k) * static_cast<std::size_t>(s.k));
  T* a = arena.Take(s.m, s.n);
  const double start = MPI_Wtime();
  if constexpr (std::is_same_v<T, double>)
    dtrsm_(&s.transa, "U", &s.transb, "U", &s.m, &s.n, &one, unit.data(), &s.k, a, &s.m);
  else
    ztrsm_(&s.transa, "U", &s.transb, "U", &s.m, &s.n, &one, unit.data(), &s.k, a, &s.m);
  return MPI_Wtime() - start;
}

template <typename T>
double Repeat(const Shape& shape, Arena<T>& arena) {
  switch (shape.routine) {
  case Routine::product:
    return RepeatProduct(shape, arena);
  case Routine::gram:
    return RepeatGram(shape, arena);
  case Routine::solve:
    break;
  }
  return RepeatSolve(shape, arena);
}

} // namespace

void ResetBlasMeter() {
  Counts().clear();
}

double TallFlops(int order) {
  double flops = 0.0;
  for (const auto& [shape, count] : Counts())
    if (shape.IsTall(order)) flops += static_cast<double>(count.calls) * shape.Flops();
  return flops;
}

BlasCost TallProducts(int order) {
  const std::map<Shape, Count> counted = Counts();
  BlasCost cost;
  Arena<double> arena;
  Arena<Complex> complexArena;
  for (const auto& [shape, count] : counted) {
    if (!shape.IsTall(order)) continue;
    double best = 1e300;
    for (int i = 0; i < 3; ++i)
      best = std::min(best, shape.isComplex ? Repeat(shape, complexArena) : Repeat(shape, arena));
    const auto calls = static_cast<double>(count.calls);
    cost.seconds += count.seconds;
    cost.alone += calls * best;
    cost.flops += calls * shape.Flops();
  }
  return cost;
}

} // namespace VesBench
