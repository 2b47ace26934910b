// VesRunSolver: what it refuses, on all processes alike, and what it takes.
#include "data/vector_dense.h"
#include "interface/setters.h"
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

  void UseSolver(VesSolverType type) {
    Settings settings;
    settings.solver = type;
    solver = MakeSolver<double>(settings, true);
  }
  VesReturnCode Code() {
    return VesRunSolver(solver.get(), A.get(), B.get(), T.get(), X.get(), D.get());
  }
  void ExpectRefused(VesReturnCode code) {
    EXPECT_EQ(Code(), code);
    EXPECT_EQ(op.columns, 0);
    EXPECT_EQ(d, std::vector<double>(8, 5.0));
    EXPECT_EQ(x, std::vector<double>(64, 5.0));
  }
};

bool IsFirst() {
  return RankIn(MPI_COMM_WORLD) == 0;
}

/// Where a part is spoiled: local faults on process 0 alone, some only where there are others.
enum Where { everywhere, onFirst, unlikeOthers };

const struct {
  const char* what;
  Where where;
  VesReturnCode code;
  void (*spoil)(SmallRun& r);
} faults[] = {
    {"no solver", everywhere, VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.solver.reset(); }},
    {"no A", everywhere, VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.A.reset(); }},
    {"no X", everywhere, VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.X.reset(); }},
    {"no D", everywhere, VES_ERR_INVALID_VALUE, [](SmallRun& r) { r.D.reset(); }},
    {"A of another type", everywhere, VES_ERR_MISMATCH,
     [](SmallRun& r) { r.A = ves::makeMatrix<float>(nullptr, nullptr); }},
    {"B of another type", everywhere, VES_ERR_MISMATCH,
     [](SmallRun& r) { r.B = ves::makeMatrix<float>(nullptr, nullptr); }},
    {"T of another type", everywhere, VES_ERR_MISMATCH,
     [](SmallRun& r) { r.T = ves::makeMatrix<float>(nullptr, nullptr); }},
    {"D of another type", everywhere, VES_ERR_MISMATCH,
     [](SmallRun& r) { r.D->scalarType = VES_FLOAT; }},
    {"values of the wrong number", onFirst, VES_ERR_MISMATCH,
     [](SmallRun& r) { VesVectorSetDim(r.D.get(), 3, 1); }},
    {"two columns of values", everywhere, VES_ERR_MISMATCH,
     [](SmallRun& r) { VesVectorSetDim(r.D.get(), 2, 2); }},
    {"X without storage", onFirst, VES_ERR_NULL_POINTER,
     [](SmallRun& r) { r.X = MakeVector<double>(MPI_COMM_WORLD, r.rows.local, 2, nullptr, 1); }},
    {"D without storage", onFirst, VES_ERR_NULL_POINTER,
     [](SmallRun& r) { r.D = MakeVector<double>(MPI_COMM_WORLD, 2, 1, nullptr, 1); }},
    {"A without a routine", onFirst, VES_ERR_NULL_POINTER,
     [](SmallRun& r) { VesMatrixSetShellMatVec(r.A.get(), nullptr, nullptr); }},
    {"T without a routine", everywhere, VES_ERR_NULL_POINTER,
     [](SmallRun& r) { r.T = ves::makeMatrix<double>(nullptr, nullptr); }},
    {"B without a routine", everywhere, VES_ERR_NULL_POINTER,
     [](SmallRun& r) { r.B = ves::makeMatrix<double>(nullptr, nullptr); }},
    {"another communicator", onFirst, VES_ERR_MISMATCH,
     [](SmallRun& r) { VesVectorSetComm(r.D.get(), 0, MPI_COMM_SELF); }},
    {"another second communicator", onFirst, VES_ERR_MISMATCH,
     [](SmallRun& r) { VesVectorSetComm(r.D.get(), 1, MPI_COMM_WORLD); }},
    {"columns of X overlap", onFirst, VES_ERR_INVALID_VALUE,
     [](SmallRun& r) { VesVectorDenseSetValues(r.X.get(), r.x.data(), r.rows.local - 1); }},
    {"ld of D below its rows", onFirst, VES_ERR_INVALID_VALUE,
     [](SmallRun& r) { VesVectorDenseSetValues(r.D.get(), r.d.data(), 1); }},
    // The others would wait for process 0, or it for them.
    {"pairs", unlikeOthers, VES_ERR_MISMATCH,
     [](SmallRun& r) {
       VesVectorSetDim(r.X.get(), r.rows.local, 1);
       VesVectorSetDim(r.D.get(), 1, 1);
     }},
    {"solver", unlikeOthers, VES_ERR_MISMATCH, [](SmallRun& r) { r.UseSolver(VES_PPCG); }},
    {"B", unlikeOthers, VES_ERR_MISMATCH, [](SmallRun& r) { r.B = MakeMatrix(&r.op); }},
    {"T", unlikeOthers, VES_ERR_MISMATCH, [](SmallRun& r) { r.T = MakeMatrix(&r.op); }},
    {"who is called", unlikeOthers, VES_ERR_MISMATCH,
     [](SmallRun& r) { VesMatrixSetCalledEverywhere(r.A.get(), true); }},
    {"monitor", unlikeOthers, VES_ERR_MISMATCH,
     [](SmallRun& r) {
       VesSolverSetMonitor(
           r.solver.get(), [](void*, const VesProgress*) { return 0; }, nullptr);
     }},
    {"a bit of the threshold", unlikeOthers, VES_ERR_MISMATCH,
     [](SmallRun& r) { VesSolverSetThreshold(r.solver.get(), std::nextafter(1e-6, 1.0)); }},
};

TEST(RunSolver, RefusesOnAllProcessesAlike) {
  for (const auto& c : faults) {
    SCOPED_TRACE(c.what);
    if (c.where == unlikeOthers && SizeOf(MPI_COMM_WORLD) == 1) continue;
    SmallRun r;
    if (c.where == everywhere || IsFirst()) c.spoil(r);
    r.ExpectRefused(c.code);
  }
}

TEST(RunSolver, RefusesSettingsOfOneProcess) {
  if (SizeOf(MPI_COMM_WORLD) == 1) GTEST_SKIP() << "needs two processes";
  for (const Setter& set : Setters()) {
    SCOPED_TRACE(set.name);
    SmallRun r;
    r.UseSolver(set.owner.value_or(VES_LOBPCG));
    if (IsFirst()) {
      EXPECT_EQ(set.call(r.solver.get(), set.taken.back()), VES_GOOD);
    }
    r.ExpectRefused(VES_ERR_MISMATCH);
  }
}

/// Settings are the same on all processes, not equal numbers: a NaN is one of them. A standard
/// problem needs nothing of B, no pairs need no storage.
TEST(RunSolver, AcceptsWhatIsOdd) {
  for (const VesSolverType type : allSolvers) {
    SmallRun r;
    r.UseSolver(type);
    VesSolverSetMaxIter(r.solver.get(), 3);
    VesSolverSetThreshold(r.solver.get(), std::nan(""));
    VesSolverSetProblemType(r.solver.get(), VES_PROBLEM_STANDARD);
    r.B = ves::makeMatrix<double>(nullptr, nullptr);
    EXPECT_EQ(r.Code(), VES_GOOD);
    EXPECT_EQ(r.solver->reason == VES_REASON_CONVERGED, r.solver->nConv == 2);

    r.op.columns = 0;
    r.X = MakeVector<double>(MPI_COMM_WORLD, r.rows.local, 0, nullptr, 1);
    r.D = MakeVector<double>(MPI_COMM_WORLD, 0, 1, nullptr, 1);
    EXPECT_EQ(r.Code(), VES_GOOD);
    const VesSolverStats& stats = r.solver->stats;
    EXPECT_EQ(r.solver->reason, VES_REASON_CONVERGED);
    EXPECT_TRUE(r.op.columns == 0 && r.solver->iter == 0 && r.solver->nConv == 0);
    EXPECT_TRUE(stats.columnsA == 0 && stats.reductions == 0 && stats.secondsTotal == 0.0);
  }
}

/// Each solver is held to its own sizes: dense problems of order 32765, on whatever rows.
TEST(RunSolver, LargestSizes) {
  constexpr int most = std::numeric_limits<int>::max();
  const struct {
    VesSolverType type;
    int width; ///< of the batch or a sub-block, where it is not the default
    int nRows, mostCols;
  } cases[] = {
      {VES_LOBPCG, 0, 1, 10921},       {VES_LOBPCG, 0, most, 10921},
      {VES_LOBPCG_BATCH, 0, 1, 32765}, {VES_LOBPCG_BATCH, 11000, most, 10921},
      {VES_PPCG, 0, 1, 32765},         {VES_PPCG, 0, most, 32765},
      {VES_PPCG, 10000, 1, 32765}, // four tiles of order 30000
      {VES_PPCG, 11000, 1, 10921},     {VES_PPCG, most, most, 10921},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.type << " " << c.width << " " << c.nRows);
    const SolverHandle solver = ves::makeSolver<double>(c.type);
    if (c.width > 0) {
      const auto setWidth = c.type == VES_PPCG ? VesSolverSetPPCGBatch : VesSolverSetBatchLimit;
      EXPECT_EQ(setWidth(solver.get(), c.width), VES_GOOD);
    }
    std::size_t bytes = 77;
    for (const int beyond : {c.mostCols + 1, most})
      EXPECT_EQ(VesSolverMemory(solver.get(), c.nRows, beyond, true, &bytes),
                VES_ERR_INVALID_VALUE);
    EXPECT_EQ(bytes, 77U);
    EXPECT_EQ(VesSolverMemory(solver.get(), c.nRows, c.mostCols, true, &bytes), VES_GOOD);
    EXPECT_NE(bytes, 77U);
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
