// What a caller can rely on without looking: every run ends, says why, and claims only what is so,
// down to thresholds that rounding does not allow.
#include "support/gallery.h"

#include <cstdio>
#include <cstdlib>

using namespace VesTest;

namespace {

/// One run from a random start. True when all pairs converged; whatever happened, the result must
/// be what the solver says of it.
template <typename Scalar>
bool RunAndJudge(Problem<Scalar>& on, VesSolverType type, int nBands, double threshold, int seed) {
  const Settings s{type, nBands, threshold, 3000};
  SCOPED_TRACE(testing::Message() << s << ", seed " << seed);
  Pairs<Scalar> p = Solve(on, s, RandomGuess<Scalar>(static_cast<unsigned>(seed)));
  EXPECT_EQ(p.code, VES_GOOD);
  EXPECT_TRUE(p.reason == VES_REASON_CONVERGED || p.reason == VES_REASON_STAGNATED)
      << VesReasonString(p.reason) << " after " << p.iter;
  EXPECT_EQ(p.reason == VES_REASON_CONVERGED, p.nConv == p.k);
  const std::vector<double> norms = ColumnNorms(p, [&](int i, int j) { return p.Column(j)[i]; });
  const double longest = *std::max_element(norms.begin(), norms.end());
  // What X^H B X itself can be computed to, where B of small values stretches the vectors.
  const double rounding = eps<Scalar> * longest * longest;
  EXPECT_LE(OrthogonalityError(p, on), std::max(ByPrecision<Scalar>(1e-10, 1e-4), rounding));
  const std::vector<double> residuals = ResidualNorms(p, on);
  for (int j = 0; j < p.k; ++j) {
    const double value = p.Value(j), residual = residuals.data()[j], norm = norms.data()[j];
    const double floor = 4 * eps<Scalar> * (on.normA + std::abs(value)) * norm;
    if (j < p.nConv) {
      EXPECT_LT(residual, 2 * threshold) << "converged pair " << j;
    } else {
      // Rotations mix rounding errors of the longest vector into all.
      EXPECT_LE(residual, 100 * floor / norm * longest)
          << "pair " << j << ", " << VesReasonString(p.reason);
    }
    // One of the lowest pairs: the value errs by less than the residual, B-orthonormal vectors
    // counted, which B of small values stretches.
    EXPECT_NEAR(value, on.exact.data()[j], (residual + 100 * floor) * norm) << "pair " << j;
  }
  return p.nConv == p.k;
}

/// A five-fold value, or nearly so.
std::function<double(int)> Multiplet(double split) {
  return [split](int i) { return i < 5 ? 1.0 + i * split : 1.5 + 0.2 * i; };
}

template <typename Scalar>
class TrustTest : public testing::Test {};
TYPED_TEST_SUITE(TrustTest, AllScalars);

TYPED_TEST(TrustTest, ThresholdsDownToWhatRoundingForbids) {
  const std::vector<double> thresholds = isDouble<TypeParam>
                                             ? std::vector<double>{1e-6, 1e-9, 1e-12, 1e-13, 1e-15}
                                             : std::vector<double>{1e-3, 1e-4, 1e-5, 1e-7};
  for (const bool generalized : {false, true})
    for (const bool preconditioned : {false, true}) {
      if (SizeOf(world) > 1 && generalized != preconditioned) continue;
      SCOPED_TRACE(testing::Message() << "generalized " << generalized << " T " << preconditioned);
      Problem<TypeParam> on = OnBox<TypeParam>({6, 7, 8}, generalized, preconditioned);
      for (const auto type : allSolvers)
        for (const double threshold : thresholds)
          EXPECT_TRUE(RunAndJudge(on, type, 10, threshold, 1) ||
                      threshold < ByPrecision<TypeParam>(1e-12, 1e-3));
    }
}

TYPED_TEST(TrustTest, ThreeBlocksAroundTheOrder) {
  for (int n = 28; n <= 33; ++n) {
    SCOPED_TRACE(testing::Message() << "order " << n);
    Problem<TypeParam> on = OnFull<TypeParam>(Spectrum(n, [](int i) { return 1.0 + 0.5 * i; }));
    for (const auto type : allSolvers)
      for (int seed = 0; seed < 5; ++seed)
        EXPECT_TRUE(RunAndJudge(on, type, 10, ByPrecision<TypeParam>(1e-8, 2e-3), seed));
  }
}

/// A = U diag(b lambda) U^H and B = U diag(b) U^H have the eigenvalues lambda, however small b; T
/// is a rough inverse of A.
TYPED_TEST(TrustTest, IllConditionedB) {
  const int n = 90;
  for (const double decades : {2.0, 6.0, 10.0}) {
    if (!isDouble<TypeParam> && decades > 4.0) continue; // B is no longer positive definite
    SCOPED_TRACE(testing::Message() << "condition 1e" << decades);
    const auto b = [&](int i) { return std::pow(10.0, -decades * ((i * 37) % n) / (n - 1)); };
    const auto lambda = [](int i) { return 1.0 + 0.3 * i; };
    const Reflected<TypeParam> a(Spectrum(n, [&](int i) { return b(i) * lambda(i); }));
    const Reflected<TypeParam> overlap(Spectrum(n, b));
    const Reflected<TypeParam> inverse(
        Spectrum(n, [&](int i) { return 1.0 / (b(i) * lambda(i) * (1.0 + 0.2 * (i % 4))); }));
    Problem<TypeParam> on(
        Spectrum(n, lambda), lambda(n), [&](int i) { return a.Row(i); },
        [&](int i) { return overlap.Row(i); }, [&](int i) { return inverse.Row(i); }, Deal::gaps);
    for (const auto type : allSolvers)
      for (int seed = 0; seed < 3; ++seed)
        RunAndJudge(on, type, 6, ByPrecision<TypeParam>(1e-9, 1e-3), seed);
  }
}

TYPED_TEST(TrustTest, NearlyEqualLowestValues) {
  for (const double split : {0.0, 1e-10, 1e-5}) {
    SCOPED_TRACE(testing::Message() << "split " << split);
    Problem<TypeParam> on = OnFull<TypeParam>(Spectrum(120, Multiplet(split)));
    for (const auto type : allSolvers)
      for (const int nBands : {3, 5, 7})
        EXPECT_TRUE(RunAndJudge(on, type, nBands, ByPrecision<TypeParam>(1e-9, 2e-3), 3));
  }
}

/// The share of random starts that end converged, on problems where the threshold is in reach.
/// VES_TRUST_SEEDS sets their number.
TYPED_TEST(TrustTest, RandomStarts) {
  const char* const asked = std::getenv("VES_TRUST_SEEDS");
  const int seeds = asked != nullptr ? std::atoi(asked) : (SizeOf(world) == 1 ? 25 : 3);
  const auto count = [seeds](int problem, Problem<TypeParam> on) {
    for (const auto type : allSolvers) {
      int converged = 0;
      for (int seed = 0; seed < seeds; ++seed)
        converged += RunAndJudge(on, type, 8, ByPrecision<TypeParam>(1e-8, 2e-3), seed) ? 1 : 0;
      if (RankIn(world) == 0)
        std::printf("solver %d, problem %d: %d of %d starts converged\n", type, problem, converged,
                    seeds);
      EXPECT_EQ(converged, seeds) << "solver " << type << ", problem " << problem;
    }
  };
  count(0, OnBox<TypeParam>({6, 7, 8}, false));
  count(1, OnBox<TypeParam>({6, 7, 8}, true, true));
  count(2, OnFull<TypeParam>(Spectrum(80, Multiplet(0.0))));
}

} // namespace
