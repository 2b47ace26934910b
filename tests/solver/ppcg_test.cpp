// What only PPCG has: sub-blocks, soft and hard locking, its parameters.
#include "solver/ppcg.h"
#include "support/correctness.h"

using namespace VesTest;

namespace {

template <typename Scalar>
class PpcgFixture : public testing::Test {
protected:
  const Box box{{10, 11, 12}};
  const Rows rows{box.Order(), MPI_COMM_WORLD, Deal::growing};
  SparseOperator<Scalar> laplacian{rows,
                                   [this](int i) { return Phased<Scalar>(i, box.Laplacian(i)); }};
  SparseOperator<Scalar> stiffness{rows,
                                   [this](int i) { return Phased<Scalar>(i, box.Stiffness(i)); }};
  SparseOperator<Scalar> mass{rows, [this](int i) { return Phased<Scalar>(i, box.Mass(i)); }};

  static SolverHandle Solver(bool generalized, int maxIter = 400) {
    Settings s;
    s.solver = VES_PPCG;
    s.threshold = 1e-5;
    s.maxIter = maxIter;
    return MakeSolver<Scalar>(s, generalized);
  }

  static Ves::PPCG<Scalar>& Ppcg(const SolverHandle& solver) {
    return dynamic_cast<Ves::PPCG<Scalar>&>(*solver);
  }

  /// Solves for nBands pairs, expects them right, and returns the columns A was applied to.
  long Solve(VesSolver solver, int nBands, bool generalized = false) {
    SparseOperator<Scalar>& A = generalized ? stiffness : laplacian;
    SparseOperator<Scalar>* const B = generalized ? &mass : nullptr;
    Pairs<Scalar> p(rows, nBands);
    p.FillRandom();
    A.columns = 0;
    p.Run(solver, &A, B);
    Limits limits;
    limits.value = 1e-8;
    ExpectAllConverged(p, A, B, box.Eigenvalues(generalized), 1e-5, limits);
    return A.columns;
  }
};

using PpcgTest = PpcgFixture<std::complex<double>>;
using RealPpcgTest = PpcgFixture<double>; // where many pairs are wanted, for their cost
using SinglePpcgTest = PpcgFixture<float>;

TEST_F(RealPpcgTest, NumbersOfPairsAroundTheSubBlock) {
  const struct {
    int nBatch;
    std::vector<int> pairs;
  } cases[] = {{64, {1, 63, 64, 65, 130}}, {7, {1, 6, 7, 8, 64}}};
  for (const auto& c : cases)
    for (const int nBands : c.pairs) {
      SCOPED_TRACE(testing::Message() << nBands << " pairs in sub-blocks of " << c.nBatch);
      const SolverHandle solver = Solver(false);
      EXPECT_EQ(VesSolverSetPPCGBatch(solver.get(), c.nBatch), VES_GOOD);
      Solve(solver.get(), nBands);
    }
}

TEST_F(PpcgTest, SoftLockingSavesColumns) {
  for (const bool generalized : {false, true}) {
    std::vector<long> columns;
    for (const int type : {0, 1, 2}) {
      SCOPED_TRACE(testing::Message() << "type " << type << " generalized " << generalized);
      const SolverHandle solver = Solver(generalized);
      EXPECT_EQ(VesSolverSetPPCGSoftLocking(solver.get(), type), VES_GOOD);
      EXPECT_EQ(VesSolverSetPPCGBatch(solver.get(), 10), VES_GOOD);
      columns.push_back(Solve(solver.get(), 24, generalized));
    }
    if (RankIn(MPI_COMM_WORLD) == 0)
      std::printf("columns of A by type of soft locking: %ld, %ld, %ld\n", columns[0], columns[1],
                  columns[2]);
    if (rows.local == 0) continue;
    EXPECT_LT(columns[1], columns[0]);
    EXPECT_LT(columns[2], columns[1]);
  }
}

/// The same pairs whatever the period of the full step, the passes, and the problem.
TEST_F(PpcgTest, PeriodsAndPasses) {
  for (const bool generalized : {false, true})
    for (const int rrPeriod : {0, 1, 5})
      for (const int passes : {1, 2, 3}) {
        SCOPED_TRACE(testing::Message() << "period " << rrPeriod << " passes " << passes
                                        << " generalized " << generalized);
        const SolverHandle solver = Solver(generalized);
        EXPECT_EQ(VesSolverSetPPCGRRPeriod(solver.get(), rrPeriod), VES_GOOD);
        EXPECT_EQ(VesSolverSetPPCGBatch(solver.get(), 6), VES_GOOD);
        VesSolverSetMaxOrthoIter(solver.get(), passes);
        Solve(solver.get(), 14, generalized);
      }
}

/// Pairs that pass the lock test long before are locked only by iterations 5, 10, 15, ...
TEST_F(PpcgTest, LocksForGoodOnlyAfterARotation) {
  int locked = 0;
  for (int maxIter = 1; maxIter <= 16; ++maxIter) {
    const SolverHandle solver = Solver(false, maxIter);
    Ppcg(solver).mu = 1.0;
    Ppcg(solver).threshold = 0.05;
    Pairs<std::complex<double>> p(rows, 20);
    p.FillRandom();
    p.Run(solver.get(), &laplacian);
    EXPECT_EQ(p.iter, maxIter);
    const bool rotated = maxIter - 1 > 0 && (maxIter - 1) % 5 == 0;
    EXPECT_EQ(Ppcg(solver).isRotated, rotated);
    EXPECT_TRUE(rotated || Ppcg(solver).nDeflated == locked);
    locked = Ppcg(solver).nDeflated;
  }
  EXPECT_GT(locked, 0);
}

/// A solver that has converged and run for fewer pairs works like a fresh one.
TEST_F(PpcgTest, SeveralRunsOnOneSolver) {
  const SolverHandle solver = Solver(false);
  for (const int nBands : {20, 33, 5, 20}) {
    SCOPED_TRACE(nBands);
    EXPECT_EQ(VesSolverSetPPCGBatch(solver.get(), 16), VES_GOOD);
    const long columns = Solve(solver.get(), nBands);
    const SolverHandle fresh = Solver(false);
    VesSolverSetPPCGBatch(fresh.get(), 16);
    EXPECT_EQ(Solve(fresh.get(), nBands), columns);
  }
}

/// Near the end of a run in single precision steps have norms of some 1e-5: without them as
/// conjugate directions it takes more columns, and some pairs do not come down at all.
TEST_F(SinglePpcgTest, SmallStepsAreDirections) {
  const struct {
    double threshold;
    long mostColumns; // of four runs: above 3000 and 5400 where steps below 5e-4 are dropped
  } cases[] = {{1e-3, 2600}, {1e-4, 5000}};
  for (const auto& c : cases) {
    const SolverHandle solver = Solver(false, 600);
    Ppcg(solver).threshold = c.threshold;
    long columns = 0;
    for (unsigned seed = 0; seed < 4; ++seed) {
      Pairs<float> p(rows, 10);
      p.FillRandom(seed);
      laplacian.columns = 0;
      p.Run(solver.get(), &laplacian);
      EXPECT_EQ(p.nConv, p.k) << "threshold " << c.threshold << " seed " << seed;
      columns += laplacian.columns;
    }
    if (rows.local > 0) {
      EXPECT_LT(columns, c.mostColumns) << "threshold " << c.threshold;
    }
  }
}

TEST(PpcgSetters, CodesInTheirOrder) {
  const SolverHandle lobpcg = MakeSolver<float>({}, false);
  Settings s;
  s.solver = VES_PPCG;
  const SolverHandle ppcg = MakeSolver<float>(s, false);
  const auto& fields = dynamic_cast<Ves::PPCG<float>&>(*ppcg);
  EXPECT_EQ(ppcg->solverType, VES_PPCG);
  EXPECT_EQ(VesSolverSetPPCGSoftLocking(lobpcg.get(), 9), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesSolverSetPPCGBatch(lobpcg.get(), 7), VES_ERR_INCOMPATIBLE);
  for (const int wrong : {-1, 3})
    EXPECT_EQ(VesSolverSetPPCGSoftLocking(ppcg.get(), wrong), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesSolverSetPPCGBatch(ppcg.get(), 0), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesSolverSetPPCGRRPeriod(ppcg.get(), -1), VES_ERR_INVALID_VALUE);
  for (const double wrong : {-0.1, 1.5, std::nan("")})
    EXPECT_EQ(VesSolverSetPPCGLockFactor(ppcg.get(), wrong), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(fields.softLockingType, 0);
  EXPECT_EQ(fields.nBatch, 64);
  EXPECT_EQ(fields.rrPeriod, 5);
  EXPECT_EQ(VesSolverSetPPCGLockFactor(ppcg.get(), 0.5), VES_GOOD);
  EXPECT_EQ(VesSolverSetPPCGRRPeriod(ppcg.get(), 0), VES_GOOD);
  EXPECT_EQ(fields.mu, 0.5);
  EXPECT_EQ(fields.rrPeriod, 0);
}

} // namespace
