// VesRunSolver: what it refuses, on all processes alike, and what it takes.
#include "data/vector_dense.h"
#include "interface/solver_base.h"
#include "support/correctness.h"

#include <limits>

using namespace VesTest;

namespace {

/// A sound run whose parts can be spoiled one at a time.
struct SmallRun {
  Rows rows{12, MPI_COMM_WORLD};
  SparseOperator<double> op{rows, [](int i) { return SparseOperator<double>::Row{{i, 1.0 + i}}; }};
  std::vector<double> x = std::vector<double>(64, 5.0), d = std::vector<double>(8, 5.0);
  SolverHandle solver = MakeSolver<double>({}, true);
  MatrixHandle A = MakeMatrix(&op), B, T;
  VectorHandle X = MakeVector(MPI_COMM_WORLD, rows.local, 2, x.data(), 12);
  VectorHandle D = MakeVector(MPI_COMM_WORLD, 2, 1, d.data(), 2);

  VesReturnCode Code() {
    return VesRunSolver(solver.get(), A.get(), B.get(), T.get(), X.get(), D.get());
  }
};

TEST(RunSolver, RefusesOnAllProcessesAlike) {
  const bool first = RankIn(MPI_COMM_WORLD) == 0; // local faults: only process 0 has them
  MPI_Comm twin = MPI_COMM_NULL;
  MPI_Comm_dup(MPI_COMM_WORLD, &twin);
  const struct {
    const char* reason;
    VesReturnCode code;
    std::function<void(SmallRun&)> spoil;
  } cases[] = {
      {"no solver", VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.solver.reset(); }},
      {"no A", VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.A.reset(); }},
      {"no X", VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.X.reset(); }},
      {"no D", VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.D.reset(); }},
      {"A of another type", VES_ERR_MISMATCH,
       [](SmallRun& r) { r.A = ves::makeMatrix<float>(nullptr, nullptr); }},
      {"B of another type", VES_ERR_MISMATCH,
       [](SmallRun& r) { r.B = ves::makeMatrix<float>(nullptr, nullptr); }},
      {"T of another type", VES_ERR_MISMATCH,
       [](SmallRun& r) { r.T = ves::makeMatrix<float>(nullptr, nullptr); }},
      {"D of another type", VES_ERR_MISMATCH, [](SmallRun& r) { r.D->scalarType = VES_FLOAT; }},
      {"four columns, five values", VES_ERR_MISMATCH,
       [](SmallRun& r) {
         VesVectorSetDim(r.X.get(), r.rows.local, 4);
         VesVectorSetDim(r.D.get(), 5, 1);
       }},
      {"values of the wrong number on one process", VES_ERR_MISMATCH,
       [=](SmallRun& r) {
         if (first) VesVectorSetDim(r.D.get(), 3, 1);
       }},
      {"two columns of values", VES_ERR_MISMATCH,
       [](SmallRun& r) { VesVectorSetDim(r.D.get(), 2, 2); }},
      {"X without storage", VES_ERR_NULL_POINTER,
       [=](SmallRun& r) {
         if (first) r.X = MakeVector<double>(MPI_COMM_WORLD, r.rows.local, 2, nullptr, 1);
       }},
      {"D without storage", VES_ERR_NULL_POINTER,
       [=](SmallRun& r) {
         if (first) r.D = MakeVector<double>(MPI_COMM_WORLD, 2, 1, nullptr, 1);
       }},
      {"A without a routine", VES_ERR_NULL_POINTER,
       [=](SmallRun& r) {
         if (first) VesMatrixSetShellMatVec(r.A.get(), nullptr, nullptr);
       }},
      {"B without a routine", VES_ERR_NULL_POINTER,
       [=](SmallRun& r) {
         r.B = MakeMatrix(&r.op);
         VesSolverSetProblemType(r.solver.get(), VES_PROBLEM_GENERALIZED);
         if (first) VesMatrixSetShellMatVec(r.B.get(), nullptr, nullptr);
       }},
      {"communicators differ", VES_ERR_MISMATCH,
       [=](SmallRun& r) { VesVectorSetComm(r.D.get(), 0, twin); }},
      {"second communicators differ", VES_ERR_MISMATCH,
       [=](SmallRun& r) {
         if (first) VesVectorSetComm(r.X.get(), 1, twin);
       }},
      {"columns of X overlap", VES_ERR_INVALID_VALUE,
       [=](SmallRun& r) {
         if (first) VesVectorDenseSetValues(r.X.get(), r.x.data(), r.rows.local - 1);
       }},
      {"ld of D below its rows", VES_ERR_INVALID_VALUE,
       [=](SmallRun& r) {
         if (first) VesVectorDenseSetValues(r.D.get(), r.d.data(), 1);
       }},
      {"a workspace beyond 32 bits", VES_ERR_INVALID_VALUE,
       [=](SmallRun& r) {
         if (first) VesVectorDenseSetValues(r.X.get(), r.x.data(), 400000000);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    SmallRun r;
    c.spoil(r);
    EXPECT_EQ(r.Code(), c.code);
    EXPECT_EQ(r.op.columns, 0);
    EXPECT_EQ(r.d, std::vector<double>(8, 5.0));
    EXPECT_EQ(r.x, std::vector<double>(64, 5.0));
  }
  MPI_Comm_free(&twin);
}

/// What process 0 alone has set; the others would wait for it, or it for them.
TEST(RunSolver, RefusesWhereProcessesDisagree) {
  if (SizeOf(MPI_COMM_WORLD) == 1) GTEST_SKIP() << "needs two processes";
  const auto pairs = [](SmallRun& r) {
    VesVectorSetDim(r.X.get(), r.rows.local, 1);
    VesVectorSetDim(r.D.get(), 1, 1);
  };
  const auto generalized = [](SmallRun& r) {
    VesSolverSetProblemType(r.solver.get(), VES_PROBLEM_GENERALIZED);
  };
  const struct {
    const char* what;
    std::function<void(SmallRun&)> onAll, onFirst;
    VesSolverType type = VES_LOBPCG;
  } cases[] = {
      {"pairs", nullptr, pairs},
      {"solver", nullptr, [](SmallRun& r) { r.solver = MakeSolver<double>({}, true); }, VES_PPCG},
      {"problem", nullptr,
       [](SmallRun& r) { VesSolverSetProblemType(r.solver.get(), VES_PROBLEM_STANDARD); }},
      {"B", generalized, [](SmallRun& r) { r.B = MakeMatrix(&r.op); }},
      {"T", nullptr, [](SmallRun& r) { r.T = MakeMatrix(&r.op); }},
      {"who is called", nullptr,
       [](SmallRun& r) { VesMatrixSetCalledEverywhere(r.A.get(), true); }},
      {"iterations", nullptr, [](SmallRun& r) { VesSolverSetMaxIter(r.solver.get(), 3); }},
      {"passes", nullptr, [](SmallRun& r) { VesSolverSetMaxOrthoIter(r.solver.get(), 3); }},
      {"threshold", nullptr,
       [](SmallRun& r) { VesSolverSetThreshold(r.solver.get(), std::nextafter(1e-6, 1.0)); }},
      {"lock factor", nullptr, [](SmallRun& r) { VesSolverSetLockFactor(r.solver.get(), 0.5); }},
      {"dense eigensolver", nullptr,
       [](SmallRun& r) { VesSetDenseEigenSolverType(r.solver.get(), VES_LAPACK_DIAG); }},
      {"detector", nullptr,
       [](SmallRun& r) { VesSetConvergeDetectorType(r.solver.get(), VES_EIGENVALUES); }},
      {"lock detector", nullptr,
       [](SmallRun& r) { VesSolverSetLockDetectorType(r.solver.get(), VES_RESIDUALS); }},
      {"orthogonalizer", nullptr,
       [](SmallRun& r) { VesSetOrthogonalizerType(r.solver.get(), VES_SVD_QR); }},
      {"self-check", nullptr, [](SmallRun& r) { VesSolverSetSelfCheck(r.solver.get(), false); }},
      {"batch limit", nullptr, [](SmallRun& r) { VesSolverSetBatchLimit(r.solver.get(), 1); },
       VES_LOBPCG_BATCH},
      {"sub-block", nullptr, [](SmallRun& r) { VesSolverSetPPCGBatch(r.solver.get(), 1); },
       VES_PPCG},
      {"soft locking", nullptr, [](SmallRun& r) { VesSolverSetPPCGSoftLocking(r.solver.get(), 2); },
       VES_PPCG},
      {"full steps", nullptr, [](SmallRun& r) { VesSolverSetPPCGRRPeriod(r.solver.get(), 2); },
       VES_PPCG},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    SmallRun r;
    Settings settings;
    settings.solver = c.type;
    r.solver = MakeSolver<double>(settings, true);
    if (c.onAll) c.onAll(r);
    if (RankIn(MPI_COMM_WORLD) == 0) c.onFirst(r);
    EXPECT_EQ(r.Code(), VES_ERR_MISMATCH);
    EXPECT_EQ(r.op.columns, 0);
  }
}

/// Settings are the same on all processes, not equal numbers: a NaN is one of them. No pairs need
/// no storage.
TEST(RunSolver, AcceptsWhatIsOdd) {
  for (const VesSolverType type : allSolvers) {
    SmallRun r;
    Settings settings;
    settings.solver = type;
    settings.maxIter = 3;
    r.solver = MakeSolver<double>(settings, true);
    VesSolverSetThreshold(r.solver.get(), std::nan(""));
    EXPECT_EQ(r.Code(), VES_GOOD);
    EXPECT_EQ(r.solver->reason == VES_REASON_CONVERGED, r.solver->nConv == 2);

    r.op.columns = 0;
    r.X = MakeVector<double>(MPI_COMM_WORLD, r.rows.local, 0, nullptr, 1);
    r.D = MakeVector<double>(MPI_COMM_WORLD, 0, 1, nullptr, 1);
    EXPECT_EQ(r.Code(), VES_GOOD);
    VesSolverStats stats;
    EXPECT_EQ(VesGetSolverStats(r.solver.get(), &stats), VES_GOOD);
    EXPECT_EQ(r.solver->reason, VES_REASON_CONVERGED);
    EXPECT_TRUE(r.op.columns == 0 && r.solver->iter == 0 && r.solver->nConv == 0);
    EXPECT_TRUE(stats.columnsA == 0 && stats.reductions == 0 && stats.secondsTotal == 0.0);
  }
}

/// Each solver is held to its own sizes: 2^31 entries in a block, dense problems of order 32765.
TEST(RunSolver, LargestSizes) {
  constexpr int million = 1 << 20, most = std::numeric_limits<int>::max();
  const struct {
    VesSolverType type;
    int width, nRows, nCols; ///< of the batch or a sub-block, where it is not the default
    bool fits;
  } cases[] = {
      {VES_LOBPCG, 0, million, 682, true},
      {VES_LOBPCG, 0, million, 683, false},
      {VES_LOBPCG_BATCH, 0, million, 1535, true},
      {VES_LOBPCG_BATCH, 0, million, 1536, false},
      {VES_PPCG, 0, million, 682, true},
      {VES_PPCG, 0, million, 683, false},
      {VES_LOBPCG, 0, 1, 10921, true},
      {VES_LOBPCG, 0, 1, 10922, false},
      {VES_LOBPCG_BATCH, 0, 1, 32765, true},
      {VES_LOBPCG_BATCH, 0, 1, 32766, false},
      {VES_LOBPCG_BATCH, 10922, 1, 10922, false},
      {VES_PPCG, 0, 1, 32765, true},
      {VES_PPCG, 0, 1, 32766, false},
      {VES_PPCG, 10922, 1, 10922, false},
      {VES_PPCG, 9000, 1, 20000, false}, // three tiles of order 27000
      {VES_LOBPCG, 0, most, most, false},
      {VES_LOBPCG_BATCH, 0, most, most, false},
      {VES_PPCG, most, most, most, false},
      {VES_PPCG, 0, most, 0, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.type << " " << c.width << " " << c.nRows << " " << c.nCols);
    Settings settings;
    settings.solver = c.type;
    const SolverHandle solver = MakeSolver<double>(settings, false);
    if (c.width > 0) {
      EXPECT_EQ((c.type == VES_PPCG ? VesSolverSetPPCGBatch : VesSolverSetBatchLimit)(solver.get(),
                                                                                      c.width),
                VES_GOOD);
    }
    std::size_t bytes = 77;
    EXPECT_EQ(VesSolverMemory(solver.get(), c.nRows, c.nCols, true, &bytes),
              c.fits ? VES_GOOD : VES_ERR_INVALID_VALUE);
    EXPECT_EQ(bytes == 77, !c.fits);
  }
}

TEST(RunSolver, ASolverOfAClientNeedOnlySolve) {
  struct Own final : VesSolverBase {
    VesReturnCode Solve(const VesMatrixBase&, const VesMatrixBase&, const VesMatrixBase&,
                        VesVectorBase&, VesVectorBase& vecD) const override {
      return vecD.Set2Zero();
    }
  } own;
  SmallRun r;
  std::size_t bytes = 77;
  EXPECT_EQ(VesRunSolver(&own, r.A.get(), nullptr, nullptr, r.X.get(), r.D.get()), VES_GOOD);
  EXPECT_EQ(r.d[1], 0.0);
  EXPECT_EQ(VesSolverMemory(&own, 12, 2, false, &bytes), VES_GOOD);
  EXPECT_EQ(bytes, 0U);
}

TEST(RunSolver, GeneralizedWithoutBIsStandard) {
  SmallRun r;
  for (std::size_t i = 0; i < r.x.size(); ++i)
    r.x[i] = Hashed(static_cast<unsigned>(i), 1);
  EXPECT_EQ(r.Code(), VES_GOOD);
  EXPECT_FALSE(r.solver->isGeneralized);
  EXPECT_NEAR(r.d[0], 1.0, 1e-9);
}

} // namespace
