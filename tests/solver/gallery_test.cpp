// Every solver on problems with known answers: four types, standard and generalized, with and
// without a preconditioner, every component kind.
#include "data/vector_dense.h"
#include "support/dense_kinds.h"
#include "support/gallery.h"

using namespace VesTest;

namespace {

template <typename Scalar>
class GalleryTest : public testing::Test {
protected:
  static constexpr double threshold = ByPrecision<Scalar>(1e-6, 1e-3);

  static void SolveOnBox(const Settings& s, bool generalized, bool preconditioned) {
    SCOPED_TRACE(testing::Message() << "generalized " << generalized << ", T " << preconditioned);
    Problem<Scalar> on = OnBox<Scalar>({7, 8, 9}, generalized, preconditioned);
    EXPECT_LT(SolveAll(on, s).iter, s.maxIter);
  }
};
TYPED_TEST_SUITE(GalleryTest, AllScalars);

TYPED_TEST(GalleryTest, EveryProblemAndComponent) {
  for (const auto type : allSolvers) {
    Settings s{type, 10, this->threshold};
    for (const bool generalized : {false, true})
      for (const bool preconditioned : {false, true})
        this->SolveOnBox(s, generalized, preconditioned);
    for (const auto orthogonalizer : allOrthogonalizers)
      for (const auto evd : {VES_LAPACK_DIAG, VES_SCALAPACK_DIAG})
        for (const int passes : {1, 3}) {
          s.orthogonalizer = orthogonalizer;
          s.evd = evd;
          s.maxOrthoIter = passes;
          this->SolveOnBox(s, passes == 3, false);
        }
  }
}

/// Of a cube, whose values stand in groups of three and six, the 40th in the middle of one.
TYPED_TEST(GalleryTest, EveryDenseEigensolver) {
  for (const auto type : allSolvers)
    for (const auto evd : otherKinds) {
      Settings s = WithinReach<TypeParam>(type, 40);
      s.evd = evd;
      SCOPED_TRACE(s);
      Problem<TypeParam> on = OnBox<TypeParam>({7, 7, 7}, true);
      const SolverHandle solver = MakeSolver<TypeParam>(s, true);
      DistributeFrom<TypeParam>(*solver->DenseEigenSolver, 2);
      Pairs<TypeParam> p = SolveBy(solver.get(), on, s.nBands);
      ExpectAllConverged(p, on, s.threshold);
    }
}

TYPED_TEST(GalleryTest, EveryDetectorStopsAtWhatItTests) {
  Problem<TypeParam> on = OnBox<TypeParam>({7, 8, 9}, false);
  for (const auto type : allSolvers)
    for (const auto detector : allDetectors) {
      Settings s{type, 10, this->threshold};
      s.detector = detector;
      SCOPED_TRACE(s);
      Pairs<TypeParam> p = Solve(on, s);
      ASSERT_EQ(p.nConv, p.k);
      const std::vector<double> residuals = ResidualNorms(p, on);
      for (std::size_t j = 0; j < residuals.size(); ++j) {
        // The eigenvalue test stops when values move slowly, which bounds the residual loosely.
        const double allowed = detector == VES_RESIDUALS            ? s.threshold
                               : detector == VES_RELATIVE_RESIDUALS ? on.exact[j] * s.threshold
                                                                    : 30 * std::sqrt(s.threshold);
        EXPECT_LE(residuals[j], allowed + 800 * eps<TypeParam>);
      }
    }
}

/// Iterations and operator columns of a model of the algorithm, on one process.
TEST(ModelFigures, IterationsAndColumnsOfTheModel) {
  if (SizeOf(world) > 1) GTEST_SKIP() << "the random guess depends on the distribution";
  const struct {
    Ints dims;
    Settings settings;
    int iterations, columns;
  } cases[] = {{{10, 11, 12}, {VES_LOBPCG, 30, 1e-6, 100}, 90, 1208},
               {{24, 25}, {VES_LOBPCG, 10, 1e-6, 200}, 126, 653},
               {{10, 11, 12}, {VES_LOBPCG_BATCH, 30, 1e-6, 100}, 90, 1208},
               {{10, 11, 12}, {VES_PPCG, 30, 1e-6, 300}, 105, 1570}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.settings);
    Problem<double> on = OnBox<double>(c.dims, false);
    Pairs<double> p(on.rows, c.settings.nBands);
    Ves::VectorDense<double> guess(world, self, on.rows.local, p.k, p.ld);
    guess.SetValues(p.X.data());
    ASSERT_EQ(guess.Set2Random(1), VES_GOOD);
    on.Run(p, MakeSolver<double>(c.settings, false).get());
    EXPECT_NEAR(p.iter, c.iterations, 2);
    EXPECT_NEAR(static_cast<double>(on.A.columns), c.columns, 0.03 * c.columns);
    ExpectAllConverged(p, on, c.settings.threshold);
  }
}

/// A solver that has run for other sizes works like a fresh one, bit for bit; a second run from its
/// own result finds nothing to do.
TYPED_TEST(GalleryTest, RepeatedRunsOnOneSolver) {
  Problem<TypeParam> on = OnBox<TypeParam>({7, 8, 9}, true, false, Deal::gaps);
  for (const auto type : allSolvers) {
    Settings s{type, 10, this->threshold};
    s.width = type == VES_PPCG ? 7 : 0;
    const SolverHandle solver = MakeSolver<TypeParam>(s, true);
    for (const int nBands : {8, 12, 5, 10}) {
      SCOPED_TRACE(testing::Message() << s << " for " << nBands);
      Pairs<TypeParam> p(on.rows, nBands);
      const auto run = [&](VesSolver by) {
        p.FillRandom(static_cast<unsigned>(nBands));
        on.Run(p, by);
        return p.D;
      };
      const std::vector<TypeParam> fresh = run(MakeSolver<TypeParam>(s, true).get());
      if (type == VES_PPCG) VesSolverSetPPCGBatch(solver.get(), s.width); // shrinks to the pairs
      EXPECT_EQ(run(solver.get()), fresh);
      EXPECT_GT(p.iter, 1);
      ExpectAllConverged(p, on, s.threshold);

      VesSolverSetThreshold(solver.get(), 2 * s.threshold);
      on.Run(p, solver.get());
      EXPECT_EQ(p.iter, s.IterationsOnAnswer<TypeParam>());
      ExpectAllConverged(p, on, 2 * s.threshold);
      VesSolverSetThreshold(solver.get(), s.threshold);
    }
  }
}

} // namespace
