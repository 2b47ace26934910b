// Every solver where a careless iteration hangs, crashes or returns wrong pairs: guesses, spectra
// and sizes at the edge, operators that return nonsense, processes without rows.
#include "solver/lobpcg.h"
#include "support/correctness.h"

#include <limits>

using namespace VesTest;

namespace {

template <typename Scalar>
double LooseThreshold() {
  return eps<Scalar> < 1e-10 ? 1e-6 : 2e-3;
}

template <typename Scalar>
Limits LooseLimits() {
  Limits limits;
  limits.value = eps<Scalar> < 1e-10 ? 1e-9 : 1e-4;
  return limits;
}

/// One pass lets the basis of single precision drift from orthonormality by a factor of about 1.3
/// an iteration, which tells after twenty; repeated passes hold it.
template <typename Scalar>
int CarefulPasses() {
  return eps<Scalar> < 1e-10 ? 1 : 3;
}

template <typename Scalar>
class EdgeTest : public testing::Test {};
TYPED_TEST_SUITE(EdgeTest, AllScalars);

TYPED_TEST(EdgeTest, Spectra) {
  const struct {
    const char* reason;
    int nBands;
    std::function<double(int)> value;
    int passes = CarefulPasses<TypeParam>();
  } cases[] = {
      {"negative and positive", 5, [](int i) { return -7.5 + 0.35 * i; }},
      {"a zero lowest value", 4, [](int i) { return 0.5 * i; }},
      {"geometric", 5, [](int i) { return std::pow(1.07, i); }},
      {"five-fold lowest value", 6, [](int i) { return i < 5 ? 1.0 : 1.5 + 0.2 * i; }},
      {"a multiplet cut by the wanted count", 4,
       [](int i) { return i < 2   ? 0.3 * i
                          : i < 6 ? 2.0
                                  : 0.5 * i; }},
      {"multiple of the identity", 5, [](int) { return 3.25; }},
      {"three distinct values: residuals soon depend on X and P", 6,
       [](int i) { return 1.0 + (i >= 3) + 2.0 * (i >= 8); }, 3},
  };
  const Rows rows(60, MPI_COMM_WORLD);
  for (const auto type : allSolvers)
    for (const auto& c : cases) {
      SCOPED_TRACE(testing::Message() << "solver " << type << ", " << c.reason);
      const Reflected<TypeParam> matrix(Spectrum(rows.n, c.value));
      SparseOperator<TypeParam> A(rows, [&](int i) { return matrix.Row(i); });
      Settings s;
      s.solver = type;
      s.nBands = c.nBands;
      s.threshold = LooseThreshold<TypeParam>();
      s.maxOrthoIter = c.passes;
      Pairs<TypeParam> p(rows, s.nBands);
      p.FillRandom();
      const SolverHandle solver = MakeSolver<TypeParam>(s, false);
      p.Run(solver.get(), &A);
      ExpectAllConverged(p, A, nullptr, matrix.Sorted(), s.threshold, LooseLimits<TypeParam>());
    }
}

TYPED_TEST(EdgeTest, Guesses) {
  using Scalar = TypeParam;
  const Rows rows(80, MPI_COMM_WORLD, Deal::growing);
  const Reflected<Scalar> matrix(Spectrum(rows.n, [](int i) { return 1.0 + 0.25 * i; }));
  SparseOperator<Scalar> A(rows, [&](int i) { return matrix.Row(i); });
  const auto random = [](int i, int j) { return HashedNumber<Scalar>(i, j); };
  const Scalar nan = Number<Scalar>(std::numeric_limits<double>::quiet_NaN());
  const struct {
    const char* reason;
    std::function<Scalar(int, int)> entry;
    bool exact;
  } cases[] = {
      {"exact eigenvectors", [&](int i, int j) { return matrix.Vector(i, j); }, true},
      {"the leading three exact",
       [&](int i, int j) { return j < 3 ? matrix.Vector(i, j) : random(i, j); }, false},
      {"one exact in the middle",
       [&](int i, int j) { return j == 3 ? matrix.Vector(i, j) : random(i, j); }, false},
      {"two equal columns", [&](int i, int j) { return random(i, j == 4 ? 1 : j); }, false},
      {"all columns equal", [&](int i, int) { return random(i, 0); }, false},
      {"a column nearly in the span of another",
       [&](int i, int j) {
         return j == 2 ? random(i, 1) + Number<Scalar>(20 * eps<Scalar>) * random(i, 2)
                       : random(i, j);
       },
       false},
      {"a zero column", [&](int i, int j) { return j == 2 ? Scalar{} : random(i, j); }, false},
      {"nothing", [](int, int) { return Scalar{}; }, false},
      {"a NaN in one column", [&](int i, int j) { return i == 7 && j == 2 ? nan : random(i, j); },
       false},
      {"NaN everywhere", [&](int, int) { return nan; }, false},
  };
  for (const auto type : allSolvers)
    for (const auto& c : cases)
      for (const auto orthogonalizer : {VES_CHOLESKY_QR, VES_SVD_QR}) {
        SCOPED_TRACE(testing::Message() << "solver " << type << ", " << c.reason
                                        << ", orthogonalizer " << orthogonalizer);
        Settings s;
        s.solver = type;
        s.nBands = 6;
        s.threshold = LooseThreshold<Scalar>();
        s.orthogonalizer = orthogonalizer;
        s.maxOrthoIter = CarefulPasses<Scalar>();
        Pairs<Scalar> p(rows, s.nBands);
        p.FillGuess(c.entry);
        const SolverHandle solver = MakeSolver<Scalar>(s, false);
        p.Run(solver.get(), &A);
        ExpectAllConverged(p, A, nullptr, matrix.Sorted(), s.threshold, LooseLimits<Scalar>());
        EXPECT_TRUE(!c.exact || p.iter == (type == VES_PPCG ? 1 : 0));
      }
}

/// From as many wanted pairs as rows to a basis [X P R] that still fits.
TYPED_TEST(EdgeTest, SizesNearTheOrder) {
  const int n = 24;
  const Rows rows(n, MPI_COMM_WORLD);
  const Reflected<TypeParam> matrix(Spectrum(n, [](int i) { return 2.0 + i; }));
  SparseOperator<TypeParam> A(rows, [&](int i) { return matrix.Row(i); });
  for (const auto type : allSolvers)
    for (const int nBands : {n, n - 1, n / 2, n / 3, 1}) {
      SCOPED_TRACE(testing::Message() << "solver " << type << " pairs " << nBands);
      Settings s;
      s.solver = type;
      s.nBands = nBands;
      s.threshold = LooseThreshold<TypeParam>();
      Pairs<TypeParam> p(rows, nBands);
      p.FillRandom();
      const SolverHandle solver = MakeSolver<TypeParam>(s, false);
      p.Run(solver.get(), &A);
      Limits limits = LooseLimits<TypeParam>();
      limits.scale = 30.0;
      ExpectAllConverged(p, A, nullptr, matrix.Sorted(), s.threshold, limits);
      EXPECT_TRUE(nBands < n || p.iter <= 1);
    }
}

/// Three blocks that nearly fill the space, a preconditioner and multiple values: here the basis
/// breaks down in most runs, which without a restart ends in zero vectors that pass the test.
TYPED_TEST(EdgeTest, RestartsWhereTheBasisBreaksDown) {
  using Scalar = TypeParam;
  const int n = 48;
  const Rows rows(n, MPI_COMM_WORLD);
  const auto value = [](int i) { return 1.0 + (i % 3 == 0 && i > 2 ? i - 1 : i); };
  SparseOperator<Scalar> A(rows, [&](int i) {
    return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(value(i))}};
  });
  SparseOperator<Scalar> T(rows, [&](int i) {
    return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(1.0 / (value(i) + 1.0))}};
  });
  std::vector<double> exact = Spectrum(n, value);
  std::sort(exact.begin(), exact.end());
  int restarts = 0;
  for (const int nBands : {14, 16, 20})
    for (unsigned seed = 0; seed < 12; ++seed) {
      SCOPED_TRACE(testing::Message() << nBands << " pairs, seed " << seed);
      Settings s;
      s.threshold = LooseThreshold<Scalar>();
      s.orthogonalizer = seed % 4 == 3 ? VES_SVD_QR : VES_CHOLESKY_QR;
      Pairs<Scalar> p(rows, nBands);
      p.FillRandom(seed);
      const SolverHandle solver = MakeSolver<Scalar>(s, false);
      p.Run(solver.get(), &A, nullptr, &T);
      Limits limits = LooseLimits<Scalar>();
      // Below its limit the self-check lets the norms be, so that it leaves healthy runs alone.
      limits.orthogonality = (eps<Scalar> < 1e-10 ? 2e-7 : 6e-4) / eps<Scalar>;
      limits.value = eps<Scalar> < 1e-10 ? 1e-6 : 2e-2;
      limits.scale = 48.0;
      ExpectAllConverged(p, A, nullptr, exact, s.threshold, limits);
      restarts += dynamic_cast<Ves::LOBPCG<Scalar>&>(*solver).check.IsCareful() ? 1 : 0;
    }
  EXPECT_GT(restarts, 0);
}

/// More pairs wanted than there are rows: the rank is all that can be had.
TYPED_TEST(EdgeTest, MorePairsThanRows) {
  const int n = 7, nBands = 10;
  const Rows rows(n, MPI_COMM_WORLD);
  const Reflected<TypeParam> matrix(Spectrum(n, [](int i) { return 1.0 + i; }));
  SparseOperator<TypeParam> A(rows, [&](int i) { return matrix.Row(i); });
  for (const auto type : allSolvers) {
    SCOPED_TRACE(type);
    Settings s;
    s.solver = type;
    s.threshold = LooseThreshold<TypeParam>();
    Pairs<TypeParam> p(rows, nBands);
    p.FillRandom();
    const SolverHandle solver = MakeSolver<TypeParam>(s, false);
    p.Run(solver.get(), &A);
    EXPECT_EQ(p.code, VES_GOOD);
    EXPECT_EQ(p.nConv, n);
    for (int j = 0; j < n; ++j)
      EXPECT_NEAR(std::real(p.D[static_cast<std::size_t>(j)]), 1.0 + j, 500 * eps<TypeParam>);
    for (int j = n; j < nBands; ++j) {
      EXPECT_TRUE(std::isinf(std::real(p.D[static_cast<std::size_t>(j)])));
      for (int i = 0; i < rows.local; ++i)
        EXPECT_EQ(p.Column(j)[i], TypeParam{});
    }
  }
}

TYPED_TEST(EdgeTest, ProcessesWithoutRows) {
  const Box box{{6, 7}};
  const Rows rows(box.Order(), MPI_COMM_WORLD, Deal::gaps);
  SparseOperator<TypeParam> K(rows, [&](int i) { return Phased<TypeParam>(i, box.Stiffness(i)); });
  SparseOperator<TypeParam> M(rows, [&](int i) { return Phased<TypeParam>(i, box.Mass(i)); });
  for (const auto type : allSolvers) {
    SCOPED_TRACE(type);
    Settings s;
    s.solver = type;
    s.nBands = 5;
    s.threshold = LooseThreshold<TypeParam>();
    Pairs<TypeParam> p(rows, s.nBands);
    p.FillRandom();
    const SolverHandle solver = MakeSolver<TypeParam>(s, true);
    p.Run(solver.get(), &K, &M);
    ExpectAllConverged(p, K, &M, box.Eigenvalues(true), s.threshold, LooseLimits<TypeParam>());
  }
}

/// Images of B that are only updated drift from B X: an ill-conditioned start must not cost pairs.
TEST(EdgeGeneralized, IllConditionedGuessAndPenalties) {
  const int n = 500;
  const Rows rows(n, MPI_COMM_WORLD);
  const Box box{{n}};
  SparseOperator<double> A(rows, [&](int i) { return Phased<double>(i, box.Laplacian(i)); });
  SparseOperator<double> M(rows, [&](int i) { return Phased<double>(i, box.Mass(i)); });
  SparseOperator<double> penalty(rows, [](int i) {
    return SparseOperator<double>::Row{{i, i == 20 || i == 400 ? 1e10 : 1.0}};
  });
  for (const auto type : allSolvers)
    for (const auto orthogonalizer : {VES_CHOLESKY_QR, VES_SVD_QR})
      for (const bool polynomial : {false, true}) {
        SCOPED_TRACE(testing::Message() << type << " " << orthogonalizer << " " << polynomial);
        Settings s;
        s.solver = type;
        s.nBands = 20;
        s.maxIter = 3; // only the start is tried
        s.orthogonalizer = orthogonalizer;
        Pairs<double> p(rows, s.nBands);
        if (polynomial)
          p.FillGuess([&](int i, int j) { return std::pow(2.0 * i / n - 1.0, j); });
        else
          p.FillRandom();
        const SolverHandle solver = MakeSolver<double>(s, true);
        p.Run(solver.get(), &A, polynomial ? &M : &penalty);
        for (int j = 0; j < s.nBands; ++j)
          EXPECT_TRUE(std::isfinite(p.D[static_cast<std::size_t>(j)])) << "pair " << j;
      }
}

/// Without a residual-based detector no residual norms are kept: the steps form their residuals
/// themselves, and the result is the same pair for pair.
TYPED_TEST(EdgeTest, ResidualsOnDemand) {
  using Scalar = TypeParam;
  const Box box{{8, 9}};
  const Rows rows(box.Order(), MPI_COMM_WORLD);
  SparseOperator<Scalar> K(rows, [&](int i) { return Phased<Scalar>(i, box.Stiffness(i)); });
  SparseOperator<Scalar> M(rows, [&](int i) { return Phased<Scalar>(i, box.Mass(i)); });
  SparseOperator<Scalar> T(rows, [](int i) {
    return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(1.0 / (2.0 + i % 2))}};
  });
  for (SparseOperator<Scalar>* const precond :
       {static_cast<SparseOperator<Scalar>*>(nullptr), &T}) {
    std::vector<int> iterations;
    std::vector<Scalar> values;
    for (const bool keep : {true, false}) {
      Settings s;
      s.nBands = 5;
      s.detector = VES_EIGENVALUES;
      s.threshold = eps<Scalar> < 1e-10 ? 1e-12 : 1e-5;
      Pairs<Scalar> p(rows, s.nBands);
      p.FillRandom();
      const SolverHandle solver = MakeSolver<Scalar>(s, true);
      solver->needResidualNorms = keep;
      p.Run(solver.get(), &K, &M, precond);
      EXPECT_EQ(p.nConv, p.k);
      EXPECT_EQ(solver->needResidualNorms, keep);
      iterations.push_back(p.iter);
      values.push_back(p.D[4]);
    }
    EXPECT_EQ(iterations[0], iterations[1]);
    EXPECT_EQ(values[0], values[1]);
  }
}

TEST(LobpcgClass, IterationLimitOfZeroRotatesTheGuess) {
  const Box box{{5, 6}};
  const Rows rows(box.Order(), MPI_COMM_WORLD);
  SparseOperator<double> A(rows, [&](int i) { return Phased<double>(i, box.Laplacian(i)); });
  Ves::LOBPCG<double> solver;
  solver.maxIter = 0;
  Pairs<double> p(rows, 4);
  p.FillRandom();
  p.Run(&solver, &A);
  EXPECT_EQ(p.iter, 0);
  EXPECT_EQ(p.nConv, 0);
  EXPECT_LE(OrthogonalityError(p, nullptr), 2000 * eps<double>);
  EXPECT_EQ(A.columns, rows.local > 0 ? 4 : 0);
  EXPECT_TRUE(std::is_sorted(p.D.begin(), p.D.begin() + 4));
  EXPECT_TRUE(solver.workBZ.IsDataEmpty()); // a standard problem has no B-images
  EXPECT_FALSE(solver.isGeneralized);
}

} // namespace
