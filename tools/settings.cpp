#include "settings.h"

#include "detectors.h"
#include "names.h"
#include "parallel.h"
#include "timed_operator.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace VesTools {
namespace {

constexpr int pairsByDefault = 6;
constexpr int pairsOfOneBatch = 64, widestBatch = 128;
constexpr int processesOfLapack = 4;

template <typename Scalar>
constexpr bool isSingle = sizeof(std::real(Scalar())) == sizeof(float);

// Such as the operators of a run see it, for vectors of the problem.
template <typename Scalar>
ves::Spectrum RequireFinite(const Problem<Scalar>& problem, const BlockOperator<Scalar>& apply,
                            const char* name) {
  double seconds = 0.0;
  const ves::Block<Scalar> like(problem.LocalRows(), 0, problem.comm);
  const ves::Spectrum spectrum = estimateSpectrum(TimedOperator(apply, seconds), like);
  if (!std::isfinite(spectrum.norm))
    throw Error(exitInput,
                problem.title + ": products with " + name + " are not finite in this scalar type");
  return spectrum;
}

// Finds what is plainly indefinite: for such a B lowest pairs mean nothing, and a run may seem
// good.
template <typename Scalar>
double RequirePositiveNorm(const Problem<Scalar>& problem) {
  const ves::Spectrum b = RequireFinite(problem, problem.b, "B");
  const double rounding = 100.0 * Eigen::NumTraits<Scalar>::epsilon() * b.norm;
  if (b.lowest < -rounding) {
    std::ostringstream text;
    text << problem.title << ": B is not positive definite: it has an eigenvalue of at most "
         << std::setprecision(2) << b.lowest;
    throw Error(exitInput, text.str());
  }
  return b.norm;
}

// The zero matrix is within any tolerance.
double ScaleOf(VesConvergeDetectorType detector, double normA, double normB) {
  return normA == 0.0 || normB == 0.0 ? 1.0 : DetectorOf(detector).scale(normA, normB);
}

// An option of another solver would be followed by nobody.
void RequireSolverOf(const SolverOptions& options, VesSolverType solver) {
  const auto require = [&](bool isGiven, const char* option, VesSolverType type) {
    if (isGiven && solver != type)
      throw Error(exitUsage, std::string(option) + " needs --solver " + NameOf(solverNames, type));
  };
  require(options.batchLimit.has_value(), "--batch-limit", VES_LOBPCG_BATCH);
  require(options.ppcgBatch.has_value(), "--ppcg-batch", VES_PPCG);
  require(options.rrPeriod.has_value(), "--rr-period", VES_PPCG);
  require(options.softLocking.has_value(), "--soft-locking", VES_PPCG);
  require(options.ppcgLockFactor.has_value(), "--ppcg-lock-factor", VES_PPCG);
}

// Of LOBPCG half as many columns as the order span the problem with their residuals.
bool IsSmall(int order, int pairs, const SolverOptions& options) {
  return (order - 1) / 4 < pairs && options.type.value_or(VES_LOBPCG) == VES_LOBPCG;
}

// Guards of a run that is not told how many, with which its dense problems stay within the order
// that the library takes.
int GuardsOf(bool isInverseExact, int order, int pairs, bool isSmall) {
  const int most = std::max(32765 / 3 - pairs, 0);
  if (isSmall) return std::clamp((order + 1) / 2 - pairs, 0, most);
  if (isInverseExact) return 0;
  return std::min(std::clamp(pairs / 4, 2, 8), most);
}

} // namespace

template <typename Scalar>
RunSettings Decide(const Problem<Scalar>& problem, const SolverOptions& options, int deflated) {
  RunSettings settings;
  settings.isLargest = options.isLargest;
  const int order = problem.Order() - deflated;
  if (order < 1) throw Error(exitUsage, "--deflate: nothing is left beside its columns");
  settings.pairs = options.pairs.value_or(std::min(pairsByDefault, order));
  if (settings.pairs > order)
    throw Error(exitUsage, "-k: " + std::to_string(settings.pairs) +
                               " pairs are more than the order " + std::to_string(order) +
                               (deflated > 0 ? " that is left" : ""));
  const bool isSmall = IsSmall(order, settings.pairs, options);
  settings.guard = std::min(
      options.guard.value_or(GuardsOf(problem.isInverseExact, order, settings.pairs, isSmall)),
      order - settings.pairs);
  const bool choosesNone = isSmall || problem.isInverseExact || options.seed.has_value();
  settings.innerSteps = options.innerSteps.value_or(choosesNone ? 0 : -1);
  settings.isMixed = options.precision == Precision::mixed || (problem.lowA && !isSmall);
  const bool isWide = settings.pairs > pairsOfOneBatch && !isSmall;
  settings.solver = options.type.value_or(isWide ? VES_LOBPCG_BATCH : VES_LOBPCG);
  RequireSolverOf(options, settings.solver);
  settings.batch = options.batchLimit.value_or(pairsOfOneBatch);
  const bool mayGrow = !options.batchLimit && options.hasSelfCheck;
  settings.batchLimit = mayGrow ? widestBatch : settings.batch;
  settings.orthoPasses = options.orthoPasses.value_or(isSingle<Scalar> ? 3 : 2);
  settings.dense = options.dense.value_or(
      Size(problem.comm) <= processesOfLapack ? VES_LAPACK_DIAG : VES_SCALAPACK_DIAG);
  settings.normA = RequireFinite(problem, problem.a, "A").norm;
  settings.normB = problem.IsGeneralized() ? RequirePositiveNorm(problem) : 1.0;
  settings.threshold = options.threshold;
  if (options.threshold > 0.0) return settings;
  settings.tolerance =
      options.tolerance > 0.0 ? options.tolerance : (isSingle<Scalar> ? 1e-4 : 1e-8);
  settings.threshold =
      settings.tolerance * ScaleOf(options.detector, settings.normA, settings.normB);
  return settings;
}

ves::Options LibraryOptions(const RunSettings& settings, const SolverOptions& options) {
  ves::Options library;
  library.type = settings.solver;
  library.maxIter = options.maxIterations;
  library.maxOrthoIter = settings.orthoPasses;
  library.threshold = settings.threshold;
  library.denseEigenSolver = settings.dense;
  library.detector = options.detector;
  library.lockDetector = options.lockDetector;
  library.lockFactor = options.lockFactor;
  library.orthogonalizer = options.orthogonalizer;
  library.projector = options.projector;
  library.rankRevealer = options.rankRevealer;
  library.selfCheck = options.hasSelfCheck;
  library.mixedPrecision = settings.isMixed;
  library.innerSteps = settings.innerSteps;
  library.threads = -1;
  library.wanted = settings.pairs;
  if (settings.solver == VES_LOBPCG_BATCH) {
    library.batchLimit = settings.batchLimit;
    library.batchStart = settings.batch;
  }
  library.ppcgBatch = options.ppcgBatch;
  library.ppcgSoftLocking = options.softLocking;
  library.ppcgRRPeriod = options.rrPeriod;
  library.ppcgLockFactor = options.ppcgLockFactor;
  return library;
}

template RunSettings Decide(const Problem<double>&, const SolverOptions&, int);
template RunSettings Decide(const Problem<float>&, const SolverOptions&, int);
template RunSettings Decide(const Problem<std::complex<double>>&, const SolverOptions&, int);
template RunSettings Decide(const Problem<std::complex<float>>&, const SolverOptions&, int);

} // namespace VesTools
