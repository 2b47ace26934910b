// What a run claims when its tests are easily fooled: residuals that are exactly zero beside large
// ones, values that stand still because nothing moves them, a test for locking that is looser than
// that of convergence.
#include "support/gallery.h"

using namespace VesTest;

namespace {

/// Of the claimed pairs; 0 when there is none.
template <typename Scalar>
double WorstClaim(Pairs<Scalar>& p, const Problem<Scalar>& on) {
  const std::vector<double> residuals = ResidualNorms(p, on);
  return p.nConv < 1 ? 0.0 : *std::max_element(residuals.begin(), residuals.begin() + p.nConv);
}

/// Values of the claimed pairs are the lowest ones.
template <typename Scalar>
void ExpectLowest(const Pairs<Scalar>& p, const Problem<Scalar>& on) {
  for (int j = 0; j < p.nConv; ++j)
    ASSERT_NEAR(p.Value(j), on.exact.data()[j], 0.01) << "pair " << j << " of " << p.nConv;
}

double Rising(int i) {
  return 1.0 + i;
}

template <typename Scalar>
class ClaimsTest : public testing::Test {
protected:
  static Settings Wanted(VesSolverType solver, VesConvergeDetectorType detector, int nBands) {
    Settings s{solver, nBands, ByPrecision<Scalar>(1e-6, 1e-3), 1000};
    s.detector = detector;
    return s;
  }
  /// Random but for one column, which is the unit vector of a row.
  static Guess<Scalar> WithUnitVector(int row, int column) {
    return [=](int i, int j) {
      return j == column ? Number<Scalar>(i == row ? 1 : 0) : HashedNumber<Scalar>(i, j);
    };
  }
  /// A test of values bounds residuals loosely; garbage exceeds this by far.
  static constexpr double loose = 0.2;
};
TYPED_TEST_SUITE(ClaimsTest, AllScalars);

/// Its residual of zero must neither stop the others nor vouch for them, nor may it keep the place
/// of a lower pair.
TYPED_TEST(ClaimsTest, ExactVectorInTheGuess) {
  Problem<TypeParam> on = OnDiagonal<TypeParam>(60, Rising);
  for (const auto type : allSolvers)
    for (const auto detector : allDetectors)
      for (const int row : {0, 9}) // the lowest vector, and one that is not wanted
        for (const int column : {0, 1}) {
          const Settings s = this->Wanted(type, detector, 3);
          SCOPED_TRACE(testing::Message() << s << ", e_" << row << " as column " << column);
          Pairs<TypeParam> p = Solve(on, s, this->WithUnitVector(row, column));
          EXPECT_LE(WorstClaim(p, on), this->loose) << p.nConv;
          // A test of values may pass a pair that the last step then moves by more: no claim is
          // left.
          if (row == 0 || detector < VES_EIGENVALUES) {
            EXPECT_EQ(p.nConv, p.k) << "after " << p.iter;
          }
          ExpectLowest(p, on);
        }
}

/// It may be the last pair claimed while nothing lower is known; what is claimed before it is lowest,
/// and above it nothing.
TYPED_TEST(ClaimsTest, ExactVectorInAnUnfinishedRun) {
  Problem<TypeParam> on =
      OnDiagonal<TypeParam>(60, [](int i) { return i < 3 ? 1.0 + i : 3.8 + 0.2 * i; });
  for (const auto type : allSolvers)
    for (int maxIter = 1; maxIter < 50; ++maxIter) {
      Settings s = this->Wanted(type, VES_RESIDUALS, 6);
      s.maxIter = maxIter;
      s.width = type == VES_LOBPCG_BATCH ? 2 : 0;
      SCOPED_TRACE(s);
      Pairs<TypeParam> p = Solve(on, s, this->WithUnitVector(8, 0));
      const bool isUnfinished = p.nConv > 0 && p.nConv < p.k;
      if (isUnfinished && std::abs(p.Value(p.nConv - 1) - 5.4) < 0.01) --p.nConv;
      ExpectLowest(p, on);
    }
}

/// Without any direction the values stand still, and yet nothing has converged.
TYPED_TEST(ClaimsTest, PreconditionerOfZeros) {
  Problem<TypeParam> on = OnDiagonal<TypeParam>(60, Rising, nullptr, [](int) { return 0.0; });
  for (const auto type : allSolvers)
    for (const auto detector : allDetectors) {
      const Settings s = this->Wanted(type, detector, 3);
      SCOPED_TRACE(s);
      Pairs<TypeParam> p = Solve(on, s);
      EXPECT_EQ(p.reason, VES_REASON_STAGNATED);
      EXPECT_EQ(p.nConv, 0);
      EXPECT_LT(p.iter, 20);
      EXPECT_LE(OrthogonalityError(p, on), 2000 * eps<TypeParam>);
    }
}

/// A basis of three blocks that fills the space breaks down: the step after a restart moves no
/// value.
TYPED_TEST(ClaimsTest, ValuesAfterARestart) {
  for (const int n : {14, 32, 62}) {
    Problem<TypeParam> on = OnDiagonal<TypeParam>(n, Rising);
    for (const auto type : allSolvers)
      for (const auto detector : {VES_EIGENVALUES, VES_RESIDUALS_OR_EIGENVALUES})
        for (unsigned seed = 0; seed < 4; ++seed) {
          const Settings s = this->Wanted(type, detector, (n - 2) / 3);
          SCOPED_TRACE(testing::Message() << s << ", n " << n << ", seed " << seed);
          Pairs<TypeParam> p = Solve(on, s, RandomGuess<TypeParam>(seed));
          EXPECT_LE(WorstClaim(p, on), this->loose) << p.nConv << " after " << p.iter;
        }
  }
}

/// A pair is locked only when it has passed the test of convergence, too.
TYPED_TEST(ClaimsTest, LooserTestForLocking) {
  Problem<TypeParam> on = OnDiagonal<TypeParam>(200, [](int i) { return 1.0 + 0.05 * i; });
  for (const auto type : allSolvers)
    for (const auto lock : allDetectors)
      for (const double factor : {0.01, 1.0}) {
        const Settings s = this->Wanted(type, VES_RESIDUALS, 6);
        SCOPED_TRACE(testing::Message() << s << ", lock " << lock << ", factor " << factor);
        const SolverHandle solver = MakeSolver<TypeParam>(s, false);
        VesSolverSetLockDetectorType(solver.get(), lock);
        VesSolverSetLockFactor(solver.get(), factor);
        Pairs<TypeParam> p = SolveBy(solver.get(), on, s.nBands);
        EXPECT_EQ(p.nConv, p.k);
        EXPECT_LE(WorstClaim(p, on), 2 * s.threshold);
      }
}

/// So small that the squares of residuals underflow: nothing can be tested, so nothing is claimed.
TYPED_TEST(ClaimsTest, MatrixBelowTheSquaresOfNumbers) {
  const double scale = ByPrecision<TypeParam>(1e-160, 1e-21);
  const Box box{{80}};
  Problem<TypeParam> on(box.Eigenvalues(false), 4 * scale, [&](int i) {
    auto row = Phased<TypeParam>(i, box.Laplacian(i));
    for (auto& entry : row)
      entry.second *= Number<TypeParam>(scale);
    return row;
  });
  for (const auto type : allSolvers)
    for (const auto detector : allDetectors) {
      Settings s = this->Wanted(type, detector, 3);
      if (detector != VES_RELATIVE_RESIDUALS) s.threshold = 1e-8 * scale;
      s.maxIter = 60;
      SCOPED_TRACE(s);
      const Pairs<TypeParam> p = Solve(on, s);
      EXPECT_EQ(p.nConv, 0) << p.Value(0) / scale;
    }
}

/// Exact vectors of high values are locked before lower ones come in with the last pass.
TEST(Claims, BatchesThatComeOutOfOrder) {
  Problem<double> on = OnDiagonal<double>(100, Rising);
  for (const auto detector : allDetectors)
    for (const int maxIter : {1, 3, 8, 500}) {
      Settings s{VES_LOBPCG_BATCH, 8, 1e-6, maxIter};
      s.detector = detector;
      s.width = 4;
      SCOPED_TRACE(s);
      Pairs<double> p = Solve(on, s, [](int i, int j) { // four high ones, then four near the lowest
        return j < 4 ? (i == 40 + j ? 1.0 : 0.0)
                     : (i == j - 4 ? 1.0 : 0.05 * HashedNumber<double>(i, j));
      });
      EXPECT_LE(WorstClaim(p, on), 0.05) << p.nConv;
      if (maxIter == 500) ExpectLowest(p, on);
    }
}

/// Most values are equal: the residuals of all columns, and so of all sub-blocks, lie in the few
/// directions of the others.
TYPED_TEST(ClaimsTest, WideMultiplets) {
  const struct {
    int n, others, nBands, subBlock;
  } cases[] = {{138, 5, 131, 64}, {100, 10, 40, 16}, {300, 10, 70, 64}, {12, 2, 7, 1}};
  for (const auto& c : cases) {
    Problem<TypeParam> on = OnDiagonal<TypeParam>(c.n, [&](int i) {
      return i < c.others ? (i % 2 == 0 ? -1.0 - 0.3 * (i % 8) : 1.0 + 0.2 * i) : 0.0;
    });
    for (const auto type : allSolvers)
      for (unsigned seed = 0; seed < 3; ++seed) {
        Settings s = this->Wanted(type, VES_RESIDUALS, c.nBands);
        s.maxOrthoIter = isDouble<TypeParam> ? 2 : 3;
        s.width = type == VES_PPCG ? c.subBlock : 0;
        SCOPED_TRACE(testing::Message() << s << ", n " << c.n << ", seed " << seed);
        const Pairs<TypeParam> p = Solve(on, s, RandomGuess<TypeParam>(seed));
        EXPECT_EQ(p.nConv, p.k) << "after " << p.iter;
        ExpectLowest(p, on);
      }
  }
}

/// Exact vectors leave no direction to the one that is missing, but where the basis of the
/// sub-blocks would hold the whole space the last step is made over all of it.
TYPED_TEST(ClaimsTest, ExactPairsThatMissOneOfFew) {
  Problem<TypeParam> on = OnDiagonal<TypeParam>(20, Rising);
  const Pairs<TypeParam> p = Solve(on, this->Wanted(VES_PPCG, VES_RESIDUALS, 8), [](int i, int j) {
    return Number<TypeParam>(i == (j == 3 ? 12 : j) ? 1 : 0);
  });
  EXPECT_EQ(p.nConv, p.k);
  ExpectLowest(p, on);
}

/// Diffusion through two materials: rounding errors of the operator as a whole are far above what
/// the residuals of its lowest pairs can reach.
TEST(Claims, GradedOperatorsAreNotGivenUp) {
  constexpr int m = 16;
  constexpr double contrast = 1e9;
  const auto rowOf = [](int i) {
    const auto material = [](int x) { return x < m / 2 ? contrast : 1.0; };
    SparseOperator<double>::Row row{{i, 0.0}};
    const int x = i / m, y = i % m, steps[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
    for (const auto& step : steps) {
      const int nextX = x + step[0], nextY = y + step[1];
      const bool isInside = std::min(nextX, nextY) >= 0 && std::max(nextX, nextY) < m;
      const double a = material(x), b = isInside ? material(nextX) : a;
      const double flow = isInside ? 2 * a * b / (a + b) : a;
      row[0].second += flow;
      if (isInside) row.emplace_back(nextX * m + nextY, -flow);
    }
    return row;
  };
  const auto inverse = DiagonalRows<double>([&](int i) { return 1.0 / rowOf(i)[0].second; });
  Problem<double> on(std::vector<double>(m * m), 8 * contrast, rowOf, nullptr, inverse);
  for (const auto type : allSolvers)
    for (unsigned seed = 0; seed < 3; ++seed) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " seed " << seed);
      const Pairs<double> p = Solve(on, {type, 4, 1e-6, 2000, 2}, RandomGuess<double>(seed));
      EXPECT_EQ(p.nConv, p.k) << "after " << p.iter;
    }
}

} // namespace
