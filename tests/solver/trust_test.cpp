// What a caller can rely on without looking: every run ends, says why, and claims only what is so,
// down to thresholds that rounding does not allow.
#include "support/gallery.h"

#include <cstdio>
#include <cstdlib>

using namespace VesTest;

namespace {

constexpr int manyIterations = 3000;

/// The problem of a run, with the norms that bound what rounding allows.
template <typename Scalar>
struct Problem {
  SparseOperator<Scalar>&A, *B, *T;
  std::vector<double> exact;
  double normA, normB;
};

template <typename Scalar>
double NormOfColumn(Pairs<Scalar>& p, int j) {
  std::vector<double> square(1, 0.0);
  for (int i = 0; i < p.rows.local; ++i)
    square[0] += static_cast<double>(std::norm(p.Column(j)[i]));
  SumOver(p.rows.comm, square);
  return std::sqrt(square[0]);
}

/// One run from a random start. True when all pairs converged; whatever happened, the result must
/// be what the solver says of it.
template <typename Scalar>
bool RunAndJudge(const Problem<Scalar>& problem, const Settings& s, const Rows& rows,
                 unsigned seed) {
  Pairs<Scalar> p(rows, s.nBands);
  p.FillRandom(seed);
  const SolverHandle solver = MakeSolver<Scalar>(s, problem.B != nullptr);
  p.Run(solver.get(), &problem.A, problem.B, problem.T);
  VesSolverReason reason = VES_REASON_NONE;
  EXPECT_EQ(VesGetSolverReason(solver.get(), &reason), VES_GOOD);
  EXPECT_EQ(p.code, VES_GOOD);
  EXPECT_TRUE(reason == VES_REASON_CONVERGED || reason == VES_REASON_STAGNATED)
      << VesReasonString(reason) << " after " << p.iter;
  EXPECT_EQ(reason == VES_REASON_CONVERGED, p.nConv == p.k);
  double longest = 0.0;
  for (int j = 0; j < p.k; ++j)
    longest = std::max(longest, NormOfColumn(p, j));
  // What X^H B X itself can be computed to, where B of small values stretches the vectors.
  const double rounding = eps<Scalar> * longest * longest * problem.normB;
  EXPECT_LE(OrthogonalityError(p, problem.B),
            std::max(eps<Scalar> < 1e-10 ? 1e-10 : 1e-4, rounding));
  const std::vector<double> residuals = ResidualNorms(p, problem.A, problem.B);
  for (int j = 0; j < p.k; ++j) {
    const auto at = static_cast<std::size_t>(j);
    const double value = std::real(p.D[at]), norm = NormOfColumn(p, j);
    const double floor = 4 * eps<Scalar> * (problem.normA + std::abs(value) * problem.normB) * norm;
    if (j < p.nConv) {
      EXPECT_LT(residuals[at], 2 * s.threshold) << "converged pair " << j;
    } else {
      // Rotations mix rounding errors of the longest vector into all.
      EXPECT_LE(residuals[at], 100 * floor / norm * longest) << "pair " << j << ", " << VesReasonString(reason);
    }
    // One of the lowest pairs: the value errs by less than the residual, B-orthonormal vectors
    // counted, which B of small values stretches.
    EXPECT_NEAR(value, problem.exact[at], (residuals[at] + 100 * floor) * norm) << "pair " << j;
  }
  return p.nConv == p.k;
}

template <typename Scalar>
class TrustTest : public testing::Test {
protected:
  using Operator = SparseOperator<Scalar>;
  static constexpr bool isDouble = eps<Scalar> < 1e-10;
  BoxGallery<Scalar> on{{6, 7, 8}};

  Problem<Scalar> Gallery(bool generalized, bool preconditioned) {
    return {on.A(generalized),
            on.B(generalized),
            on.T(preconditioned),
            on.Exact(generalized),
            12.0,
            1.0};
  }

  static Settings Wanted(VesSolverType type, int nBands, double threshold) {
    Settings s;
    s.solver = type;
    s.nBands = nBands;
    s.threshold = threshold;
    s.maxIter = manyIterations;
    return s;
  }
};
TYPED_TEST_SUITE(TrustTest, AllScalars);

TYPED_TEST(TrustTest, ThresholdsDownToWhatRoundingForbids) {
  const std::vector<double> thresholds =
      this->isDouble ? std::vector<double>{1e-6, 1e-8, 1e-10, 1e-12, 1e-13, 1e-14, 1e-15}
                     : std::vector<double>{1e-3, 1e-4, 1e-5, 1e-6, 1e-7};
  const double reachable = this->isDouble ? 1e-12 : 1e-3;
  for (const auto type : allSolvers)
    for (const bool generalized : {false, true})
      for (const bool preconditioned : {false, true})
        for (const double threshold : thresholds) {
          SCOPED_TRACE(testing::Message() << "solver " << type << " generalized " << generalized
                                          << " T " << preconditioned << " threshold " << threshold);
          const bool all = RunAndJudge(this->Gallery(generalized, preconditioned),
                                       this->Wanted(type, 10, threshold), this->on.rows, 1);
          EXPECT_TRUE(all || threshold < reachable);
        }
}

/// The basis of three blocks just fits, or just does not.
TYPED_TEST(TrustTest, ThreeBlocksAroundTheOrder) {
  using Sparse = SparseOperator<TypeParam>;
  for (int n = 28; n <= 33; ++n) {
    const Rows few(n, MPI_COMM_WORLD);
    const Reflected<TypeParam> matrix(Spectrum(n, [](int i) { return 1.0 + 0.5 * i; }));
    Sparse A(few, [&](int i) { return matrix.Row(i); });
    for (const auto type : allSolvers)
      for (unsigned seed = 0; seed < 5; ++seed) {
        SCOPED_TRACE(testing::Message() << "order " << n << " solver " << type << " seed " << seed);
        const Problem<TypeParam> problem{A, nullptr, nullptr, matrix.Sorted(), 17.0, 1.0};
        EXPECT_TRUE(
            RunAndJudge(problem, this->Wanted(type, 10, this->isDouble ? 1e-8 : 2e-3), few, seed));
      }
  }
}

/// A = U diag(b lambda) U^H and B = U diag(b) U^H have the eigenvalues lambda, however small b; T
/// is a rough inverse of A.
TYPED_TEST(TrustTest, IllConditionedB) {
  using Sparse = SparseOperator<TypeParam>;
  const int n = 90;
  const Rows some(n, MPI_COMM_WORLD, Deal::gaps);
  for (const double decades : {2.0, 6.0, 10.0}) {
    if (!this->isDouble && decades > 4.0) continue; // B is no longer positive in single precision
    const auto b = [&](int i) { return std::pow(10.0, -decades * ((i * 37) % n) / (n - 1)); };
    const auto lambda = [](int i) { return 1.0 + 0.3 * i; };
    const Reflected<TypeParam> a(Spectrum(n, [&](int i) { return b(i) * lambda(i); }));
    const Reflected<TypeParam> overlap(Spectrum(n, b));
    const Reflected<TypeParam> inverse(
        Spectrum(n, [&](int i) { return 1.0 / (b(i) * lambda(i) * (1.0 + 0.2 * (i % 4))); }));
    Sparse A(some, [&](int i) { return a.Row(i); });
    Sparse T(some, [&](int i) { return inverse.Row(i); });
    Sparse B(some, [&](int i) { return overlap.Row(i); });
    for (const auto type : allSolvers)
      for (unsigned seed = 0; seed < 3; ++seed) {
        SCOPED_TRACE(testing::Message()
                     << "condition 1e" << decades << " solver " << type << " seed " << seed);
        const Problem<TypeParam> problem{A, &B, &T, Spectrum(n, lambda), 28.0, 1.0};
        RunAndJudge(problem, this->Wanted(type, 6, this->isDouble ? 1e-9 : 1e-3), some, seed);
      }
  }
}

TYPED_TEST(TrustTest, NearlyEqualLowestValues) {
  using Sparse = SparseOperator<TypeParam>;
  const int n = 120;
  const Rows some(n, MPI_COMM_WORLD);
  for (const double split : {0.0, 1e-10, 1e-5}) {
    const Reflected<TypeParam> matrix(
        Spectrum(n, [&](int i) { return i < 5 ? 1.0 + i * split : 1.5 + 0.2 * i; }));
    Sparse A(some, [&](int i) { return matrix.Row(i); });
    for (const auto type : allSolvers)
      for (const int nBands : {3, 5, 7}) {
        SCOPED_TRACE(testing::Message()
                     << "split " << split << " solver " << type << " pairs " << nBands);
        const Problem<TypeParam> problem{A, nullptr, nullptr, matrix.Sorted(), 26.0, 1.0};
        EXPECT_TRUE(RunAndJudge(problem, this->Wanted(type, nBands, this->isDouble ? 1e-9 : 2e-3),
                                some, 3));
      }
  }
}

/// The share of random starts that end converged, on problems where the threshold is in reach.
/// VES_TRUST_SEEDS sets their number.
TYPED_TEST(TrustTest, RandomStarts) {
  using Sparse = SparseOperator<TypeParam>;
  const char* const asked = std::getenv("VES_TRUST_SEEDS");
  const unsigned seeds = asked != nullptr ? static_cast<unsigned>(std::atoi(asked))
                                          : (SizeOf(MPI_COMM_WORLD) == 1 ? 50 : 3);
  const Reflected<TypeParam> matrix(
      Spectrum(80, [](int i) { return i < 5 ? 1.0 : 1.5 + 0.2 * i; }));
  const Rows few(80, MPI_COMM_WORLD);
  Sparse multiplet(few, [&](int i) { return matrix.Row(i); });
  for (const auto type : allSolvers)
    for (const int which : {0, 1, 2}) {
      const Problem<TypeParam> problem =
          which == 2 ? Problem<TypeParam>{multiplet, nullptr, nullptr, matrix.Sorted(), 18.0, 1.0}
                     : this->Gallery(which == 1, which == 1);
      const Settings s = this->Wanted(type, 8, this->isDouble ? 1e-8 : 2e-3);
      unsigned converged = 0;
      for (unsigned seed = 0; seed < seeds; ++seed) {
        SCOPED_TRACE(testing::Message()
                     << "solver " << type << " problem " << which << " seed " << seed);
        converged += RunAndJudge(problem, s, which == 2 ? few : this->on.rows, seed) ? 1 : 0;
      }
      if (RankIn(MPI_COMM_WORLD) == 0)
        std::printf("solver %d, problem %d: %u of %u starts converged\n", type, which, converged,
                    seeds);
      EXPECT_EQ(converged, seeds);
    }
}

} // namespace
