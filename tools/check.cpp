#include "check.h"

#include "detectors.h"
#include "guess.h"
#include "names.h"
#include "parallel.h"
#include "result_file.h"
#include "timed_operator.h"

#include <cmath>
#include <iomanip>
#include <limits>

namespace VesTools {
namespace {

/// What was found, each next to its bound.
struct Verdict {
  int wrongResiduals = 0;     ///< converged pairs beyond what the detector or the file allows
  double worstResidual = 0.0; ///< of the converged pairs
  double orthoError = 0.0, orthoBound = 0.0;
  int wrongOrder = 0; ///< values on the wrong side of the one before
};

// The library confirms orthonormality to these.
template <typename Scalar>
constexpr double orthoBound = sizeof(std::real(Scalar())) == sizeof(float) ? 1e-4 : 1e-10;

// Values of close pairs may be in any order within their errors.
int CountWrongOrder(const Claim& claim, double error) {
  const double sign = claim.isLargest ? -1.0 : 1.0;
  int wrong = 0;
  for (std::size_t j = 1; j < claim.values.size(); ++j)
    if (!(sign * claim.values[j] >= sign * claim.values[j - 1] - error)) ++wrong;
  return wrong;
}

// Those of converged pairs are held to the detector, and to what the file says up to rounding.
void JudgeResiduals(const Claim& claim, const std::vector<double>& residuals,
                    const std::vector<double>& sizes, double epsilon, Verdict& verdict) {
  for (std::size_t j = 0; j < static_cast<std::size_t>(claim.converged); ++j) {
    const double value = claim.values[j], residual = residuals[j];
    const double rounding =
        100.0 * epsilon * (claim.normA + std::abs(value) * claim.normB) * sizes[j];
    const bool isAccepted = residual <= AcceptedResidual(claim.detector, claim.threshold, value) &&
                            residual <= 2.0 * claim.residuals[j] + rounding;
    if (!isAccepted) ++verdict.wrongResiduals;
    // A residual that is not a number stays the worst.
    if (!(residual <= verdict.worstResidual) && !std::isnan(verdict.worstResidual))
      verdict.worstResidual = residual;
  }
}

// Collective.
template <typename Scalar>
Verdict Judge(const Claim& claim, const Problem<Scalar>& problem) {
  const auto pairs = static_cast<int>(claim.values.size());
  const ves::Block<Scalar> x = ReadBlock(claim.vectors, problem);
  if (x.cols() != pairs)
    throw Error(exitInput, claim.vectors + ": " + std::to_string(x.cols()) + " vectors for " +
                               std::to_string(pairs) + " eigenvalues");
  const std::vector<ves::Real<Scalar>> values(claim.values.begin(), claim.values.end());
  double seconds = 0.0;
  const auto a = TimedOperator(problem.a, seconds), b = TimedOperator(problem.b, seconds);
  Verdict verdict;
  verdict.orthoBound = orthoBound<Scalar>;
  verdict.orthoError = checkEigenpairs(a, b, x, values).orthoError;
  const auto residuals = columnNorms(eigResidual(a, b, x, values)), sizes = columnNorms(x);
  const double epsilon = std::numeric_limits<decltype(std::real(Scalar()))>::epsilon();
  JudgeResiduals(claim, {residuals.begin(), residuals.end()}, {sizes.begin(), sizes.end()}, epsilon,
                 verdict);
  verdict.wrongOrder = CountWrongOrder(claim, 2.0 * verdict.worstResidual);
  return verdict;
}

bool Report(const Claim& claim, const Verdict& verdict, std::ostream& out) {
  const auto line = [&](const char* what, bool isGood) -> std::ostream& {
    return out << (isGood ? "good   " : "WRONG  ") << std::left << std::setw(15) << what;
  };
  const bool hasAll = claim.converged == static_cast<int>(claim.values.size());
  const bool hasResiduals = verdict.wrongResiduals == 0;
  const bool isOrthonormal = verdict.orthoError <= verdict.orthoBound;
  out << std::setprecision(2);
  line("convergence", hasAll) << claim.converged << " of " << claim.values.size() << " pairs\n";
  line("residuals", hasResiduals) << "largest " << verdict.worstResidual << ", threshold "
                                  << claim.threshold << " of "
                                  << NameOf(detectorNames, claim.detector) << "\n";
  line("orthogonality", isOrthonormal)
      << verdict.orthoError << ", bound " << verdict.orthoBound << "\n";
  line("order", verdict.wrongOrder == 0)
      << verdict.wrongOrder << " eigenvalues are " << (claim.isLargest ? "above" : "below")
      << " the one before\n";
  return hasAll && hasResiduals && isOrthonormal && verdict.wrongOrder == 0;
}

} // namespace

bool CheckResult(const std::string& path, std::ostream& out, MPI_Comm comm) {
  const Claim claim = ReadClaim(path, comm);
  ProblemData data = LoadProblem(claim.problem, comm);
  // The rows of plane waves lie differently on other numbers of processes.
  if (data.isPlaneWaves && claim.processes != Size(comm))
    throw Error(exitUsage, path +
                               ": vectors of the model silicon are checked on as many processes "
                               "as they were computed on, " +
                               std::to_string(claim.processes));
  const Verdict verdict = WithScalar(data.scalar, [&](auto* tag) {
    using Scalar = std::remove_pointer_t<decltype(tag)>;
    Problem<Scalar> problem = MakeProblem<Scalar>(claim.problem, std::move(data), comm);
    problem.ReleaseEntries();
    return Judge(claim, problem);
  });
  return Report(claim, verdict, out);
}

} // namespace VesTools
