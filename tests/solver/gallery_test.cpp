// Every solver on problems with known answers: four types, standard and generalized, with and
// without a preconditioner, every component kind.
#include "data/vector_dense.h"
#include "support/gallery.h"

using namespace VesTest;

namespace {

template <typename Scalar>
double ThresholdFor() {
  return eps<Scalar> < 1e-10 ? 1e-6 : 1e-3;
}

/// The values of converged pairs err by the square of the residual over the gap; in single
/// precision the threshold is loose, so the bound follows from it.
template <typename Scalar>
Limits LimitsFor() {
  Limits limits;
  limits.value = eps<Scalar> < 1e-10 ? 1e-9 : 1e-4;
  return limits;
}

template <typename Scalar>
class GalleryTest : public testing::Test {
protected:
  BoxGallery<Scalar> on{{7, 8, 9}};

  void Solve(const Settings& s, bool generalized, bool preconditioned) {
    Pairs<Scalar> p(on.rows, s.nBands);
    p.FillRandom();
    const SolverHandle solver = MakeSolver<Scalar>(s, generalized);
    p.Run(solver.get(), &on.A(generalized), on.B(generalized), on.T(preconditioned));
    ExpectAllConverged(p, on.A(generalized), on.B(generalized), on.Exact(generalized), s.threshold,
                       LimitsFor<Scalar>());
    EXPECT_LT(p.iter, s.maxIter);
  }
};
TYPED_TEST_SUITE(GalleryTest, AllScalars);

TYPED_TEST(GalleryTest, StandardAndGeneralizedWithAndWithoutPreconditioner) {
  for (const auto type : allSolvers)
    for (const bool generalized : {false, true})
      for (const bool preconditioned : {false, true}) {
        SCOPED_TRACE(testing::Message() << "solver " << type << " generalized " << generalized
                                        << " T " << preconditioned);
        Settings s;
        s.solver = type;
        s.threshold = ThresholdFor<TypeParam>();
        this->Solve(s, generalized, preconditioned);
      }
}

TYPED_TEST(GalleryTest, EveryOrthogonalizerDenseSolverAndPassLimit) {
  for (const auto type : allSolvers)
    for (const auto orthogonalizer : {VES_CHOLESKY_QR, VES_SVD_QR})
      for (const auto evd : {VES_LAPACK_DIAG, VES_SCALAPACK_DIAG})
        for (const int passes : {1, 3}) {
          SCOPED_TRACE(testing::Message()
                       << "solver " << type << " orthogonalizer " << orthogonalizer << " evd "
                       << evd << " passes " << passes);
          Settings s;
          s.threshold = ThresholdFor<TypeParam>();
          s.solver = type;
          s.orthogonalizer = orthogonalizer;
          s.evd = evd;
          s.maxOrthoIter = passes;
          this->Solve(s, passes == 3, false);
        }
}

TYPED_TEST(GalleryTest, EveryDetectorStopsAtWhatItTests) {
  const double threshold = ThresholdFor<TypeParam>();
  for (const auto type : allSolvers)
    for (const auto detector :
         {VES_RESIDUALS, VES_RELATIVE_RESIDUALS, VES_RESIDUALS_OR_EIGENVALUES, VES_EIGENVALUES}) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " detector " << detector);
      Settings s;
      s.solver = type;
      s.threshold = threshold;
      s.detector = detector;
      Pairs<TypeParam> p(this->on.rows, s.nBands);
      p.FillRandom();
      const SolverHandle solver = MakeSolver<TypeParam>(s, false);
      p.Run(solver.get(), &this->on.A(false));
      ASSERT_EQ(p.nConv, p.k);
      const std::vector<double> residuals = ResidualNorms(p, this->on.A(false), nullptr);
      const std::vector<double> exact = this->on.Exact(false);
      for (std::size_t j = 0; j < residuals.size(); ++j) {
        // The eigenvalue test stops when values move slowly, which bounds the residual loosely.
        const double allowed = detector == VES_RESIDUALS            ? threshold
                               : detector == VES_RELATIVE_RESIDUALS ? exact[j] * threshold
                                                                    : 30 * std::sqrt(threshold);
        EXPECT_LE(residuals[j], allowed + 800 * eps<TypeParam>);
      }
    }
}

/// Iterations and operator columns of a model of the algorithm, on one process.
TEST(ModelFigures, IterationsAndColumnsOfTheModel) {
  if (SizeOf(MPI_COMM_WORLD) > 1) GTEST_SKIP() << "the random guess depends on the distribution";
  const struct {
    VesSolverType solver;
    std::vector<int> dims;
    int nBands, maxIter, iterations, columns;
  } cases[] = {{VES_LOBPCG, {10, 11, 12}, 30, 100, 90, 1208},
               {VES_LOBPCG, {24, 25}, 10, 200, 126, 653},
               {VES_LOBPCG_BATCH, {10, 11, 12}, 30, 100, 90, 1208},
               {VES_PPCG, {10, 11, 12}, 30, 300, 105, 1570}};
  for (const auto& c : cases) {
    const Box box{c.dims};
    const Rows rows(box.Order(), MPI_COMM_WORLD);
    SparseOperator<double> A(rows, [&](int i) { return Phased<double>(i, box.Laplacian(i)); });
    Settings s;
    s.solver = c.solver;
    s.nBands = c.nBands;
    s.maxIter = c.maxIter;
    Pairs<double> p(rows, s.nBands);
    Ves::VectorDense<double> guess(MPI_COMM_WORLD, MPI_COMM_SELF, rows.local, s.nBands, p.ld);
    guess.SetValues(p.X.data());
    ASSERT_EQ(guess.Set2Random(1), VES_GOOD);
    const SolverHandle solver = MakeSolver<double>(s, false);
    p.Run(solver.get(), &A);
    EXPECT_NEAR(p.iter, c.iterations, 2);
    EXPECT_NEAR(static_cast<double>(A.columns), c.columns, 0.03 * c.columns);
    Limits limits;
    limits.value = 1e-11;
    ExpectAllConverged(p, A, nullptr, box.Eigenvalues(false), s.threshold, limits);
  }
}

/// A second run from its own result finds nothing to do; runs of other sizes leave no trace.
TYPED_TEST(GalleryTest, RepeatedRunsOnOneSolver) {
  const std::vector<double> exact = this->on.Exact(false);
  for (const auto type : allSolvers) {
    Settings s;
    s.solver = type;
    s.threshold = ThresholdFor<TypeParam>();
    const SolverHandle solver = MakeSolver<TypeParam>(s, false);
    for (const int nBands : {8, 12, 5, 10, 8}) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " pairs " << nBands);
      Pairs<TypeParam> p(this->on.rows, nBands);
      p.FillRandom(static_cast<unsigned>(nBands));
      p.Run(solver.get(), &this->on.A(false));
      ExpectAllConverged(p, this->on.A(false), nullptr, exact, s.threshold, LimitsFor<TypeParam>());
      EXPECT_GT(p.iter, 1);

      VesSolverSetThreshold(solver.get(), 2 * s.threshold);
      p.Run(solver.get(), &this->on.A(false));
      EXPECT_EQ(p.iter, type == VES_PPCG ? 1 : 0); // PPCG tests inside its first iteration
      ExpectAllConverged(p, this->on.A(false), nullptr, exact, 2 * s.threshold,
                         LimitsFor<TypeParam>());
      VesSolverSetThreshold(solver.get(), s.threshold);
    }
  }
}

/// Orders of the projected problem around the switch to ScaLAPACK, in the grid and outside it.
TEST(Orders, AroundTheDistributedDenseSolver) {
  const Box box{{9, 10, 13}};
  const Rows rows(box.Order(), MPI_COMM_WORLD, Deal::even);
  using Scalar = std::complex<double>;
  SparseOperator<Scalar> A(rows, [&](int i) { return Phased<Scalar>(i, box.Laplacian(i)); });
  for (const int nBands : {99, 100, 110}) { // 3 nBands = 297, 300, 330
    SCOPED_TRACE(nBands);
    Settings s;
    s.nBands = nBands;
    s.threshold = 1e-4;
    Pairs<Scalar> p(rows, nBands);
    p.FillRandom();
    const SolverHandle solver = MakeSolver<Scalar>(s, false);
    p.Run(solver.get(), &A);
    Limits limits;
    limits.value = 1e-6;
    ExpectAllConverged(p, A, nullptr, box.Eigenvalues(false), s.threshold, limits);
  }
}

} // namespace
