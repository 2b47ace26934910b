// What only the batched solver has: the moving batch, its refill, and the count of its passes.
#include "solver/lobpcg_batch.h"
#include "support/gallery.h"

using namespace VesTest;

namespace {

template <typename Scalar>
class BatchTest : public testing::Test {
protected:
  static constexpr double threshold = eps<Scalar> < 1e-10 ? 1e-6 : 2e-3;
  BoxGallery<Scalar> on{{7, 8, 9}};

  static SolverHandle Solver(VesSolverType type, bool generalized, int limit = 256) {
    Settings s;
    s.solver = type;
    s.threshold = threshold;
    s.maxIter = 2000;
    SolverHandle solver = MakeSolver<Scalar>(s, generalized);
    EXPECT_EQ(VesSolverSetBatchLimit(solver.get(), limit),
              type == VES_LOBPCG_BATCH ? VES_GOOD : VES_ERR_INCOMPATIBLE);
    return solver;
  }

  void ExpectRight(Pairs<Scalar>& p, bool generalized) {
    Limits limits;
    limits.value = eps<Scalar> < 1e-10 ? 1e-9 : threshold; // values err by less than the residual
    ExpectAllConverged(p, on.A(generalized), on.B(generalized), on.Exact(generalized), threshold,
                       limits);
  }
};
TYPED_TEST_SUITE(BatchTest, AllScalars);

/// While one batch holds all pairs, both solvers are the same method.
TYPED_TEST(BatchTest, OneBatchIsLobpcg) {
  for (const bool generalized : {false, true})
    for (const bool preconditioned : {false, true}) {
      SCOPED_TRACE(testing::Message() << "generalized " << generalized << " T " << preconditioned);
      SparseOperator<TypeParam>& A = this->on.A(generalized);
      int iterations[2], at = 0;
      long columns[2];
      for (const auto type : {VES_LOBPCG, VES_LOBPCG_BATCH}) {
        Pairs<TypeParam> p(this->on.rows, 10);
        p.FillRandom();
        A.columns = 0;
        p.Run(this->Solver(type, generalized).get(), &A, this->on.B(generalized),
              this->on.T(preconditioned));
        this->ExpectRight(p, generalized);
        iterations[at] = p.iter;
        columns[at++] = A.columns;
      }
      EXPECT_EQ(iterations[0], iterations[1]);
      EXPECT_EQ(columns[0], columns[1]);
    }
}

TYPED_TEST(BatchTest, MovesOverTheWantedPairs) {
  for (const bool generalized : {false, true})
    for (const int limit : {16, 5}) {
      SCOPED_TRACE(testing::Message() << "generalized " << generalized << " limit " << limit);
      Pairs<TypeParam> p(this->on.rows, 40);
      p.FillRandom();
      p.Run(this->Solver(VES_LOBPCG_BATCH, generalized, limit).get(), &this->on.A(generalized),
            this->on.B(generalized));
      this->ExpectRight(p, generalized);
    }
}

/// Dependent, zero and non-finite columns of any batch are made up for by random ones.
TYPED_TEST(BatchTest, CompletesALaterBatch) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  Pairs<TypeParam> p(this->on.rows, 24);
  p.FillGuess([&](int i, int j) {
    return j == 13   ? HashedNumber<TypeParam>(i, 2)
           : j == 19 ? TypeParam{}
           : j == 22 ? Number<TypeParam>(i == 5 ? nan : 1.0)
                     : HashedNumber<TypeParam>(i, j);
  });
  p.Run(this->Solver(VES_LOBPCG_BATCH, false, 8).get(), &this->on.A(false));
  this->ExpectRight(p, false);
}

/// More pairs than the default batch of 256 holds: A = diag(a) and B = diag(b) with values 1 + i /
/// 100 of the pair, and a preconditioner that makes them few passes.
TYPED_TEST(BatchTest, DefaultLimit) {
  using Operator = SparseOperator<TypeParam>;
  const int n = 520;
  const Rows rows(n, MPI_COMM_WORLD, Deal::growing);
  const auto value = [](int i) { return 1.0 + 0.01 * i; };
  const auto diagonal = [&](const std::function<double(int)>& entry) {
    return Operator(rows, [entry](int i) {
      return typename Operator::Row{{i, Number<TypeParam>(entry(i))}};
    });
  };
  for (const bool generalized : {false, true}) {
    SCOPED_TRACE(generalized);
    const auto b = [generalized](int i) { return generalized ? 1.0 + 0.2 * (i % 5) : 1.0; };
    Operator A = diagonal([&](int i) { return value(i) * b(i); });
    Operator B = diagonal(b);
    Operator T = diagonal([&](int i) { return 1.0 / (value(i) * (1.0 + 0.1 * (i % 3))); });
    Operator* const massOrNone = generalized ? &B : nullptr;
    Settings s;
    s.solver = VES_LOBPCG_BATCH;
    s.nBands = generalized ? 270 : 290;
    s.threshold = eps<TypeParam> < 1e-10 ? 1e-3 : 5e-3;
    s.maxIter = 1000;
    Pairs<TypeParam> p(rows, s.nBands);
    p.FillRandom();
    p.Run(MakeSolver<TypeParam>(s, generalized).get(), &A, massOrNone, &T);
    Limits limits;
    limits.value = s.threshold; // values err by less than the residual
    ExpectAllConverged(p, A, massOrNone, Spectrum(n, value), s.threshold, limits);
  }
}

/// A = diag(1, 2, ...): eigenvectors that A meets can be told from its output.
struct Diagonal {
  Rows rows;
  SparseOperator<double> A{rows, [](int i) { return SparseOperator<double>::Row{{i, Value(i)}}; }};
  std::vector<int> met; ///< row of the unit vector in each column that A was applied to

  static double Value(int i) { return 1.0 + i; }

  explicit Diagonal(int n) : rows(n, MPI_COMM_SELF) {
    A.spoil = [this](double* y, int nRows, int nCols, int ld) {
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

  SolverHandle Solver(int limit, int maxIter) const {
    Settings s;
    s.solver = VES_LOBPCG_BATCH;
    SolverHandle solver = MakeSolver<double>(s, false);
    VesSolverSetBatchLimit(solver.get(), limit);
    solver->maxIter = maxIter; // the flat setter refuses 0
    return solver;
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
    Diagonal d(100);
    Pairs<double> p(d.rows, c.nBands);
    p.FillGuess([](int i, int j) { return i == j ? 3.0 : 0.0; });
    p.Run(d.Solver(c.limit, 50).get(), &d.A);
    EXPECT_EQ(p.nConv, c.nBands);
    EXPECT_EQ(p.iter, c.iter);
    std::vector<int> inOrder(static_cast<std::size_t>(c.nBands));
    std::iota(inOrder.begin(), inOrder.end(), 0);
    EXPECT_EQ(d.met, inOrder);
  }
}

/// Of 24 close values 12 vectors find none, since those outside are as close as those inside.
TEST(BatchRefill, GrowsInAGroupOfCloseValues) {
  const Rows rows(240, MPI_COMM_WORLD);
  const auto valueOf = [](int i) { return 1.0 + i / 24 + 1e-6 * (i % 24); };
  SparseOperator<double> A(rows, [&](int i) {
    return SparseOperator<double>::Row{{i, valueOf(i)}};
  });
  Settings s;
  s.solver = VES_LOBPCG_BATCH;
  s.nBands = 40;
  s.threshold = 1e-8;
  s.maxIter = 400;
  s.maxOrthoIter = 2;
  const SolverHandle solver = MakeSolver<double>(s, false);
  VesSolverSetLockFactor(solver.get(), 1.0);
  VesSolverSetBatchLimit(solver.get(), 48);
  VesSolverSetBatchStart(solver.get(), 12);
  Pairs<double> p(rows, s.nBands);
  p.FillRandom();
  p.Run(solver.get(), &A);
  EXPECT_EQ(p.nConv, p.k);
  for (int j = 0; j < p.nConv; ++j)
    EXPECT_NEAR(p.D[static_cast<std::size_t>(j)], valueOf(j), 1e-9);
}

/// A batch waits until less than half of it is left, and then is filled up to its limit.
TEST(BatchRefill, WhenHalfOfTheBatchIsLeft) {
  static constexpr int nBands = 40, limit = 8;
  Diagonal d(200);
  Pairs<double> p(d.rows, nBands);
  p.FillRandom();
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
    }
    before.locked = at->locked;
    before.active = at->active;
    return 0;
  };
  const SolverHandle solver = d.Solver(limit, 3000);
  VesSolverSetSelfCheck(solver.get(), false); // which refills a batch that is slow, too
  VesSolverSetMonitor(solver.get(), follow, &log);
  p.Run(solver.get(), &d.A);
  EXPECT_EQ(p.nConv, nBands);
  EXPECT_GE(log.refills, nBands / limit - 1);
}

/// Restarts in every pass, and the stagnation that they make of it, neither lose a column of the
/// guess nor a pair of the batches before. The first refill finds columns 9 ... 15 unconverged.
TEST(BatchRefill, KeepsTheGuessThroughRestarts) {
  Diagonal d(100);
  Pairs<double> p(d.rows, 40);
  p.FillGuess([](int i, int j) {
    const bool isNoisy = j >= 9 && j < 16 && i >= 60;
    return i == j ? 3.0 : isNoisy ? 0.3 * HashedNumber<double>(i, j) : 0.0;
  });
  const SolverHandle solver = d.Solver(16, 100);
  const VesMonitor askRestart = [](void* data, const VesProgress*) {
    static_cast<Ves::LOBPCG_BATCH<double>*>(data)->check.RequestRestart();
    return 0;
  };
  VesSolverSetMonitor(solver.get(), askRestart,
                      dynamic_cast<Ves::LOBPCG_BATCH<double>*>(solver.get()));
  p.Run(solver.get(), &d.A);
  EXPECT_GT(p.nConv, 8);
  EXPECT_LE(OrthogonalityError(p, nullptr), 1e-12);
  for (int j = 0; j < 40; ++j) {
    const auto isOf = [j](double value) { return std::abs(value - Diagonal::Value(j)) < 1e-6; };
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
      {"the last pass is far wider than the batch", 600, 256, 3, 4, 4 * 256 + 344},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    Diagonal d(2 * c.nBands + 400);
    Pairs<double> p(d.rows, c.nBands);
    p.FillRandom();
    p.Run(d.Solver(c.limit, c.maxIter).get(), &d.A);
    EXPECT_EQ(p.iter, c.iter);
    EXPECT_EQ(d.met.size(), c.columns);
    EXPECT_EQ(p.nConv, 0);
    EXPECT_LE(OrthogonalityError(p, nullptr), 1e-12);
    EXPECT_TRUE(std::is_sorted(p.D.begin(), p.D.begin() + c.nBands));
    for (int j = 0; j < c.nBands; j += 7) { // Rayleigh quotients of what came back
      double quotient = 0.0;
      for (int i = 0; i < d.rows.n; ++i)
        quotient += Diagonal::Value(i) * p.Column(j)[i] * p.Column(j)[i];
      EXPECT_NEAR(p.D[static_cast<std::size_t>(j)], quotient, 1e-9);
    }
  }
}

/// What had converged before the last pass must still hold after new columns came in.
TEST(BatchPasses, ClaimsOnlyWhatTheLastPassLeft) {
  Diagonal d(60);
  Pairs<double> p(d.rows, 30);
  p.FillGuess(
      [](int i, int j) { return j < 3 ? (i == j ? 1.0 : 0.0) : HashedNumber<double>(i, j); });
  p.Run(d.Solver(12, 1).get(), &d.A);
  EXPECT_GE(p.nConv, 3);
  EXPECT_EQ(p.nConv, RecomputedConverged(p, d.A, nullptr, 1e-6));
}

TEST(BatchSetter, CodesInTheirOrder) {
  Settings s;
  s.solver = VES_LOBPCG_BATCH;
  const SolverHandle batched = MakeSolver<float>(s, false), lobpcg = MakeSolver<float>({}, false);
  EXPECT_EQ(batched->solverType, VES_LOBPCG_BATCH);
  EXPECT_EQ(VesSolverSetBatchLimit(lobpcg.get(), 0), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesSolverSetBatchLimit(batched.get(), 0), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesSolverSetBatchStart(lobpcg.get(), -1), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesSolverSetBatchStart(batched.get(), -1), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(dynamic_cast<const Ves::LOBPCG_BATCH<float>&>(*batched).batchLimit, 256);
}

} // namespace
