// What a run claims when its tests are easily fooled: residuals that are exactly zero beside large
// ones, values that stand still because nothing moves them, a test for locking that is looser than
// that of convergence.
#include "interface/solver_base.h"
#include "support/correctness.h"

using namespace VesTest;

namespace {

constexpr VesConvergeDetectorType allDetectors[] = {VES_RESIDUALS, VES_RELATIVE_RESIDUALS,
                                                    VES_EIGENVALUES, VES_RESIDUALS_OR_EIGENVALUES};

/// A = diag(values): unit vectors are eigenvectors without any rounding error.
template <typename Scalar>
struct Diagonal {
  using Operator = SparseOperator<Scalar>;

  explicit Diagonal(std::vector<double> given)
      : values(std::move(given)), rows(static_cast<int>(values.size()), MPI_COMM_WORLD) {}

  Operator Scaled(double factor) const {
    return Operator(rows, [factor](int i) {
      return typename Operator::Row{{i, Number<Scalar>(factor)}};
    });
  }

  /// Of the claimed pairs; 0 when there is none.
  double WorstClaim(Pairs<Scalar>& p) const {
    const std::vector<double> residuals = ResidualNorms(p, A, nullptr);
    return p.nConv < 1 ? 0.0 : *std::max_element(residuals.begin(), residuals.begin() + p.nConv);
  }

  std::vector<double> values;
  Rows rows;
  Operator A{
      rows, [this](int i) {
        return typename Operator::Row{{i, Number<Scalar>(values[static_cast<std::size_t>(i)])}};
      }};
};

template <typename Scalar>
class ClaimsTest : public testing::Test {
protected:
  static constexpr bool isDouble = eps<Scalar> < 1e-10;

  static Settings Wanted(VesSolverType solver, VesConvergeDetectorType detector, int nBands) {
    Settings s;
    s.solver = solver;
    s.detector = detector;
    s.nBands = nBands;
    s.threshold = isDouble ? 1e-6 : 1e-3;
    s.maxIter = 1000;
    return s;
  }
  /// A test of values bounds residuals loosely; garbage exceeds this by far.
  static constexpr double loose = 0.2;
};
TYPED_TEST_SUITE(ClaimsTest, AllScalars);

/// Its residual of zero must neither stop the others nor vouch for them, nor may it keep the place
/// of a lower pair.
TYPED_TEST(ClaimsTest, ExactVectorInTheGuess) {
  const Diagonal<TypeParam> d(Spectrum(60, [](int i) { return 1.0 + i; }));
  for (const auto type : allSolvers)
    for (const auto detector : allDetectors)
      for (const int row : {0, 9}) // the lowest vector, and one that is not wanted
        for (const int column : {0, 1}) {
          SCOPED_TRACE(testing::Message() << "solver " << type << " detector " << detector << " e_"
                                          << row << " as column " << column);
          const Settings s = this->Wanted(type, detector, 3);
          const SolverHandle solver = MakeSolver<TypeParam>(s, false);
          Pairs<TypeParam> p(d.rows, s.nBands);
          p.FillGuess([&](int i, int j) {
            return j == column ? Number<TypeParam>(i == row ? 1 : 0)
                               : HashedNumber<TypeParam>(i, j);
          });
          SparseOperator<TypeParam> A = d.A;
          p.Run(solver.get(), &A);
          EXPECT_LE(d.WorstClaim(p), this->loose) << p.nConv;
          // A test of values may pass a pair that the last step then moves by more: no claim is
          // left.
          if (row == 0 || detector < VES_EIGENVALUES) {
            EXPECT_EQ(p.nConv, p.k) << "after " << p.iter;
          }
          for (std::size_t j = 0; j < static_cast<std::size_t>(p.nConv); ++j)
            EXPECT_NEAR(std::real(p.D[j]), d.values[j], 0.01);
        }
}

/// It leads while nothing lower is known; once others have overtaken it, it is claimed no more, nor
/// what stands above it.
TYPED_TEST(ClaimsTest, ExactVectorInAnUnfinishedRun) {
  const Diagonal<TypeParam> d(Spectrum(60, [](int i) { return i < 3 ? 1.0 + i : 3.8 + 0.2 * i; }));
  SparseOperator<TypeParam> A = d.A;
  for (const auto type : allSolvers)
    for (int maxIter = 1; maxIter < 50; ++maxIter) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " iterations " << maxIter);
      Settings s = this->Wanted(type, VES_RESIDUALS, 6);
      s.maxIter = maxIter;
      const SolverHandle solver = MakeSolver<TypeParam>(s, false);
      VesSolverSetBatchLimit(solver.get(), type == VES_LOBPCG_BATCH ? 2 : 0);
      Pairs<TypeParam> p(d.rows, s.nBands);
      p.FillGuess([&](int i, int j) {
        return j == 0 ? Number<TypeParam>(i == 8 ? 1 : 0) : HashedNumber<TypeParam>(i, j);
      });
      p.Run(solver.get(), &A);
      const bool isOvertaken = std::real(p.D[0]) < 5.0;
      for (std::size_t j = 0; isOvertaken && j < static_cast<std::size_t>(p.nConv); ++j)
        EXPECT_NEAR(std::real(p.D[j]), d.values[j], 0.01) << p.nConv;
    }
}

/// Without any direction the values stand still, and yet nothing has converged.
TYPED_TEST(ClaimsTest, PreconditionerOfZeros) {
  const Diagonal<TypeParam> d(Spectrum(60, [](int i) { return 1.0 + i; }));
  SparseOperator<TypeParam> A = d.A, T = d.Scaled(0.0);
  for (const auto type : allSolvers)
    for (const auto detector : allDetectors) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " detector " << detector);
      const SolverHandle solver = MakeSolver<TypeParam>(this->Wanted(type, detector, 3), false);
      Pairs<TypeParam> p(d.rows, 3);
      p.FillRandom();
      p.Run(solver.get(), &A, nullptr, &T);
      VesSolverReason reason = VES_REASON_NONE;
      VesGetSolverReason(solver.get(), &reason);
      EXPECT_EQ(reason, VES_REASON_STAGNATED);
      EXPECT_EQ(p.nConv, 0);
      EXPECT_LT(p.iter, 20);
      EXPECT_LE(OrthogonalityError(p, nullptr), 2000 * eps<TypeParam>);
    }
}

/// A basis of three blocks that fills the space breaks down: the step after a restart moves no
/// value.
TYPED_TEST(ClaimsTest, ValuesAfterARestart) {
  for (const int n : {14, 32, 62}) {
    const Diagonal<TypeParam> d(Spectrum(n, [](int i) { return 1.0 + i; }));
    SparseOperator<TypeParam> A = d.A;
    for (const auto type : allSolvers)
      for (const auto detector : {VES_EIGENVALUES, VES_RESIDUALS_OR_EIGENVALUES})
        for (unsigned seed = 0; seed < 4; ++seed) {
          SCOPED_TRACE(testing::Message() << "solver " << type << " detector " << detector << " n "
                                          << n << " seed " << seed);
          const Settings s = this->Wanted(type, detector, (n - 2) / 3);
          const SolverHandle solver = MakeSolver<TypeParam>(s, false);
          Pairs<TypeParam> p(d.rows, s.nBands);
          p.FillRandom(seed);
          p.Run(solver.get(), &A);
          EXPECT_LE(d.WorstClaim(p), this->loose) << p.nConv << " after " << p.iter;
        }
  }
}

/// A pair is locked only when it has passed the test of convergence, too.
TYPED_TEST(ClaimsTest, LooserTestForLocking) {
  const Diagonal<TypeParam> d(Spectrum(200, [](int i) { return 1.0 + 0.05 * i; }));
  SparseOperator<TypeParam> A = d.A;
  for (const auto type : allSolvers)
    for (const auto lock : allDetectors)
      for (const double factor : {0.01, 1.0}) {
        SCOPED_TRACE(testing::Message()
                     << "solver " << type << " lock " << lock << " factor " << factor);
        const Settings s = this->Wanted(type, VES_RESIDUALS, 6);
        const SolverHandle solver = MakeSolver<TypeParam>(s, false);
        VesSolverSetLockDetectorType(solver.get(), lock);
        VesSolverSetLockFactor(solver.get(), factor);
        Pairs<TypeParam> p(d.rows, s.nBands);
        p.FillRandom();
        p.Run(solver.get(), &A);
        EXPECT_EQ(p.nConv, p.k);
        EXPECT_LE(d.WorstClaim(p), 2 * s.threshold);
      }
}

/// So small that the squares of residuals underflow: nothing can be tested, so nothing is claimed.
TYPED_TEST(ClaimsTest, MatrixBelowTheSquaresOfNumbers) {
  const double scale = this->isDouble ? 1e-160 : 1e-21;
  const Rows rows(80, MPI_COMM_WORLD);
  SparseOperator<TypeParam> A(rows, [scale](int i) {
    typename SparseOperator<TypeParam>::Row row{{i, Number<TypeParam>(2 * scale)}};
    if (i > 0) row.push_back({i - 1, Number<TypeParam>(-scale)});
    if (i < 79) row.push_back({i + 1, Number<TypeParam>(-scale)});
    return row;
  });
  for (const auto type : allSolvers)
    for (const auto detector : allDetectors) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " detector " << detector);
      Settings s = this->Wanted(type, detector, 3);
      if (detector != VES_RELATIVE_RESIDUALS) s.threshold = 1e-8 * scale;
      s.maxIter = 60;
      const SolverHandle solver = MakeSolver<TypeParam>(s, false);
      Pairs<TypeParam> p(rows, s.nBands);
      p.FillRandom();
      p.Run(solver.get(), &A);
      EXPECT_EQ(p.nConv, 0) << static_cast<double>(std::real(p.D[0])) / scale;
    }
}

/// Exact vectors of high values are locked before lower ones come in with the last pass.
TEST(Claims, BatchesThatComeOutOfOrder) {
  const Diagonal<double> d(Spectrum(100, [](int i) { return 1.0 + i; }));
  SparseOperator<double> A = d.A;
  for (const auto detector : allDetectors)
    for (const int maxIter : {1, 3, 8, 500}) {
      SCOPED_TRACE(testing::Message() << "detector " << detector << " limit " << maxIter);
      Settings s;
      s.solver = VES_LOBPCG_BATCH;
      s.detector = detector;
      s.nBands = 8;
      s.maxIter = maxIter;
      const SolverHandle solver = MakeSolver<double>(s, false);
      VesSolverSetBatchLimit(solver.get(), 4);
      Pairs<double> p(d.rows, s.nBands);
      p.FillGuess([](int i, int j) { // four high ones, then four that are near the lowest
        return j < 4 ? (i == 40 + j ? 1.0 : 0.0)
                     : (i == j - 4 ? 1.0 : 0.05 * HashedNumber<double>(i, j));
      });
      p.Run(solver.get(), &A);
      EXPECT_LE(d.WorstClaim(p), 0.05) << p.nConv;
      for (int j = 0; j < p.nConv && maxIter == 500; ++j)
        EXPECT_NEAR(p.D[static_cast<std::size_t>(j)], 1.0 + j, 0.01);
    }
}

/// Most values are equal: the residuals of all columns, and so of all sub-blocks, lie in the few
/// directions of the others.
TYPED_TEST(ClaimsTest, WideMultiplets) {
  const struct {
    int n, others, nBands, subBlock;
  } cases[] = {{138, 5, 131, 64}, {100, 10, 40, 16}, {300, 10, 70, 64}, {12, 2, 7, 1}};
  for (const auto& c : cases) {
    const Diagonal<TypeParam> d(Spectrum(c.n, [&](int i) {
      return i < c.others ? (i % 2 == 0 ? -1.0 - 0.3 * (i % 8) : 1.0 + 0.2 * i) : 0.0;
    }));
    std::vector<double> sorted = d.values;
    std::sort(sorted.begin(), sorted.end());
    SparseOperator<TypeParam> A = d.A;
    for (const auto type : allSolvers)
      for (unsigned seed = 0; seed < 3; ++seed) {
        SCOPED_TRACE(testing::Message() << "solver " << type << " n " << c.n << " seed " << seed);
        Settings s = this->Wanted(type, VES_RESIDUALS, c.nBands);
        s.maxOrthoIter = this->isDouble ? 2 : 3;
        const SolverHandle solver = MakeSolver<TypeParam>(s, false);
        if (type == VES_PPCG) VesSolverSetPPCGBatch(solver.get(), c.subBlock);
        Pairs<TypeParam> p(d.rows, s.nBands);
        p.FillRandom(seed);
        p.Run(solver.get(), &A);
        EXPECT_EQ(p.nConv, p.k) << "after " << p.iter;
        for (std::size_t j = 0; j < static_cast<std::size_t>(p.nConv); ++j)
          ASSERT_NEAR(std::real(p.D[j]), sorted[j], 0.01) << j;
      }
  }
}

/// Exact vectors leave no direction to the one that is missing, but where the basis of the
/// sub-blocks would hold the whole space the last step is made over all of it.
TYPED_TEST(ClaimsTest, ExactPairsThatMissOneOfFew) {
  const Diagonal<TypeParam> d(Spectrum(20, [](int i) { return 1.0 + i; }));
  SparseOperator<TypeParam> A = d.A;
  const SolverHandle solver =
      MakeSolver<TypeParam>(this->Wanted(VES_PPCG, VES_RESIDUALS, 8), false);
  Pairs<TypeParam> p(d.rows, 8);
  p.FillGuess([](int i, int j) { return Number<TypeParam>(i == (j == 3 ? 12 : j) ? 1 : 0); });
  p.Run(solver.get(), &A);
  ASSERT_EQ(p.nConv, p.k);
  for (std::size_t j = 0; j < 8; ++j)
    EXPECT_NEAR(std::real(p.D[j]), d.values[j], 0.01);
}

/// Diffusion through two materials: rounding errors of the operator as a whole are far above what
/// the residuals of its lowest pairs can reach.
TEST(Claims, GradedOperatorsAreNotGivenUp) {
  constexpr int m = 16;
  constexpr double contrast = 1e9;
  const Rows rows(m * m, MPI_COMM_WORLD);
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
  SparseOperator<double> A(rows, rowOf), T(rows, [&](int i) {
    return SparseOperator<double>::Row{{i, 1.0 / rowOf(i)[0].second}};
  });
  for (const auto type : allSolvers)
    for (unsigned seed = 0; seed < 3; ++seed) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " seed " << seed);
      Settings s;
      s.solver = type;
      s.nBands = 4;
      s.maxIter = 2000;
      s.maxOrthoIter = 2;
      const SolverHandle solver = MakeSolver<double>(s, false);
      Pairs<double> p(rows, s.nBands);
      p.FillRandom(seed);
      p.Run(solver.get(), &A, nullptr, &T);
      EXPECT_EQ(p.nConv, p.k) << "after " << p.iter;
    }
}

} // namespace
