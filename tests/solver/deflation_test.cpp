// Runs whose vectors are kept orthogonal to given columns.
#include "support/gallery.h"

using namespace VesTest;

namespace {

template <typename Scalar>
VectorHandle AsVector(Pairs<Scalar>& y) {
  return MakeVector(y.rows.comm, y.rows.local, y.k, y.X.data(), y.ld);
}

template <typename Scalar>
class DeflationTest : public testing::Test {};
TYPED_TEST_SUITE(DeflationTest, AllScalars);

/// Beside the lowest pairs of an earlier run, given as other columns that span them, the next ones
/// are found.
TYPED_TEST(DeflationTest, GoesOnFromAnEarlierRun) {
  const int nEarlier = 4, nBands = 5;
  for (const bool generalized : {false, true})
    for (const bool preconditioned : {false, true}) {
      auto on = OnBox<TypeParam>({6, 7, 8}, generalized, preconditioned);
      Settings s = WithinReach<TypeParam>(VES_LOBPCG, nEarlier);
      s.threshold = ByPrecision<TypeParam>(1e-11, 2e-5);
      s.maxOrthoIter = 3;
      Pairs<TypeParam> earlier = Solve(on, s);
      ASSERT_EQ(earlier.nConv, nEarlier);
      Pairs<TypeParam> y(on.rows, nEarlier + 2); // one column depends on others, one is zero
      y.Fill([&](int i, int j) {
        const auto x = [&](int column) { return earlier.Column(column)[i - on.rows.first]; };
        if (j > nEarlier) return Number<TypeParam>(0.0);
        return Number<TypeParam>(1e-25) * x(j % nEarlier) +
               Number<TypeParam>(1e-27) * x((j + 1) % nEarlier);
      });
      const VectorHandle Y = AsVector(y);
      for (const auto solver : allSolvers)
        for (const int innerSteps : {0, 3}) {
          s = WithinReach<TypeParam>(solver, nBands);
          s.width = 3;
          SCOPED_TRACE(testing::Message() << s << ", inner steps " << innerSteps << ", B "
                                          << generalized << ", T " << preconditioned);
          const SolverHandle run = MakeSolver<TypeParam>(s, generalized);
          EXPECT_EQ(VesSolverSetDeflation(run.get(), Y.get()), VES_GOOD);
          EXPECT_EQ(VesSolverSetInnerSteps(run.get(), innerSteps), VES_GOOD);
          EXPECT_EQ(VesSolverSetMixedPrecision(run.get(), innerSteps > 0 && isDouble<TypeParam>),
                    VES_GOOD);
          Pairs<TypeParam> p = SolveBy(run.get(), on, nBands);
          EXPECT_EQ(p.nConv, nBands) << "after " << p.iter;
          for (int j = 0; j < nBands; ++j)
            EXPECT_NEAR(p.Value(j), on.exact.data()[nEarlier + j],
                        ByPrecision<TypeParam>(1e-9, 1e-3) * on.exact.data()[nEarlier + j])
                << "pair " << j;
          Pairs<TypeParam> all(on.rows, nEarlier + nBands);
          all.Fill([&](int i, int j) {
            return (j < nEarlier ? earlier.Column(j) : p.Column(j - nEarlier))[i - on.rows.first];
          });
          EXPECT_LE(OrthogonalityError(all, on), ByPrecision<TypeParam>(1e-10, 1e-3));
          // A guess within what is deflated leaves nothing but rounding errors of it.
          Pairs<TypeParam> within = SolveBy(run.get(), on, nBands, [&](int i, int j) {
            return earlier.Column(j % nEarlier)[i - on.rows.first];
          });
          EXPECT_EQ(within.nConv, nBands) << "after " << within.iter;
          EXPECT_NEAR(within.Value(0), on.exact.data()[nEarlier],
                      ByPrecision<TypeParam>(1e-9, 1e-3) * on.exact.data()[nEarlier]);
        }
    }
}

/// Beside a column that is no eigenvector the values interlace those of A, and what is left of the
/// residual beside that column is below the threshold.
TYPED_TEST(DeflationTest, BesideAnyColumn) {
  auto on = OnBox<TypeParam>({6, 7, 8}, false);
  Pairs<TypeParam> y(on.rows, 1);
  y.FillRandom(5);
  const double norm = ColumnNorms(y, [&](int i, int) { return y.Column(0)[i]; }).front();
  for (int i = 0; i < on.rows.local; ++i)
    y.Column(0)[i] /= Number<TypeParam>(norm);
  const VectorHandle Y = AsVector(y);
  const auto couple = [&](const auto& entry) {
    Wide sum = 0.0;
    for (int i = 0; i < on.rows.local; ++i)
      sum += std::conj(Wide(y.Column(0)[i])) * Wide(entry(i));
    PMPI_Allreduce(MPI_IN_PLACE, &sum, 1, MPI_CXX_DOUBLE_COMPLEX, MPI_SUM, on.rows.comm);
    return sum;
  };
  for (const auto solver : allSolvers) {
    const Settings s = WithinReach<TypeParam>(solver, 5);
    SCOPED_TRACE(testing::Message() << s);
    const SolverHandle run = MakeSolver<TypeParam>(s, false);
    EXPECT_EQ(VesSolverSetDeflation(run.get(), Y.get()), VES_GOOD);
    Pairs<TypeParam> p = SolveBy(run.get(), on, 5);
    EXPECT_EQ(p.nConv, 5);
    Pairs<TypeParam> AX = Image(&on.A, p);
    std::vector<Wide> part;
    for (int j = 0; j < 5; ++j) {
      part.push_back(couple([&](int i) { return AX.Column(j)[i]; }));
      EXPECT_LE(std::abs(couple([&](int i) { return p.Column(j)[i]; })),
                ByPrecision<TypeParam>(1e-12, 1e-4));
      const double slack = ByPrecision<TypeParam>(1e-9, 1e-3);
      EXPECT_GE(p.Value(j), on.exact.data()[j] * (1 - slack));
      EXPECT_LE(p.Value(j), on.exact.data()[j + 1] * (1 + slack));
    }
    const std::vector<double> left = ColumnNorms(p, [&](int i, int j) {
      return Wide(AX.Column(j)[i]) - p.Value(j) * Wide(p.Column(j)[i]) -
             part.data()[j] * Wide(y.Column(0)[i]);
    });
    for (int j = 0; j < 5; ++j)
      EXPECT_LE(left.data()[j], 2 * s.threshold) << "pair " << j;
  }
}

TYPED_TEST(DeflationTest, RefusesWhatCannotBeDeflated) {
  auto on = OnBox<TypeParam>({4, 5}, false);
  const SolverHandle run = MakeSolver<TypeParam>(WithinReach<TypeParam>(VES_LOBPCG, 2), false);
  const auto codeWith = [&](VesVector space) {
    EXPECT_EQ(VesSolverSetDeflation(run.get(), space), VES_GOOD);
    return SolveBy(run.get(), on, 2).code;
  };
  Pairs<TypeParam> y(on.rows, 20);
  y.Fill([](int i, int j) { return Number<TypeParam>(i == j ? 1.0 : 0.0); });
  EXPECT_EQ(codeWith(AsVector(y).get()), VES_ERR_INVALID_VALUE); // nothing is left
  y.k = 3;
  if (on.rows.local > 0) y.Column(1)[0] = Number<TypeParam>(std::nan(""));
  EXPECT_EQ(codeWith(AsVector(y).get()), VES_ERR_INVALID_VALUE);
  const VectorHandle other =
      MakeVector<TypeParam>(on.rows.comm, on.rows.local + 1, 3, y.X.data(), y.ld);
  EXPECT_EQ(codeWith(other.get()), VES_ERR_MISMATCH);
  const VectorHandle empty = MakeVector<TypeParam>(on.rows.comm, on.rows.local, 3, nullptr, y.ld);
  EXPECT_EQ(codeWith(empty.get()), VES_ERR_NULL_POINTER);
  EXPECT_EQ(codeWith(nullptr), VES_GOOD);
  const VectorHandle wrong =
      ves::makeVector<std::conditional_t<std::is_same_v<TypeParam, double>, float, double>>(
          on.rows.comm, 1, 1, nullptr, 1);
  EXPECT_EQ(VesSolverSetDeflation(run.get(), wrong.get()), VES_ERR_MISMATCH);
  EXPECT_EQ(VesSolverSetDeflation(nullptr, nullptr), VES_ERR_NULL_POINTER);
}

} // namespace
