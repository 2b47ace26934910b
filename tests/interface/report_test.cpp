// What a run says of itself, held against its operators and its result: texts, monitor, costs,
// reasons and locking; and the check of pairs.
#include "interface/solver_base.h"
#include "support/correctness.h"

#include <chrono>
#include <set>
#include <thread>

using namespace VesTest;

namespace {

constexpr int nPairs = 4;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

bool IsLast() {
  return RankIn(MPI_COMM_WORLD) == SizeOf(MPI_COMM_WORLD) - 1;
}

/// Elements on a line, and a preconditioner.
template <typename Scalar>
struct Line {
  using Operator = SparseOperator<Scalar>;

  explicit Line(int n) : box{{n}} {}
  static constexpr Operator* none = nullptr;

  const Box box;
  const Rows rows{box.Order(), MPI_COMM_WORLD, Deal::growing};
  Operator A{rows, [this](int i) { return Phased<Scalar>(i, box.Laplacian(i)); }};
  Operator B{rows, [this](int i) { return Phased<Scalar>(i, box.Mass(i)); }};
  Operator T{rows, [](int i) { return typename Operator::Row{{i, Number<Scalar>(0.5)}}; }};
};

TEST(Texts, DifferWhereTheNumberIsKnown) {
  EXPECT_STREQ(VesGetVersion(), PROJECT_VERSION);
  std::set<std::string> codes, reasons;
  for (const int code : {0, -1, -2, -4, -5, -6, -7, -3, 1, 99}) // unknown from -3 on
    codes.insert(VesErrorString(static_cast<VesReturnCode>(code)));
  for (const int reason : {0, 1, 2, 3, 4, 5, 6, -1}) // unknown from 6 on
    reasons.insert(VesReasonString(static_cast<VesSolverReason>(reason)));
  EXPECT_EQ(codes.size(), 8U);
  EXPECT_EQ(reasons.size(), 7U);
}

/// Runs of each solver on the elements of a line, with all that is said of the last one.
class ReportTest : public testing::TestWithParam<VesSolverType> {
protected:
  ReportTest() { VesSolverSetMaxIter(solver, 1000); }

  void Solve(bool isGeneralized) {
    generalized = isGeneralized;
    calls = 0;
    hasLocked = false;
    line.A.columns = line.B.columns = line.T.columns = 0;
    VesSolverSetProblemType(solver, generalized ? VES_PROBLEM_GENERALIZED : VES_PROBLEM_STANDARD);
    p.FillRandom();
    p.Run(solver, &line.A, MassOrNone(), &line.T);
    EXPECT_EQ(p.code, VES_GOOD);
    EXPECT_EQ(VesGetSolverReason(solver, &reason), VES_GOOD);
    EXPECT_EQ(VesGetSolverStats(solver, &stats), VES_GOOD);
    EXPECT_EQ(stats.columnsA, line.A.columns);
    EXPECT_EQ(stats.columnsB, line.B.columns);
    EXPECT_EQ(stats.columnsT, line.T.columns);
  }

  SparseOperator<double>* MassOrNone() { return generalized ? &line.B : nullptr; }

  static int Follow(void* test, const VesProgress* at) {
    auto& t = *static_cast<ReportTest*>(test);
    EXPECT_EQ(at->iteration, t.calls++);
    EXPECT_EQ(at->wanted, nPairs);
    EXPECT_TRUE(0 <= at->converged && at->converged <= nPairs);
    EXPECT_TRUE(at->locked >= 0 && at->active >= 0 && at->locked + at->active == nPairs);
    EXPECT_EQ(at->columnsA, t.line.A.columns);
    t.hasLocked = t.hasLocked || (at->locked > 0 && at->active > 0);
    t.converged = at->converged;
    t.values.assign(at->values, at->values + nPairs);
    t.residuals.assign(at->residuals, at->residuals + nPairs);
    return at->iteration == t.stopAt && RankIn(MPI_COMM_WORLD) == t.stopRank ? 7 : 0;
  }

  Line<double> line{120};
  Pairs<double> p{line.rows, nPairs};
  const SolverHandle owner = ves::makeSolver<double>(GetParam());
  VesSolver const solver = owner.get();
  VesSolverReason reason = VES_REASON_NONE;
  VesSolverStats stats{};
  bool generalized = false;

  int stopAt = -1, stopRank = 0; ///< where the monitor asks for the end
  int calls = 0, converged = 0;
  bool hasLocked = false;
  std::vector<double> values, residuals; ///< of the last call
};
INSTANTIATE_TEST_SUITE_P(Solvers, ReportTest, testing::ValuesIn(allSolvers));

TEST_P(ReportTest, MonitorFollowsTheRun) {
  for (const bool isGeneralized : {false, true}) {
    VesSolverSetMonitor(solver, Follow, this);
    Solve(isGeneralized);
    EXPECT_EQ(reason, VES_REASON_CONVERGED);
    EXPECT_EQ(calls, p.iter + 1);
    EXPECT_EQ(converged, nPairs);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    const auto norms = ResidualNorms(p, line.A, MassOrNone());
    for (std::size_t j = 0; j < nPairs; ++j) {
      EXPECT_NEAR(values[j], p.D[j], 1e-12);
      EXPECT_NEAR(residuals[j], norms[j], 1e-10);
      EXPECT_LT(residuals[j], 1e-6);
    }
    VesSolverSetMonitor(solver, nullptr, nullptr);
    Solve(isGeneralized);
    EXPECT_EQ(calls, 0);
  }
}

TEST_P(ReportTest, MonitorOfTheFirstProcessEndsTheRun) {
  Solve(false);
  const int whole = p.iter;
  VesSolverSetMonitor(solver, Follow, this);
  for (const int rank : {0, SizeOf(MPI_COMM_WORLD) - 1})
    for (const int at : {0, 3}) {
      SCOPED_TRACE(testing::Message() << "process " << rank << " asks after " << at);
      stopAt = at;
      stopRank = rank;
      Solve(false);
      EXPECT_EQ(reason, rank == 0 ? VES_REASON_MONITOR : VES_REASON_CONVERGED);
      EXPECT_EQ(p.iter, rank == 0 ? at : whole);
      EXPECT_EQ(calls, p.iter + 1);
      for (const double value : p.D)
        EXPECT_TRUE(std::isfinite(value));
    }
}

TEST_P(ReportTest, CostsAreThoseOfTheLastRun) {
  EXPECT_EQ(VesGetSolverReason(solver, &reason), VES_GOOD);
  EXPECT_EQ(reason, VES_REASON_NONE);
  stats.columnsA = stats.reserved[6] = 1;
  EXPECT_EQ(VesGetSolverStats(solver, &stats), VES_GOOD);
  EXPECT_TRUE(stats.columnsA == 0 && stats.secondsTotal == 0.0 && stats.reserved[6] == 0);
  VesSolverSetMaxIter(solver, 20);
  int products = 0;
  for (SparseOperator<double>* op : {&line.A, &line.B, &line.T})
    op->spoil = [&](double*, int, int, int) {
      ++products;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
  for (const bool isGeneralized : {true, false}) {
    products = 0;
    Solve(isGeneralized);
    EXPECT_TRUE(stats.columnsA > 0 && stats.columnsT > 0 && (stats.columnsB > 0) == generalized);
    EXPECT_GT(stats.secondsOperators, 0.9e-3 * products);
    EXPECT_GT(stats.secondsDense, 0.0);
    EXPECT_LE(stats.secondsOperators + stats.secondsDense, stats.secondsTotal);
  }
}

TEST_P(ReportTest, ReasonsOfAnEndWithoutAllPairs) {
  VesSolverSetMaxIter(solver, 3);
  Solve(false);
  EXPECT_EQ(reason, VES_REASON_ITERATIONS);
  EXPECT_TRUE(p.nConv < nPairs && p.iter >= 3);

  VesSolverSetMaxIter(solver, 2000);
  VesSolverSetThreshold(solver, 1e-17); // below all rounding errors
  Solve(true);
  EXPECT_EQ(reason, VES_REASON_STAGNATED);
  EXPECT_TRUE(p.nConv < nPairs && p.iter < 1000);
  for (const double norm : ResidualNorms(p, line.A, &line.B))
    EXPECT_LT(norm, 1e-12);

  Line<double> shortOne(3);
  Pairs<double> four(shortOne.rows, nPairs);
  four.FillRandom();
  four.Run(solver, &shortOne.A);
  EXPECT_EQ(solver->reason, VES_REASON_STAGNATED);
  EXPECT_EQ(four.nConv, 0);
  EXPECT_EQ(four.D[3], infinity);
}

TEST_P(ReportTest, OperatorsThatAreNotFiniteEndTheRun) {
  const struct {
    char op;
    int call; ///< from which on the last process returns the entry
    double entry;
  } cases[] = {{'A', 1, nan}, {'A', 4, nan},      {'A', 4, infinity}, {'B', 1, nan},
               {'B', 4, nan}, {'B', 4, infinity}, {'T', 2, nan},      {'T', 2, infinity}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.op << " returns " << c.entry << " from call " << c.call);
    int products = 0;
    auto& op = c.op == 'A' ? line.A : c.op == 'B' ? line.B : line.T;
    op.spoil = [&](double* y, int nRows, int, int) {
      if (++products >= c.call && IsLast()) y[nRows / 2] = c.entry;
    };
    Solve(true);
    op.spoil = nullptr;
    EXPECT_EQ(reason, VES_REASON_NONFINITE);
    EXPECT_TRUE(p.nConv < nPairs && p.iter < 50);
  }
}

TEST_P(ReportTest, LockingFollowsItsTestAndFactor) {
  VesSolverSetMonitor(solver, Follow, this);
  Solve(false);
  const long long columns = stats.columnsA;
  const struct {
    double factor;
    VesConvergeDetectorType type;
    bool locks;
  } cases[] = {{0, VES_RESIDUALS, false}, // no norm is below 0
               {1, VES_RESIDUALS, true},
               {1, VES_RELATIVE_RESIDUALS, false}}; // the lowest values are far below 1
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "factor " << c.factor << ", type " << c.type);
    EXPECT_EQ(VesSolverSetLockDetectorType(solver, c.type), VES_GOOD);
    EXPECT_EQ(VesSolverSetLockFactor(solver, c.factor), VES_GOOD);
    Solve(false);
    EXPECT_EQ(p.nConv, nPairs);
    EXPECT_EQ(hasLocked, c.locks);
    EXPECT_TRUE(!c.locks || stats.columnsA <= columns);
  }
}

TEST_P(ReportTest, SelfCheckLeavesSoundRunsAlone) {
  for (const bool isGeneralized : {false, true}) {
    EXPECT_EQ(VesSolverSetSelfCheck(solver, true), VES_GOOD);
    Solve(isGeneralized);
    const Pairs<double> checked = p;
    const long long reductions = stats.reductions;
    EXPECT_EQ(VesSolverSetSelfCheck(solver, false), VES_GOOD);
    Solve(isGeneralized);
    EXPECT_EQ(p.nConv, nPairs);
    EXPECT_EQ(p.iter, checked.iter);
    EXPECT_TRUE(p.X == checked.X && p.D == checked.D);
    EXPECT_LT(stats.reductions, reductions); // what the checks cost
  }
}

TEST(CheckOfPairs, IsWhatRecomputingFinds) {
  using Scalar = std::complex<double>;
  Line<Scalar> line(40);
  Pairs<Scalar> p(line.rows, nPairs);
  p.FillRandom();
  p.Run(MakeSolver<Scalar>({}, true).get(), &line.A, &line.B, &line.T);
  const bool isFirst = RankIn(MPI_COMM_WORLD) == 0;
  const struct {
    const char* spoiled;
    std::function<void(Pairs<Scalar>&)> spoil;
    bool isNumber = true, isOrthoNumber = true;
  } cases[] = {
      {"nothing", [](Pairs<Scalar>&) {}},
      {"a norm", [](Pairs<Scalar>& q) { q.X[0] *= 1.1; }},
      {"an overlap", [](Pairs<Scalar>& q) { q.Column(2)[0] += Scalar(0.0, 0.1); }},
      {"a value", [](Pairs<Scalar>& q) { q.D[1] += 0.02; }},
      {"the first value", [](Pairs<Scalar>& q) { q.D[0] = nan; }, false},
      {"the last value", [](Pairs<Scalar>& q) { q.D[3] = nan; }, false},
      {"an entry here", [&](Pairs<Scalar>& q) { q.X[1] = isFirst ? nan : q.X[1]; }, false, false},
      {"and there", [](Pairs<Scalar>& q) { q.X[1] = IsLast() ? nan : q.X[1]; }, false, false},
  };
  for (const auto& c : cases)
    for (auto* const massOrNone : {&line.B, Line<Scalar>::none}) {
      SCOPED_TRACE(testing::Message() << c.spoiled << (massOrNone != nullptr ? ", B" : ""));
      Pairs<Scalar> q(p);
      c.spoil(q);
      const MatrixHandle A = MakeMatrix(&line.A), B = MakeMatrix(massOrNone);
      const auto X = MakeVector(MPI_COMM_WORLD, q.rows.local, nPairs, q.X.data(), q.ld);
      const auto D = MakeVector(MPI_COMM_WORLD, nPairs, 1, q.D.data(), nPairs);
      double residual = -1, orthoError = -1;
      EXPECT_EQ(VesCheckEigenpairs(A.get(), B.get(), X.get(), D.get(), &residual, &orthoError),
                VES_GOOD);
      EXPECT_EQ(std::isnan(residual), !c.isNumber);
      EXPECT_EQ(std::isnan(orthoError), !c.isOrthoNumber);
      const auto norms = ResidualNorms(q, line.A, massOrNone);
      if (c.isNumber) {
        EXPECT_NEAR(residual, *std::max_element(norms.begin(), norms.end()), 1e-13);
        EXPECT_NEAR(orthoError, OrthogonalityError(q, massOrNone), 1e-13);
      }
    }
}

} // namespace
