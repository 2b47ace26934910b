// The memory that a run takes beside the caller's blocks, seen from below: the allocator of the
// whole process is counted, so that workspaces of LAPACK and ScaLAPACK are part of it.
#include "support/correctness.h"
#include "support/dense_kinds.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <malloc.h>

namespace {

std::atomic<long long> inUse{0}, peak{0}, largeCount{0};
std::atomic<std::size_t> largeFrom{~std::size_t{0}};

void* Counted(void* block, std::size_t asked) {
  if (block == nullptr) return block;
  const long long now = inUse += static_cast<long long>(malloc_usable_size(block));
  for (long long top = peak; now > top && !peak.compare_exchange_weak(top, now);) {
  }
  if (asked >= largeFrom) ++largeCount;
  return block;
}

void Uncount(void* block) {
  if (block != nullptr) inUse -= static_cast<long long>(malloc_usable_size(block));
}

} // namespace

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) noexcept {
  return Counted(__libc_malloc(size), size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  return Counted(__libc_calloc(count, size), count * size);
}
void* realloc(void* block, std::size_t size) noexcept {
  Uncount(block);
  return Counted(__libc_realloc(block, size), size);
}
void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return Counted(__libc_memalign(alignment, size), size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}
int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept {
  void* const block = memalign(alignment, size);
  if (block == nullptr) return ENOMEM;
  *out = block;
  return 0;
}
void free(void* block) noexcept {
  Uncount(block);
  __libc_free(block);
}
}

using namespace VesTest;

namespace {

struct Case {
  const char* reason;
  int n, k, batchLimit;
  bool hasAdditions = false;
};

template <typename Scalar>
ves::Operator<Scalar> Diagonal(double factor) {
  return ves::Operator<Scalar>([=](auto x, auto y) {
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < x.rows(); ++i)
        y(i, j) = Number<Scalar>(1.0 + factor * i) * x(i, j);
  });
}

struct Use {
  long long peak = 0, forecast = 0, tallBlocks = 0;
};

/// What a run takes beside its blocks, and how many allocations hold at least a column of them.
template <typename Scalar>
Use UseOf(const Case& c, const Settings& settings, bool generalized) {
  const auto A = Diagonal<Scalar>(1e-3), B = Diagonal<Scalar>(1e-5);
  std::vector<Scalar> x, d(static_cast<std::size_t>(c.k));
  for (int i = 0; i < c.n * c.k; ++i)
    x.push_back(HashedNumber<Scalar>(i, 0));
  const VectorHandle X = MakeVector(world, c.n, c.k, x.data(), c.n),
                     D = MakeVector(world, c.k, 1, d.data(), c.k);
  const SolverHandle solver = MakeSolver<Scalar>(settings, generalized);
  if (settings.solver == VES_LOBPCG_BATCH) VesSolverSetBatchLimit(solver.get(), c.batchLimit);
  std::size_t forecast = 0;
  EXPECT_EQ(VesSolverMemory(solver.get(), c.n, c.k, generalized, &forecast), VES_GOOD);

  const long long before = inUse, countBefore = largeCount;
  peak = before;
  largeFrom = static_cast<std::size_t>(c.n) * sizeof(Scalar);
  const VesReturnCode code =
      VesRunSolver(solver.get(), A.handle(), B.handle(), nullptr, X.get(), D.get());
  largeFrom = ~std::size_t{0};
  const Use use{peak - before, static_cast<long long>(forecast), largeCount - countBefore};
  EXPECT_EQ(code, VES_GOOD);
  VesSolverReason reason = VES_REASON_NONE;
  VesGetSolverReason(solver.get(), &reason);
  EXPECT_EQ(reason, VES_REASON_ITERATIONS);
  return use;
}

/// Calls check(settings, generalized) for every solver, problem and orthogonalizer.
template <typename Check>
void ForAllRuns(int maxIter, Check check) {
  for (const VesSolverType solver : allSolvers)
    for (const bool generalized : {false, true})
      for (const VesOrthogonalizerType qr : allOrthogonalizers) {
        Settings s{solver, 0, 1e-12, maxIter};
        s.orthogonalizer = qr;
        SCOPED_TRACE(testing::Message() << s << ", generalized " << generalized);
        check(s, generalized);
      }
}

template <typename Scalar>
class Memory : public testing::Test {};
using DoubleScalars = testing::Types<double, std::complex<double>>;
TYPED_TEST_SUITE(Memory, DoubleScalars);

TYPED_TEST(Memory, ForecastIsWithinFivePercent) {
  const Case cases[] = {{"tall blocks outweigh the rest", 6000, 40, 256},
                        {"a small batch", 6000, 40, 16},
                        {"a batch that leaves most of the guess to the last pass", 6000, 40, 4},
                        {"dense problems of order 360 on the process grid", 1500, 120, 256},
                        {"inner steps and two precisions", 6000, 40, 256, true}};
  // Lets MPI and BLAS take what they keep for good.
  UseOf<TypeParam>({"", 1500, 120, 256}, {VES_LOBPCG, 120, 1e-6, 2}, false);
  for (const Case& c : cases)
    ForAllRuns(4, [&](Settings s, bool generalized) {
      SCOPED_TRACE(c.reason);
      s.hasAdditions = c.hasAdditions;
      if (c.batchLimit < c.k && (s.solver != VES_LOBPCG_BATCH || generalized)) return;
      for (const auto evd : otherKinds) {
        s.evd = evd;
        const Use use = UseOf<TypeParam>(c, s, generalized);
        const auto forecast = static_cast<double>(use.forecast),
                   used = static_cast<double>(use.peak);
        EXPECT_LE(used, 1.05 * forecast) << evd;
        // For the lowest vectors alone LAPACK takes less than for all, which some steps ask for, and
        // what several processes deal out among them the forecast counts whole.
        const bool isLowest = evd == VES_LAPACK_LOWEST_DIAG;
        if (isLowest || SizeOf(world) == 1) {
          EXPECT_GE(used, (isLowest ? 0.9 : 0.95) * forecast) << evd;
        }
        if (c.k < 100) break; // dense problems are small beside tall blocks
      }
    });
}

// Few pairs, so that no dense workspace is as large as a column.
TYPED_TEST(Memory, NothingTallIsAllocatedInTheIteration) {
  const Case c{"", 20000, 8, 4};
  ForAllRuns(3, [&](Settings s, bool generalized) {
    const Use brief = UseOf<TypeParam>(c, s, generalized);
    s.maxIter = 8;
    const Use longer = UseOf<TypeParam>(c, s, generalized);
    EXPECT_LE(longer.peak, brief.peak + c.n); // small matrices grow with the basis
    EXPECT_GE(brief.tallBlocks, 5);
    if (s.orthogonalizer == VES_CHOLESKY_QR) { // the other one takes a scratch block in each call
      EXPECT_EQ(brief.tallBlocks, longer.tallBlocks);
    }
  });
}

} // namespace
