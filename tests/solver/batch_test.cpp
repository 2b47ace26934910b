// What only the batched solver has: the moving batch, its refill, and the count of its passes.
#include "solver/lobpcg_batch.h"
#include "support/gallery.h"

using namespace VesTest;

namespace {

Settings Batches(int nBands, int limit, int maxIter = 2000) {
  Settings s{VES_LOBPCG_BATCH, nBands, 1e-6, maxIter};
  s.width = limit;
  return s;
}

template <typename Scalar>
class BatchTest : public testing::Test {
protected:
  static constexpr double threshold = ByPrecision<Scalar>(1e-6, 2e-3);
};
TYPED_TEST_SUITE(BatchTest, AllScalars);

/// While one batch holds all pairs, both solvers are the same method.
TYPED_TEST(BatchTest, OneBatchIsLobpcg) {
  for (const bool generalized : {false, true})
    for (const bool preconditioned : {false, true}) {
      SCOPED_TRACE(testing::Message() << "generalized " << generalized << " T " << preconditioned);
      Problem<TypeParam> on = OnBox<TypeParam>({7, 8, 9}, generalized, preconditioned);
      const Pairs<TypeParam> whole = Solve(on, {VES_LOBPCG, 10, this->threshold, 1000});
      const long columns = std::exchange(on.A.columns, 0);
      const Settings batched{VES_LOBPCG_BATCH, 10, this->threshold, 1000};
      EXPECT_EQ(SolveAll(on, batched).iter, whole.iter);
      EXPECT_EQ(on.A.columns, columns);
    }
}

TYPED_TEST(BatchTest, MovesOverTheWantedPairs) {
  const Guess<TypeParam> random = RandomGuess<TypeParam>();
  const Guess<TypeParam> dependent = [&](int i, int j) { // zero and not finite ones among them
    return j == 13   ? random(i, 2)
           : j == 19 ? TypeParam{}
           : j == 22 ? Number<TypeParam>(i == 5 ? notANumber : 1.0)
                     : random(i, j);
  };
  const struct {
    const char* reason;
    bool generalized, preconditioned;
    int nBands, limit;
    Guess<TypeParam> guess;
  } cases[] = {{"wide batches", false, true, 40, 16, random},
               {"narrow batches", false, false, 40, 5, random},
               {"wide batches of a generalized problem", true, false, 40, 16, random},
               {"narrow batches of a generalized problem", true, true, 40, 5, random},
               {"later batches completed by random columns", false, false, 24, 8, dependent}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    Problem<TypeParam> on = OnBox<TypeParam>({7, 8, 9}, c.generalized, c.preconditioned);
    Settings s = Batches(c.nBands, c.limit);
    s.threshold = this->threshold;
    // The gap behind the wanted values is small.
    SolveAll(on, s, c.guess, {ByPrecision<TypeParam>(1e-9, s.threshold)});
  }
}

/// A = diag(1, 2, ...), whole on each process: eigenvectors that A meets can be told from its
/// output.
struct Watched {
  Problem<double> on;
  Ints met; ///< row of the unit vector in each column that A was applied to, or -1

  static double Value(int i) { return 1.0 + i; }

  explicit Watched(int n) : on(OnDiagonal<double>(n, Value, nullptr, nullptr, self)) {
    on.A.spoil = [this](double* y, int nRows, int nCols, int ld) {
      for (int j = 0; j < nCols; ++j) {
        const double* const column = y + static_cast<std::ptrdiff_t>(j) * ld;
        const auto isOne = [&](int i) { return std::abs(column[i] / Value(i)) > 0.999; };
        int i = 0;
        while (i < nRows && !isOne(i))
          ++i;
        met.push_back(i < nRows ? i : -1);
      }
    };
  }
};

TEST(BatchRefill, TakesTheGuessInItsOrder) {
  const struct {
    const char* reason;
    int nBands, limit, iter;
  } cases[] = {{"passes -1, 0 and 1 load 16, 16 and 8 columns", 40, 16, 2},
               {"half of a batch of one is none, and yet it is refilled", 5, 1, 4}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    Watched w(100);
    const Pairs<double> p =
        Solve(w.on, Batches(c.nBands, c.limit), [](int i, int j) { return i == j ? 3.0 : 0.0; });
    EXPECT_EQ(p.nConv, c.nBands);
    EXPECT_EQ(p.iter, c.iter);
    Ints inOrder(static_cast<std::size_t>(c.nBands));
    std::iota(inOrder.begin(), inOrder.end(), 0);
    EXPECT_EQ(w.met, inOrder);
  }
}

/// Of 24 close values 12 vectors find none, since those outside are as close as those inside. With
/// rounding the run takes 140 to 560 iterations.
TEST(BatchRefill, GrowsInAGroupOfCloseValues) {
  Problem<double> on =
      OnDiagonal<double>(240, [](int i) { return 1.0 + i / 24 + 1e-6 * (i % 24); });
  Settings s = Batches(40, 48, 1500);
  s.threshold = 1e-8;
  s.maxOrthoIter = 2;
  const SolverHandle solver = MakeSolver<double>(s, false);
  VesSolverSetLockFactor(solver.get(), 1.0);
  VesSolverSetBatchStart(solver.get(), 12);
  Pairs<double> p = SolveBy(solver.get(), on, s.nBands);
  ExpectAllConverged(p, on, s.threshold, {1e-9});
}

/// A batch waits until less than half of it is left, and then is filled up to its limit.
TEST(BatchRefill, WhenHalfOfTheBatchIsLeft) {
  static constexpr int nBands = 40, limit = 8;
  Watched w(200);
  struct Log {
    int locked = 0, active = limit, refills = 0;
  } log;
  const VesMonitor follow = [](void* data, const VesProgress* at) {
    Log& before = *static_cast<Log*>(data);
    const int left = before.active - (at->locked - before.locked); // if no column came in
    if (at->iteration > 0 && at->active != left) {
      EXPECT_EQ(at->active + (at->locked - before.locked), std::min(limit, nBands - before.locked));
      EXPECT_LT(before.active, limit / 2);
      ++before.refills;
    } else {
      EXPECT_TRUE(before.active >= limit / 2 || before.locked + before.active == nBands);
    }
    before.locked = at->locked;
    before.active = at->active;
    return 0;
  };
  const SolverHandle solver = MakeSolver<double>(Batches(nBands, limit, 3000), false);
  VesSolverSetSelfCheck(solver.get(), false); // which refills a batch that is slow, too
  VesSolverSetMonitor(solver.get(), follow, &log);
  EXPECT_EQ(SolveBy(solver.get(), w.on, nBands).nConv, nBands);
  EXPECT_GE(log.refills, nBands / limit - 1);
}

/// Restarts in every pass, and the stagnation that they make of it, neither lose a column of the
/// guess nor a pair of the batches before. The first refill finds columns 9 ... 15 unconverged.
TEST(BatchRefill, KeepsTheGuessThroughRestarts) {
  Watched w(100);
  const SolverHandle solver = MakeSolver<double>(Batches(40, 16, 100), false);
  const VesMonitor askRestart = [](void* data, const VesProgress*) {
    static_cast<Ves::LOBPCG_BATCH<double>*>(data)->check.RequestRestart();
    return 0;
  };
  VesSolverSetMonitor(solver.get(), askRestart,
                      dynamic_cast<Ves::LOBPCG_BATCH<double>*>(solver.get()));
  Pairs<double> p = SolveBy(solver.get(), w.on, 40, [](int i, int j) {
    const bool isNoisy = j >= 9 && j < 16 && i >= 60;
    return i == j ? 3.0 : isNoisy ? 0.3 * HashedNumber<double>(i, j) : 0.0;
  });
  EXPECT_GT(p.nConv, 8);
  EXPECT_LE(OrthogonalityError(p, w.on), 1e-12);
  for (int j = 0; j < 40; ++j) {
    const auto isOf = [j](double value) { return std::abs(value - Watched::Value(j)) < 1e-6; };
    EXPECT_TRUE((j >= 9 && j < 16) || std::any_of(p.D.begin(), p.D.end(), isOf)) << j;
  }
}

/// Passes -1 ... maxIter, of which the last but one gives its directions up and the last brings in
/// all that remains of the guess.
TEST(BatchPasses, AsManyAsTheLimitSays) {
  const struct {
    const char* reason;
    int nBands, limit, maxIter, iter;
    std::size_t columns;
  } cases[] = {
      {"the first batch and the rest", 40, 16, 0, 1, 16 + 24},
      {"one iteration between them", 40, 16, 1, 2, 16 + 16 + 24},
      {"nothing remains for a last pass", 12, 16, 1, 1, 12 + 12},
      {"the last pass is far wider than the batch", 150, 64, 3, 4, 4 * 64 + 86},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    Watched w(2 * c.nBands + 400);
    const SolverHandle solver = MakeSolver<double>(Batches(c.nBands, c.limit), false);
    solver->maxIter = c.maxIter; // the flat setter refuses 0
    Pairs<double> p = SolveBy(solver.get(), w.on, c.nBands);
    EXPECT_EQ(p.iter, c.iter);
    EXPECT_EQ(w.met.size(), c.columns);
    EXPECT_EQ(p.nConv, 0);
    EXPECT_LE(OrthogonalityError(p, w.on), 1e-12);
    EXPECT_TRUE(std::is_sorted(p.D.begin(), p.D.begin() + c.nBands));
    for (int j = 0; j < c.nBands; j += 7) { // Rayleigh quotients of what came back
      double quotient = 0.0;
      for (int i = 0; i < w.on.rows.n; ++i)
        quotient += Watched::Value(i) * p.Column(j)[i] * p.Column(j)[i];
      EXPECT_NEAR(p.Value(j), quotient, 1e-9);
    }
  }
}

/// What had converged before the last pass must still hold after new columns came in.
TEST(BatchPasses, ClaimsOnlyWhatTheLastPassLeft) {
  Watched w(60);
  Pairs<double> p = Solve(w.on, Batches(30, 12, 1), [](int i, int j) {
    return j < 3 ? (i == j ? 1.0 : 0.0) : HashedNumber<double>(i, j);
  });
  const std::vector<double> residuals = ResidualNorms(p, w.on);
  const auto isOpen = [](double residual) { return residual >= 1e-6; };
  EXPECT_GE(p.nConv, 3);
  EXPECT_EQ(p.nConv, std::find_if(residuals.begin(), residuals.end(), isOpen) - residuals.begin());
}

} // namespace
