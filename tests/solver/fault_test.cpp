// Every solver on faults from outside: dense factorizations that fail at any of their calls, and
// operators that return nonsense now and then or are not what they should be. Each run ends, claims
// nothing that is not true, and all processes and replicas hold the same outcome.
#include "eigensolver/scalapack_diag.h"
#include "interface/solver_base.h"
#include "kernel/fortran.h"
#include "support/gallery.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

using namespace VesTest;

namespace {

enum class Routine { none, cholesky, eigen, gridEigen };

/// What goes wrong in a dense routine, and at which of its calls on this process.
struct DenseFault {
  Routine routine = Routine::none;
  int atCall = 1;
  bool lasts = false;        ///< all later calls fail, too
  bool onFirstOnly = false;  ///< only process 0 of the job sees it
  bool keepsLeading = false; ///< half of the columns have a factor; noise behind, not NaN
  int calls = 0, hits = 0;

  bool Strikes(Routine called) {
    if (called != routine) return false;
    ++calls;
    const bool strikes =
        (lasts ? calls >= atCall : calls == atCall) && !(onFirstOnly && RankIn(world) != 0);
    hits += strikes ? 1 : 0;
    return strikes;
  }
};

DenseFault fault;

template <typename Function>
Function* Next(const char* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) std::abort();
  return reinterpret_cast<Function*>(found);
}

/// What a failed routine leaves in a block from its column first on.
template <typename Scalar>
void Spoil(Scalar* a, int first, int nRows, int nCols, int ld) {
  const double rest = fault.keepsLeading ? -1e3 : notANumber;
  for (int j = first; j < nCols; ++j)
    for (int i = 0; i < nRows; ++i)
      a[i + static_cast<std::ptrdiff_t>(j) * ld] = Number<Scalar>(rest);
}

template <typename Scalar>
void SpoilFactor(int n, Scalar* a, int ld, int* info) {
  if (n == 0 || !fault.Strikes(Routine::cholesky)) return;
  const int leading = fault.keepsLeading ? n / 2 : 0;
  Spoil(a, leading, n, n, ld);
  *info = leading + 1;
}

/// Leaves out queries of the workspace. Of a matrix on the grid only the first local entry is
/// spoiled, which every process of the grid has.
template <typename Scalar>
void SpoilEvd(Routine called, int lwork, int n, Scalar* a, int cols, int ld,
              Ves::RealType<Scalar>* w, int* info) {
  if (lwork == -1 || n == 0 || !fault.Strikes(called)) return;
  Spoil(a, 0, cols, cols, ld);
  Spoil(w, 0, n, 1, n);
  *info = n;
}

} // namespace

// In the place of those of the provider: the library finds the symbols of the program first.
extern "C" {
#define VES_NEXT(name) Next<decltype(name)>(#name)
#define VES_FAULTY_FACTOR(x, T)                                                                    \
  void x##potrf_(const char* uplo, const int* n, T* a, const int* lda, int* info) {                \
    VES_NEXT(x##potrf_)(uplo, n, a, lda, info);                                                    \
    SpoilFactor(*n, a, *lda, info);                                                                \
  }
#define VES_FAULTY_FOR_REAL(x, T)                                                                  \
  VES_FAULTY_FACTOR(x, T)                                                                          \
  void x##syevd_(const char* jobz, const char* uplo, const int* n, T* a, const int* lda, T* w,     \
                 T* work, const int* lwork, int* iwork, const int* liwork, int* info) {            \
    VES_NEXT(x##syevd_)(jobz, uplo, n, a, lda, w, work, lwork, iwork, liwork, info);               \
    SpoilEvd(Routine::eigen, *lwork, *n, a, *n, *lda, w, info);                                    \
  }                                                                                                \
  void p##x##syevd_(const char* jobz, const char* uplo, const int* n, T* a, const int* ia,         \
                    const int* ja, const int* desca, T* w, T* z, const int* iz, const int* jz,     \
                    const int* descz, T* work, const int* lwork, int* iwork, const int* liwork,    \
                    int* info) {                                                                   \
    VES_NEXT(p##x##syevd_)                                                                         \
    (jobz, uplo, n, a, ia, ja, desca, w, z, iz, jz, descz, work, lwork, iwork, liwork, info);      \
    SpoilEvd(Routine::gridEigen, *lwork, *n, z, 1, 1, w, info);                                    \
  }
#define VES_FAULTY_FOR_COMPLEX(x, C, R)                                                            \
  VES_FAULTY_FACTOR(x, C)                                                                          \
  void x##heevd_(const char* jobz, const char* uplo, const int* n, C* a, const int* lda, R* w,     \
                 C* work, const int* lwork, R* rwork, const int* lrwork, int* iwork,               \
                 const int* liwork, int* info) {                                                   \
    VES_NEXT(x##heevd_)                                                                            \
    (jobz, uplo, n, a, lda, w, work, lwork, rwork, lrwork, iwork, liwork, info);                   \
    SpoilEvd(Routine::eigen, *lwork, *n, a, *n, *lda, w, info);                                    \
  }                                                                                                \
  void p##x##heevd_(const char* jobz, const char* uplo, const int* n, C* a, const int* ia,         \
                    const int* ja, const int* desca, R* w, C* z, const int* iz, const int* jz,     \
                    const int* descz, C* work, const int* lwork, R* rwork, const int* lrwork,      \
                    int* iwork, const int* liwork, int* info) {                                    \
    VES_NEXT(p##x##heevd_)                                                                         \
    (jobz, uplo, n, a, ia, ja, desca, w, z, iz, jz, descz, work, lwork, rwork, lrwork, iwork,      \
     liwork, info);                                                                                \
    SpoilEvd(Routine::gridEigen, *lwork, *n, z, 1, 1, w, info);                                    \
  }
VES_FAULTY_FOR_REAL(d, double)
VES_FAULTY_FOR_REAL(s, float)
VES_FAULTY_FOR_COMPLEX(z, std::complex<double>, double)
VES_FAULTY_FOR_COMPLEX(c, std::complex<float>, float)
#undef VES_NEXT
#undef VES_FAULTY_FACTOR
#undef VES_FAULTY_FOR_REAL
#undef VES_FAULTY_FOR_COMPLEX
}

namespace {

long judged = 0; ///< faulty runs since the last report

/// What holds after any run, whatever it met. A run that broke off may hand back vectors without
/// values.
template <typename Scalar>
void ExpectTrueClaims(Pairs<Scalar>& p, const Problem<Scalar>& on, double threshold) {
  ++judged;
  EXPECT_EQ(p.code, VES_GOOD);
  EXPECT_NE(p.reason, VES_REASON_NONE);
  EXPECT_EQ(p.reason == VES_REASON_CONVERGED, p.nConv == p.k);
  EXPECT_TRUE(p.nConv >= 0 && p.nConv <= p.k) << p.nConv;

  Pairs<Scalar> claimed(p);
  claimed.k = std::clamp(p.nConv, 0, p.k);
  const std::vector<double> residuals = ResidualNorms(claimed, on);
  for (int j = 0; j < claimed.k; ++j)
    EXPECT_LE(residuals.data()[j], 2 * threshold) << "pair " << j;
  EXPECT_LE(OrthogonalityError(claimed, on), std::sqrt(eps<Scalar>)) << p.nConv << " pairs";
  for (int j = 0; j < p.k; ++j) {
    const Scalar value = p.D.data()[j];
    const bool isKnown = Ves::IsFinite(value);
    EXPECT_TRUE(isKnown || p.Value(j) == infinite) << value;
    for (int i = 0; i < p.rows.local; ++i) {
      const Scalar x = p.Column(j)[i];
      EXPECT_TRUE(isKnown || p.reason == VES_REASON_NONFINITE ? Ves::IsFinite(x) : x == Scalar{})
          << "pair " << j << " " << value << " " << x;
    }
  }
  EXPECT_TRUE(IsSameOver(world, Ints{p.nConv, p.iter, p.reason}));
  EXPECT_TRUE(IsSameOver(world, p.D)) << "values differ";
}

/// With sub-blocks that several calls reach.
template <typename Scalar>
Settings FaultSettings(VesSolverType type) {
  Settings s{type, 5, ByPrecision<Scalar>(1e-5, 2e-3), 100};
  s.width = 3;
  return s;
}

template <typename Scalar>
SolverHandle FaultSolver(const Settings& s, bool generalized) {
  SolverHandle solver = MakeSolver<Scalar>(s, generalized);
  if (s.solver == VES_PPCG) VesSolverSetPPCGRRPeriod(solver.get(), 2); // several full steps
  return solver;
}

template <typename Scalar>
class FaultTest : public testing::Test {
protected:
  static void TearDownTestSuite() {
    if (RankIn(world) == 0) std::printf("%ld faulty runs ended and were judged\n", judged);
    judged = 0;
  }
};
TYPED_TEST_SUITE(FaultTest, AllScalars);

const struct FaultySite {
  const char* reason;
  Routine routine;
  VesOrthogonalizerType orthogonalizer;
  int gridFrom;
} sites[] = {
    {"the factors of Gram matrices", Routine::cholesky, VES_CHOLESKY_QR, 300},
    {"Ritz values", Routine::eigen, VES_CHOLESKY_QR, 300},
    {"Ritz values and Gram matrices", Routine::eigen, VES_SVD_QR, 300},
    {"Ritz values on the grid", Routine::gridEigen, VES_CHOLESKY_QR, 2},
};

/// Breaks each of the first calls in each way, on one solver. \return runs that met their fault
template <typename Scalar>
int FailEveryCall(Problem<Scalar>& on, Pairs<Scalar>& p, VesSolver solver, const FaultySite& site,
                  bool isReplicated) {
  const struct {
    const char* reason;
    bool lasts, onFirstOnly, keepsLeading;
  } kinds[] = {
      {"nothing known, NaN left, on all that make the call", false, false, false},
      {"the same on process 0 only", false, true, false},
      {"half of the columns factorized, noise behind", false, false, true},
      {"broken from then on", true, false, false},
  };
  int hits = 0;
  for (const auto& kind : kinds) {
    // Beside the grid only the processes 0 of replicas make a call at once.
    const bool isShared = isReplicated || site.routine == Routine::gridEigen;
    if (kind.onFirstOnly ? !isShared : isReplicated) continue;
    for (int call = 1; call <= 12; ++call) {
      SCOPED_TRACE(testing::Message() << kind.reason << ", call " << call);
      fault = {site.routine, call, kind.lasts, kind.onFirstOnly, kind.keepsLeading};
      p.FillRandom();
      on.Run(p, solver);
      hits += fault.hits > 0 ? 1 : 0;
      fault = {};
      ExpectTrueClaims(p, on, solver->threshold);
    }
  }
  return hits;
}

/// A solver whose runs have failed in all these ways still makes its first run bit for bit.
TYPED_TEST(FaultTest, DenseRoutinesFail) {
  using Scalar = TypeParam;
  int hits = 0;
  for (const bool isReplicated : {false, true}) {
    if (isReplicated && SizeOf(world) % 2 != 0) continue;
    const int rank = RankIn(world), half = SizeOf(world) / (isReplicated ? 2 : 1);
    const Part comm(rank / half), second(rank % half);
    for (const bool generalized : {false, true}) {
      if (SizeOf(world) > 1 && generalized != isReplicated) continue;
      Problem<Scalar> on = OnBox<Scalar>({7, 8}, generalized, false, Deal::even, comm);
      for (const auto type : allSolvers)
        for (const auto& site : sites) {
          Settings s = FaultSettings<Scalar>(type);
          s.orthogonalizer = site.orthogonalizer;
          SCOPED_TRACE(testing::Message() << s << ", replicas " << isReplicated << ", B "
                                          << generalized << ", " << site.reason);
          const SolverHandle solver = FaultSolver<Scalar>(s, generalized);
          dynamic_cast<Ves::ScaLapackDiag<Scalar>&>(*solver->DenseEigenSolver).threshold =
              site.gridFrom;
          Pairs<Scalar> p(on.rows, s.nBands);
          p.second = second;
          p.FillRandom();
          on.Run(p, solver.get());
          const std::vector<Scalar> soundX = p.X, soundD = p.D;
          hits += FailEveryCall(on, p, solver.get(), site, isReplicated);
          p.FillRandom();
          on.Run(p, solver.get());
          EXPECT_EQ(p.nConv, p.k);
          EXPECT_TRUE(p.X == soundX && p.D == soundD);
        }
    }
  }
  if (RankIn(world) == 0) { // which makes every call
    EXPECT_GT(hits, 450);
  }
}

/// One number of one process is wrong, once or from then on. A run that the fault does not end
/// converges on what is true.
TYPED_TEST(FaultTest, OperatorsReturnNonsense) {
  using Scalar = TypeParam;
  const auto largest = static_cast<double>(std::numeric_limits<Ves::RealType<Scalar>>::max());
  const struct {
    const char* reason;
    double value;
    bool lasts;
  } kinds[] = {
      {"NaN once", notANumber, false},
      {"NaN from then on", notANumber, true},
      {"infinity once", infinite, false},
      {"minus infinity once", -infinite, false},
      {"a number whose square overflows, once", 1e-8 * largest, false},
      {"a number whose square overflows, from then on", 1e-8 * largest, true},
  };
  Problem<Scalar> on = OnBox<Scalar>({7, 8}, true, true, Deal::even);
  const bool isCulprit = on.rows.first + on.rows.local == on.rows.n;
  for (const auto type : allSolvers)
    for (auto* const op : {&on.A, on.B.get(), on.T.get()})
      for (const auto& kind : kinds)
        for (const int call : {1, 2, 5}) {
          const char culprit = op == &on.A ? 'A' : op == on.B.get() ? 'B' : 'T';
          // A B that stays finite but wrong is another B, and so are the pairs.
          if (culprit == 'B' && kind.lasts && std::isfinite(kind.value)) continue;
          Settings s = FaultSettings<Scalar>(type);
          if (call == 2) s.orthogonalizer = VES_SVD_QR;
          // Values that stand still because T returns no numbers have not converged.
          if (culprit == 'T' && call == 5 && std::isnan(kind.value)) s.detector = VES_EIGENVALUES;
          SCOPED_TRACE(testing::Message()
                       << s << ", " << culprit << ", " << kind.reason << ", call " << call);
          int calls = 0;
          op->spoil = [&](Scalar* y, int nRows, int nCols, int ld) {
            ++calls;
            if (isCulprit && (kind.lasts ? calls >= call : calls == call))
              y[nRows / 2 + (nCols / 2) * ld] = Number<Scalar>(kind.value);
          };
          Pairs<Scalar> p = SolveBy(FaultSolver<Scalar>(s, true).get(), on, s.nBands);
          op->spoil = nullptr;
          // A step from a residual r lowers the value by r^2 / ||A|| or more.
          const bool isOfValues = s.detector == VES_EIGENVALUES;
          ExpectTrueClaims(p, on, isOfValues ? std::sqrt(s.threshold * on.normA) : s.threshold);
          EXPECT_TRUE(std::isfinite(kind.value) || p.nConv == p.k ||
                      p.reason == VES_REASON_NONFINITE)
              << VesReasonString(p.reason);
          EXPECT_FALSE(std::isnan(kind.value) && kind.lasts && p.nConv == p.k);
          // Of a batch that was not reached the guess comes back.
          if (culprit == 'A' && call == 5 && type != VES_LOBPCG_BATCH) {
            EXPECT_LE(OrthogonalityError(p, on), 2000 * eps<Scalar>);
          }
        }
}

/// Operators that are finite and Hermitian, but not positive definite as they should be.
TYPED_TEST(FaultTest, OperatorsAreNotDefinite) {
  using Scalar = TypeParam;
  const auto one = [](int) { return 1.0; };
  const struct {
    const char* reason;
    std::function<double(int)> b, t;
    bool converges = false;
  } cases[] = {
      {"T spans the same space with the other sign", one, [](int) { return -1.0; }, true},
      {"T indefinite", one, [](int i) { return i % 3 == 0 ? -2.0 : 1.0; }},
      {"T singular", one, [](int i) { return i % 4 == 0 ? 0.0 : 1.0; }},
      {"T tiny: the scale of the residuals does not matter", one,
       [](int) { return ByPrecision<Scalar>(1e-20, 1e-12); }, true},
      {"B indefinite", [](int i) { return i % 5 == 0 ? -1.0 : 1.0; }, one},
      {"B with one negative entry", [](int i) { return i == 20 ? -1.0 : 1.0; }, one},
      {"B negative definite", [](int) { return -1.0; }, one},
      {"B singular", [](int i) { return i % 5 == 0 ? 0.0 : 1.0; }, one},
      {"B zero", [](int) { return 0.0; }, one},
  };
  const Box box{{7, 8}};
  const auto laplacian = [&](int i) { return Phased<Scalar>(i, box.Laplacian(i)); };
  for (const auto& c : cases) {
    Problem<Scalar> on(box.Eigenvalues(false), 8.0, laplacian, DiagonalRows<Scalar>(c.b),
                       DiagonalRows<Scalar>(c.t), Deal::growing);
    for (const auto type : allSolvers)
      for (const auto orthogonalizer : allOrthogonalizers)
        for (const auto detector : {VES_RESIDUALS, VES_RELATIVE_RESIDUALS}) {
          Settings s = FaultSettings<Scalar>(type);
          s.orthogonalizer = orthogonalizer;
          s.detector = detector;
          SCOPED_TRACE(testing::Message() << s << ", " << c.reason);
          Pairs<Scalar> p = SolveBy(FaultSolver<Scalar>(s, true).get(), on, s.nBands);
          double scale = 1.0; // of the threshold, whose unit is the value in the relative test
          for (int j = 0; detector == VES_RELATIVE_RESIDUALS && j < p.nConv; ++j)
            scale = std::max(scale, std::abs(p.Value(j)));
          ExpectTrueClaims(p, on, scale * s.threshold);
          EXPECT_TRUE(!c.converges || p.nConv == p.k) << p.nConv;
        }
  }
}

} // namespace
