// Runs that end with the wanted pairs, begin in single precision, or make inner steps.
#include "support/gallery.h"

using namespace VesTest;

namespace {

/// What a run is asked for beyond the written steps.
struct Asked {
  int wanted = 0, innerSteps = 0;
  bool isMixed = false, hasLow = false;
};

std::ostream& operator<<(std::ostream& out, const Asked& asked) {
  return out << ", wanted " << asked.wanted << ", inner steps " << asked.innerSteps << ", mixed "
             << asked.isMixed << ", low routines " << asked.hasLow;
}

/// A problem in both precisions.
template <typename Scalar>
struct Both {
  using Low = Ves::LowType<Scalar>;

  Problem<Scalar> high;
  Problem<Low> low;

  Pairs<Scalar> Run(const Settings& s, const Asked& asked,
                    const Guess<Scalar>& guess = RandomGuess<Scalar>()) {
    const SolverHandle solver = MakeSolver<Scalar>(s, high.B != nullptr);
    return RunBy(solver.get(), s, asked, guess);
  }

  Pairs<Scalar> RunBy(VesSolver solver, const Settings& s, const Asked& asked,
                      const Guess<Scalar>& guess = RandomGuess<Scalar>()) {
    EXPECT_EQ(VesSolverSetWanted(solver, asked.wanted), VES_GOOD);
    EXPECT_EQ(VesSolverSetMixedPrecision(solver, asked.isMixed), VES_GOOD);
    EXPECT_EQ(VesSolverSetInnerSteps(solver, asked.innerSteps), VES_GOOD);
    Pairs<Scalar> p(high.rows, s.nBands);
    p.Fill(guess);
    const MatrixHandle a = MakeMatrix(&high.A), b = MakeMatrix(high.B.get()),
                       t = MakeMatrix(high.T.get());
    const auto lower = [&](const MatrixHandle& matrix, SparseOperator<Low>* op) {
      if (matrix && asked.hasLow) {
        EXPECT_EQ(VesMatrixSetShellMatVecLow(matrix.get(), op, &SparseOperator<Low>::Shell),
                  VES_GOOD);
      }
    };
    lower(a, &low.A);
    lower(b, low.B.get());
    lower(t, low.T.get());
    p.RunOn(solver, a.get(), b.get(), t.get());
    return p;
  }
};

template <typename Scalar>
Both<Scalar> OnBoxes(bool generalized, bool preconditioned) {
  const Ints dims{6, 7, 8};
  return {OnBox<Scalar>(dims, generalized, preconditioned),
          OnBox<Ves::LowType<Scalar>>(dims, generalized, preconditioned)};
}

template <typename Scalar>
class AdditionsTest : public testing::Test {};
using DoubleScalars = testing::Types<double, std::complex<double>>;
TYPED_TEST_SUITE(AdditionsTest, DoubleScalars);

TYPED_TEST(AdditionsTest, LeadingPairsAreRightAndConverged) {
  const Asked table[] = {{7},    {0, 0, true}, {0, 0, true, true}, {7, 0, true, true},
                         {0, 4}, {0, -1},      {7, 4, true, true}, {7, 1, true}};
  for (const bool generalized : {false, true})
    for (const bool preconditioned : {false, true}) {
      auto on = OnBoxes<TypeParam>(generalized, preconditioned);
      for (const auto solver : allSolvers)
        for (const Asked& asked : table) {
          Settings s = WithinReach<TypeParam>(solver, 10);
          s.threshold = 1e-9;
          s.width = 6;
          SCOPED_TRACE(testing::Message() << s << asked);
          const Pairs<TypeParam> p = on.Run(s, asked);
          const int wanted = asked.wanted > 0 ? asked.wanted : p.k;
          EXPECT_EQ(p.reason, VES_REASON_CONVERGED) << "after " << p.iter;
          EXPECT_GE(p.nConv, wanted);
          EXPECT_LE(OrthogonalityError(p, on.high), 1e-11);
          const std::vector<double> residuals = ResidualNorms(p, on.high);
          for (int j = 0; j < p.k; ++j) { // a guard is as far as it has come
            EXPECT_LE(residuals.data()[j], j < wanted ? 2 * s.threshold : 0.5) << "pair " << j;
            EXPECT_NEAR(p.Value(j), on.high.exact.data()[j], j < wanted ? 1e-11 : 0.5)
                << "pair " << j;
          }
        }
    }
}

/// Steps towards an inverse stand for iterations, and what they apply is counted.
TYPED_TEST(AdditionsTest, InnerStepsSaveIterations) {
  for (const bool generalized : {false, true}) {
    auto on = OnBoxes<TypeParam>(generalized, false);
    for (const auto solver : allSolvers) {
      SCOPED_TRACE(solver);
      const Settings s = WithinReach<TypeParam>(solver, 8);
      const int plain = on.Run(s, {}).iter;
      const SolverHandle run = MakeSolver<TypeParam>(s, generalized);
      const long before = on.high.A.columns;
      const Pairs<TypeParam> p = on.RunBy(run.get(), s, {0, 6});
      EXPECT_EQ(p.nConv, 8);
      EXPECT_LE(3 * p.iter, 2 * plain);
      VesSolverStats stats;
      EXPECT_EQ(VesGetSolverStats(run.get(), &stats), VES_GOOD);
      if (on.high.rows.local > 0) {
        EXPECT_EQ(stats.columnsA, on.high.A.columns - before);
      }
    }
  }
}

/// A value that stands alone above the others is met by the polynomials before it is known.
TYPED_TEST(AdditionsTest, InnerStepsLearnOfASingleValue) {
  const int n = 20000;
  int iterations[2] = {};
  for (const bool hasOne : {false, true}) {
    auto on = OnDiagonal<TypeParam>(
        n, [&](int i) { return hasOne && i == 777 ? 1050.0 : 1.0 + 1000.0 * i / n; });
    const Settings s{VES_LOBPCG, 4, 1e-3, 100};
    const SolverHandle run = MakeSolver<TypeParam>(s, false);
    EXPECT_EQ(VesSolverSetInnerSteps(run.get(), 40), VES_GOOD);
    const Pairs<TypeParam> p = SolveBy(run.get(), on, s.nBands, RandomGuess<TypeParam>());
    EXPECT_EQ(p.nConv, 4);
    iterations[hasOne] = p.iter;
  }
  EXPECT_LE(2 * iterations[1], 3 * iterations[0]);
}

/// Where one routine gives the images under A and B, those of the residuals come from it, unless it
/// contradicts A and B.
TYPED_TEST(AdditionsTest, ImagesMadeTogether) {
  struct Both {
    SparseOperator<TypeParam>*A, *B;
    long columns = 0;
    static void Shell(void* data, void* x, void* ax, void* bx, int nRows, int nCols, int ld) {
      auto& both = *static_cast<Both*>(data);
      SparseOperator<TypeParam>::Shell(both.A, x, ax, nRows, nCols, ld);
      SparseOperator<TypeParam>::Shell(both.B, x, bx, nRows, nCols, ld);
      both.columns += nCols;
    }
  };
  for (const bool isWrong : {false, true})
    for (const auto solver : {VES_LOBPCG, VES_LOBPCG_BATCH}) {
      SCOPED_TRACE(testing::Message() << "solver " << solver << ", wrong " << isWrong);
      auto on = OnBox<TypeParam>({6, 7, 8}, true, solver == VES_LOBPCG);
      Settings s = WithinReach<TypeParam>(solver, 8);
      s.width = 4;
      const int apart = Solve(on, s).iter;
      const long before = on.A.columns;
      const MatrixHandle A = MakeMatrix(&on.A), B = MakeMatrix(on.B.get()),
                         T = MakeMatrix(on.T.get());
      Both both{&on.A, on.B.get()};
      if (isWrong) std::swap(both.A, both.B);
      EXPECT_EQ(VesMatrixSetShellPair(A.get(), B.get(), &both, &Both::Shell), VES_GOOD);
      const SolverHandle run = MakeSolver<TypeParam>(s, true);
      Pairs<TypeParam> p(on.rows, s.nBands);
      p.Fill(RandomGuess<TypeParam>());
      p.RunOn(run.get(), A.get(), B.get(), T.get());
      ExpectAllConverged(p, on, s.threshold);
      EXPECT_LE(2 * std::abs(p.iter - apart), apart) << p.iter << " and " << apart;
      if (on.rows.local > 0) {
        EXPECT_EQ(on.A.columns - before <= 2 * both.columns, !isWrong);
      }
    }
}

/// What single precision cannot hold costs time alone: norms beyond its range or squares beyond it,
/// a B that it takes for singular, a guess outside it. Nor do inner steps overflow there.
TYPED_TEST(AdditionsTest, WhatSinglePrecisionCannotHold) {
  struct Case {
    const char* name;
    double scaleA, conditionB, scaleGuess;
  };
  const Case table[] = {{"norm 1e30", 1e30, 1.0, 1.0},    {"norm 1e-30", 1e-30, 1.0, 1.0},
                        {"norm 1e45", 1e45, 1.0, 1.0},    {"condition of B 1e9", 1.0, 1e9, 1.0},
                        {"small guess", 1.0, 1.0, 1e-60}, {"large guess", 1.0, 1.0, 1e60}};
  const int n = 60, k = 4;
  for (const Case& c : table) {
    const auto value = [&](int i) { return c.scaleA * (1.0 + 0.3 * i); };
    const auto b = [&](int i) { return std::pow(c.conditionB, -((i * 37) % n) / (n - 1.0)); };
    const auto t = [&](int i) { return 1.0 / b(i); };
    Both<TypeParam> on{OnDiagonal<TypeParam>(n, value, b, t),
                       OnDiagonal<Ves::LowType<TypeParam>>(n, value, b, t)};
    const auto guess = [&](int i, int j) {
      return Number<TypeParam>(c.scaleGuess) * HashedNumber<TypeParam>(i, j);
    };
    for (const auto solver : allSolvers)
      for (const Asked& asked :
           {Asked{0, 0, true, false}, {0, 0, true, true}, {0, 3, true, true}}) {
        SCOPED_TRACE(testing::Message() << c.name << ", solver " << solver << asked);
        Settings s = WithinReach<TypeParam>(solver, k);
        s.threshold = 1e-7 * c.scaleA;
        s.maxOrthoIter = 2;
        const Pairs<TypeParam> p = on.Run(s, asked, guess);
        EXPECT_EQ(p.reason, VES_REASON_CONVERGED) << "after " << p.iter;
        EXPECT_EQ(p.nConv, k);
        for (int j = 0; j < k; ++j)
          EXPECT_NEAR(p.Value(j), value(j), 1e-5 * c.scaleA) << "pair " << j;
      }
  }
}

/// An indefinite T, and one that is zero, close the inner steps and harm nothing.
TYPED_TEST(AdditionsTest, InnerStepsOnUnsuitedPreconditioners) {
  const auto value = [](int i) { return -1.0 + 0.2 * i; };
  for (const auto solver : allSolvers)
    for (const bool isZero : {false, true}) {
      SCOPED_TRACE(testing::Message() << "solver " << solver << ", zero " << isZero);
      const auto t = [&](int i) { return isZero ? 0.0 : (i % 3 == 0 ? -1.0 : 1.0); };
      auto on = OnDiagonal<TypeParam>(60, value, nullptr, t);
      Settings s = WithinReach<TypeParam>(solver, 4);
      s.maxIter = 60;
      const SolverHandle run = MakeSolver<TypeParam>(s, false);
      EXPECT_EQ(VesSolverSetInnerSteps(run.get(), 5), VES_GOOD);
      const Pairs<TypeParam> p = SolveBy(run.get(), on, s.nBands);
      EXPECT_NE(p.reason, VES_REASON_NONFINITE);
      EXPECT_LE(OrthogonalityError(p, on), 1e-11);
      const std::vector<double> residuals = ResidualNorms(p, on);
      for (int j = 0; j < p.nConv; ++j)
        EXPECT_LE(residuals.data()[j], 2 * s.threshold) << "pair " << j;
    }
}

/// An exact vector of the guess passes at once and may stand in for a lower pair that no column has
/// come near to yet.
TYPED_TEST(AdditionsTest, ExactVectorAmongTheWanted) {
  const auto value = [](int i) { return i < 3 ? 1.0 + i : 100.0 + 0.01 * (i - 3); };
  auto on = OnDiagonal<TypeParam>(400, value);
  const Guess<TypeParam> random = RandomGuess<TypeParam>();
  for (const auto solver : allSolvers)
    for (const int place : {0, 3, 5}) {
      SCOPED_TRACE(testing::Message() << "solver " << solver << ", column " << place);
      Settings s = WithinReach<TypeParam>(solver, 6);
      s.threshold = 1e-5;
      const SolverHandle run = MakeSolver<TypeParam>(s, false);
      EXPECT_EQ(VesSolverSetWanted(run.get(), 4), VES_GOOD);
      const Pairs<TypeParam> p = SolveBy(run.get(), on, s.nBands, [&](int i, int j) {
        return j == place ? Number<TypeParam>(i == 53 ? 1.0 : 0.0) : random(i, j);
      });
      for (int j = 0; j < std::min(p.nConv, 4); ++j)
        EXPECT_NEAR(p.Value(j), value(j), 1e-6) << "pair " << j << " of " << p.nConv;
      EXPECT_GE(p.nConv, 3);
    }
}

/// A guess that is better than single precision can be is not replaced by what it makes of it.
TYPED_TEST(AdditionsTest, GoodGuessStays) {
  auto on = OnBoxes<TypeParam>(true, false);
  for (const auto solver : allSolvers) {
    SCOPED_TRACE(solver);
    Settings s = WithinReach<TypeParam>(solver, 8);
    s.threshold = 1e-8;
    Pairs<TypeParam> found = on.Run(s, {});
    ASSERT_EQ(found.nConv, 8);
    const auto from = [&](int i, int j) { return found.Column(j)[i - on.high.rows.first]; };
    s.threshold = 2e-8;
    const SolverHandle run = MakeSolver<TypeParam>(s, true);
    const Pairs<TypeParam> p = on.RunBy(run.get(), s, {0, 0, true, true}, from);
    VesSolverStats stats;
    EXPECT_EQ(VesGetSolverStats(run.get(), &stats), VES_GOOD);
    EXPECT_EQ(p.nConv, 8);
    EXPECT_LE(stats.columnsA - stats.columnsLow, 3 * 8); // the double leg begins at its end
  }
}

struct Followed {
  int last = -1, stopAt = 1 << 30;
  long long columns = 0;
  bool isOrdered = true;

  static int Note(void* data, const VesProgress* progress) {
    auto& seen = *static_cast<Followed*>(data);
    seen.isOrdered =
        seen.isOrdered && progress->iteration >= seen.last && progress->columnsA >= seen.columns;
    seen.last = progress->iteration;
    seen.columns = progress->columnsA;
    return progress->iteration >= seen.stopAt ? 1 : 0;
  }
};

/// Monitor, limit of iterations and counts are those of the whole run.
TYPED_TEST(AdditionsTest, IsOneRun) {
  auto on = OnBoxes<TypeParam>(false, false);
  for (const auto solver : allSolvers)
    for (const int stopAt : {0, 3, 1 << 30})
      for (const int maxIter : {1, 4, 1000}) {
        SCOPED_TRACE(testing::Message() << "solver " << solver << ", stopped at " << stopAt
                                        << ", at most " << maxIter << " iterations");
        Settings s = WithinReach<TypeParam>(solver, 10);
        s.threshold = 1e-9;
        s.maxIter = maxIter;
        const SolverHandle run = MakeSolver<TypeParam>(s, false);
        Followed seen;
        seen.stopAt = stopAt;
        EXPECT_EQ(VesSolverSetMonitor(run.get(), &Followed::Note, &seen), VES_GOOD);
        const long before = on.high.A.columns + on.low.A.columns;
        const Pairs<TypeParam> p = on.RunBy(run.get(), s, {0, 0, true, true});
        VesSolverStats stats;
        EXPECT_EQ(VesGetSolverStats(run.get(), &stats), VES_GOOD);
        EXPECT_TRUE(seen.isOrdered);
        const int most = maxIter + (solver == VES_LOBPCG_BATCH ? 1 : 0);
        EXPECT_LE(p.iter, most);
        EXPECT_LE(seen.last, most);
        if (on.high.rows.local > 0) {
          EXPECT_EQ(stats.columnsA, on.high.A.columns + on.low.A.columns - before);
        }
        const VesSolverReason cut = stopAt <= maxIter ? VES_REASON_MONITOR : VES_REASON_ITERATIONS;
        EXPECT_EQ(p.reason, stopAt == 1 << 30 && maxIter == 1000 ? VES_REASON_CONVERGED : cut);
        EXPECT_LE(OrthogonalityError(p, on.high), 1e-10); // whole pairs, however few steps
      }
}

TEST(AdditionsTest, SinglePrecisionHasNoLower) {
  const SolverHandle solver = ves::makeSolver<float>(VES_LOBPCG);
  EXPECT_EQ(VesSolverSetMixedPrecision(solver.get(), true), VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesSolverSetMixedPrecision(solver.get(), false), VES_GOOD);
  const MatrixHandle matrix = ves::makeMatrix<float>(nullptr, nullptr);
  EXPECT_EQ(VesMatrixSetShellMatVecLow(matrix.get(), nullptr, nullptr), VES_ERR_UNSUPPORTED);
}

} // namespace
