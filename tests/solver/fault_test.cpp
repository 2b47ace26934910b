// Every solver on faults from outside: dense factorizations that fail at any of their calls, and
// operators that return nonsense now and then or are not what they should be. Each run ends, claims
// nothing that is not true, and all processes and replicas hold the same outcome.
#include "eigensolver/scalapack_diag.h"
#include "interface/solver_base.h"
#include "kernel/fortran.h"
#include "support/correctness.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

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
    const bool strikes = (lasts ? calls >= atCall : calls == atCall) &&
                         !(onFirstOnly && RankIn(MPI_COMM_WORLD) != 0);
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
  const double rest = fault.keepsLeading ? -1e3 : std::numeric_limits<double>::quiet_NaN();
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

/// Rows over all processes; or two replicas, each dealt over one half of them.
struct Layout {
  const char* reason;
  MPI_Comm comm = MPI_COMM_WORLD, second = MPI_COMM_SELF;

  explicit Layout(bool isReplicated) : reason(isReplicated ? "two replicas" : "one job") {
    if (!isReplicated) return;
    const int rank = RankIn(MPI_COMM_WORLD), half = SizeOf(MPI_COMM_WORLD) / 2;
    MPI_Comm_split(MPI_COMM_WORLD, rank / half, rank, &comm);
    MPI_Comm_split(MPI_COMM_WORLD, rank % half, rank, &second);
  }
  Layout(const Layout&) = delete;
  Layout& operator=(const Layout&) = delete;
  ~Layout() {
    if (comm == MPI_COMM_WORLD) return;
    MPI_Comm_free(&comm);
    MPI_Comm_free(&second);
  }
};

template <typename Scalar>
void RunOn(const Layout& layout, Pairs<Scalar>& p, VesSolver solver, SparseOperator<Scalar>* A,
           SparseOperator<Scalar>* B, SparseOperator<Scalar>* T) {
  const MatrixHandle a = MakeMatrix(A), b = MakeMatrix(B), t = MakeMatrix(T);
  const VectorHandle x = MakeVector(layout.comm, p.rows.local, p.k, p.X.data(), p.ld);
  const VectorHandle d = MakeVector(layout.comm, p.k, 1, p.D.data(), p.k);
  for (const VesVector block : {x.get(), d.get()})
    EXPECT_EQ(VesVectorSetComm(block, 1, layout.second), VES_GOOD);
  p.FillRandom();
  p.code = VesRunSolver(solver, a.get(), b.get(), t.get(), x.get(), d.get());
  EXPECT_EQ(VesGetSolverIter(solver, &p.iter), VES_GOOD);
  EXPECT_EQ(VesGetSolverConv(solver, &p.nConv), VES_GOOD);
}

long judged = 0; ///< faulty runs since the last report

/// What holds after any run, whatever it met; A and B are the true operators. A run that broke off
/// may hand back vectors without values.
template <typename Scalar>
VesSolverReason ExpectTrueClaims(Pairs<Scalar>& p, VesSolver solver,
                                 const SparseOperator<Scalar>& A,
                                 const NotDeduced<SparseOperator<Scalar>>* B, double threshold) {
  ++judged;
  VesSolverReason reason = VES_REASON_NONE;
  EXPECT_EQ(VesGetSolverReason(solver, &reason), VES_GOOD);
  EXPECT_EQ(p.code, VES_GOOD);
  EXPECT_NE(reason, VES_REASON_NONE);
  EXPECT_EQ(reason == VES_REASON_CONVERGED, p.nConv == p.k);
  EXPECT_TRUE(p.nConv >= 0 && p.nConv <= p.k) << p.nConv;

  Pairs<Scalar> claimed(p);
  claimed.k = std::clamp(p.nConv, 0, p.k);
  const std::vector<double> residuals = ResidualNorms(claimed, A, B);
  for (int j = 0; j < claimed.k; ++j)
    EXPECT_LE(residuals[static_cast<std::size_t>(j)], 2 * threshold) << "pair " << j;
  EXPECT_LE(OrthogonalityError(claimed, B), std::sqrt(eps<Scalar>)) << p.nConv << " pairs";
  for (int j = 0; j < p.k; ++j) {
    const Scalar value = p.D[static_cast<std::size_t>(j)];
    const bool isKnown = Ves::IsFinite(value);
    EXPECT_TRUE(isKnown || (std::real(value) > 0 && std::isinf(std::real(value)))) << value;
    for (int i = 0; i < p.rows.local; ++i) {
      const Scalar x = p.Column(j)[i];
      EXPECT_TRUE(isKnown || reason == VES_REASON_NONFINITE ? Ves::IsFinite(x) : x == Scalar{})
          << "pair " << j << " " << value << " " << x;
    }
  }

  int facts[] = {p.nConv, -p.nConv, p.iter, -p.iter, reason, -reason};
  MPI_Allreduce(MPI_IN_PLACE, facts, 6, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
  EXPECT_TRUE(facts[0] == -facts[1] && facts[2] == -facts[3] && facts[4] == -facts[5]);
  const std::size_t bytes = static_cast<std::size_t>(p.k) * sizeof(Scalar);
  std::vector<Scalar> first = p.D;
  MPI_Bcast(first.data(), static_cast<int>(bytes), MPI_BYTE, 0, MPI_COMM_WORLD);
  EXPECT_EQ(std::memcmp(first.data(), p.D.data(), bytes), 0) << "values differ";
  return reason;
}

template <typename Scalar>
Settings FaultSettings(VesSolverType type) {
  Settings s;
  s.solver = type;
  s.nBands = 5;
  s.maxIter = 60;
  s.threshold = eps<Scalar> < 1e-10 ? 1e-5 : 2e-3;
  return s;
}

/// Sub-blocks and full steps that several calls reach.
SolverHandle Tuned(SolverHandle solver) {
  if (solver->solverType == VES_PPCG) {
    EXPECT_EQ(VesSolverSetPPCGBatch(solver.get(), 3), VES_GOOD);
    EXPECT_EQ(VesSolverSetPPCGRRPeriod(solver.get(), 2), VES_GOOD);
  } else if (solver->solverType == VES_LOBPCG_BATCH) {
    EXPECT_EQ(VesSolverSetBatchLimit(solver.get(), 3), VES_GOOD);
  }
  return solver;
}

template <typename Scalar>
class FaultTest : public testing::Test {
protected:
  static void TearDownTestSuite() {
    if (RankIn(MPI_COMM_WORLD) == 0) std::printf("%ld faulty runs ended and were judged\n", judged);
    judged = 0;
  }
};
TYPED_TEST_SUITE(FaultTest, AllScalars);

/// A solver whose runs have failed in all these ways still makes its first run bit for bit.
TYPED_TEST(FaultTest, DenseRoutinesFail) {
  using Scalar = TypeParam;
  const struct {
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
  const struct {
    const char* reason;
    bool lasts, onFirstOnly, keepsLeading;
  } kinds[] = {
      {"nothing known, NaN left, on all that make the call", false, false, false},
      {"the same on process 0 only", false, true, false},
      {"half of the columns factorized, noise behind", false, false, true},
      {"broken from then on", true, false, false},
  };
  const Box box{{7, 8}};
  int hits = 0;
  for (const bool isReplicated : {false, true}) {
    if (isReplicated && SizeOf(MPI_COMM_WORLD) % 2 != 0) continue;
    const Layout layout(isReplicated);
    const Rows rows(box.Order(), layout.comm);
    SparseOperator<Scalar> A(rows, [&](int i) { return Phased<Scalar>(i, box.Stiffness(i)); });
    SparseOperator<Scalar> B(rows, [&](int i) { return Phased<Scalar>(i, box.Mass(i)); });
    for (const auto type : allSolvers)
      for (const auto& site : sites)
        for (SparseOperator<Scalar>* const b :
             {static_cast<SparseOperator<Scalar>*>(nullptr), &B}) {
          Settings s = FaultSettings<Scalar>(type);
          s.orthogonalizer = site.orthogonalizer;
          const SolverHandle solver = Tuned(MakeSolver<Scalar>(s, b != nullptr));
          dynamic_cast<Ves::ScaLapackDiag<Scalar>&>(*solver->DenseEigenSolver).threshold =
              site.gridFrom;
          Pairs<Scalar> p(rows, s.nBands);
          RunOn<Scalar>(layout, p, solver.get(), &A, b, nullptr);
          const std::vector<Scalar> soundX = p.X, soundD = p.D;
          for (const auto& kind : kinds) {
            // Beside the grid only the processes 0 of replicas make a call at once.
            const bool isShared = isReplicated || site.routine == Routine::gridEigen;
            if (kind.onFirstOnly ? !isShared : isReplicated) continue;
            for (int call = 1; call <= 12; ++call) {
              SCOPED_TRACE(testing::Message()
                           << layout.reason << ", solver " << type << ", B " << (b != nullptr)
                           << ", " << site.reason << ", " << kind.reason << ", call " << call);
              fault = {site.routine, call, kind.lasts, kind.onFirstOnly, kind.keepsLeading};
              RunOn<Scalar>(layout, p, solver.get(), &A, b, nullptr);
              const bool isHit = fault.hits > 0;
              fault = {};
              ExpectTrueClaims(p, solver.get(), A, b, s.threshold);
              hits += isHit ? 1 : 0;
            }
          }
          RunOn<Scalar>(layout, p, solver.get(), &A, b, nullptr);
          EXPECT_EQ(p.nConv, p.k);
          EXPECT_TRUE(p.X == soundX && p.D == soundD) << "solver " << type << ", " << site.reason;
        }
  }
  if (RankIn(MPI_COMM_WORLD) == 0) { // which makes every call
    EXPECT_GT(hits, 500);
  }
}

/// One number of one process is wrong, once or from then on. A run that the fault does not end
/// converges on what is true.
TYPED_TEST(FaultTest, OperatorsReturnNonsense) {
  using Scalar = TypeParam;
  const auto largest = static_cast<double>(std::numeric_limits<Ves::RealType<Scalar>>::max());
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    const char* reason;
    double value;
    bool lasts;
  } kinds[] = {
      {"NaN once", nan, false},
      {"NaN from then on", nan, true},
      {"infinity once", std::numeric_limits<double>::infinity(), false},
      {"minus infinity once", -std::numeric_limits<double>::infinity(), false},
      {"a number whose square overflows, once", 1e-8 * largest, false},
      {"a number whose square overflows, from then on", 1e-8 * largest, true},
  };
  const Box box{{7, 8}};
  const Rows rows(box.Order(), MPI_COMM_WORLD);
  const bool isCulprit = rows.first + rows.local == rows.n;
  for (const auto type : allSolvers)
    for (const char* const culprit : {"A", "B", "T"})
      for (const auto& kind : kinds)
        for (const int call : {1, 2, 5}) {
          // A B that stays finite but wrong is another B, and so are the pairs.
          if (*culprit == 'B' && kind.lasts && std::isfinite(kind.value)) continue;
          SCOPED_TRACE(testing::Message() << "solver " << type << ", " << culprit << ", "
                                          << kind.reason << ", call " << call);
          const auto identity = [](int i) {
            return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(1)}};
          };
          SparseOperator<Scalar> A(rows,
                                   [&](int i) { return Phased<Scalar>(i, box.Stiffness(i)); });
          SparseOperator<Scalar> B(rows, [&](int i) { return Phased<Scalar>(i, box.Mass(i)); });
          SparseOperator<Scalar> T(rows, identity);
          SparseOperator<Scalar>& op = *culprit == 'A' ? A : *culprit == 'B' ? B : T;
          int calls = 0;
          op.spoil = [&](Scalar* y, int nRows, int nCols, int ld) {
            ++calls;
            if (isCulprit && (kind.lasts ? calls >= call : calls == call))
              y[nRows / 2 + (nCols / 2) * ld] = Number<Scalar>(kind.value);
          };
          Settings s = FaultSettings<Scalar>(type);
          if (call == 2) s.orthogonalizer = VES_SVD_QR;
          // Values that stand still because T returns no numbers have not converged.
          if (*culprit == 'T' && call == 5 && std::isnan(kind.value)) s.detector = VES_EIGENVALUES;
          const SolverHandle solver = Tuned(MakeSolver<Scalar>(s, true));
          Pairs<Scalar> p(rows, s.nBands);
          p.FillRandom();
          p.Run(solver.get(), &A, &B, &T);
          const VesSolverReason reason = ExpectTrueClaims(p, solver.get(), A, &B, s.threshold);
          EXPECT_TRUE(std::isfinite(kind.value) || p.nConv == p.k || reason == VES_REASON_NONFINITE)
              << VesReasonString(reason);
          EXPECT_FALSE(std::isnan(kind.value) && kind.lasts && p.nConv == p.k);
          // Of a batch that was not reached the guess comes back.
          if (*culprit == 'A' && call == 5 && type != VES_LOBPCG_BATCH) {
            EXPECT_LE(OrthogonalityError(p, &B), 2000 * eps<Scalar>);
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
    bool converges;
  } cases[] = {
      {"T spans the same space with the other sign", one, [](int) { return -1.0; }, true},
      {"T indefinite", one, [](int i) { return i % 3 == 0 ? -2.0 : 1.0; }, false},
      {"T singular", one, [](int i) { return i % 4 == 0 ? 0.0 : 1.0; }, false},
      {"T zero", one, [](int) { return 0.0; }, false},
      {"T tiny: the scale of the residuals does not matter", one,
       [](int) { return eps<Scalar> < 1e-10 ? 1e-20 : 1e-12; }, true},
      {"B indefinite", [](int i) { return i % 5 == 0 ? -1.0 : 1.0; }, one, false},
      {"B with one negative entry", [](int i) { return i == 20 ? -1.0 : 1.0; }, one, false},
      {"B negative definite", [](int) { return -1.0; }, one, false},
      {"B singular", [](int i) { return i % 5 == 0 ? 0.0 : 1.0; }, one, false},
      {"B zero", [](int) { return 0.0; }, one, false},
  };
  const Box box{{7, 8}};
  const Rows rows(box.Order(), MPI_COMM_WORLD, Deal::growing);
  SparseOperator<Scalar> A(rows, [&](int i) { return Phased<Scalar>(i, box.Laplacian(i)); });
  const auto diagonal = [&](const std::function<double(int)>& value) {
    return SparseOperator<Scalar>(rows, [&](int i) {
      return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(value(i))}};
    });
  };
  for (const auto type : allSolvers)
    for (const auto& c : cases)
      for (const auto orthogonalizer : {VES_CHOLESKY_QR, VES_SVD_QR})
        for (const auto detector : {VES_RESIDUALS, VES_RELATIVE_RESIDUALS}) {
          SCOPED_TRACE(testing::Message() << "solver " << type << ", " << c.reason << ", "
                                          << orthogonalizer << ", detector " << detector);
          Settings s = FaultSettings<Scalar>(type);
          s.orthogonalizer = orthogonalizer;
          s.detector = detector;
          SparseOperator<Scalar> B = diagonal(c.b), T = diagonal(c.t);
          const SolverHandle solver = Tuned(MakeSolver<Scalar>(s, true));
          Pairs<Scalar> p(rows, s.nBands);
          p.FillRandom();
          p.Run(solver.get(), &A, &B, &T);
          double scale = 1.0; // of the threshold, whose unit is the value in the relative test
          for (int j = 0; detector == VES_RELATIVE_RESIDUALS && j < p.nConv; ++j)
            scale = std::max(scale, double{std::abs(p.D[static_cast<std::size_t>(j)])});
          ExpectTrueClaims(p, solver.get(), A, &B, scale * s.threshold);
          if (c.converges) {
            EXPECT_EQ(p.nConv, p.k);
          }
        }
}

} // namespace
