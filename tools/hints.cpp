#include "hints.h"

#include "detectors.h"
#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

namespace VesTools {
namespace {

// Residuals of so many units of rounding fall no further in most problems.
constexpr double floorInRounding = 1e3;
// More iterations than so many times those made are no advice.
constexpr double mostTimes = 20.0;

/// The residual that is furthest from what converges, in the units of the threshold; NaN where one
/// is not known.
double WorstOf(const RunResult& result, const std::vector<double>& residuals) {
  const bool isRelative = DetectorOf(result.detector).bound == ResidualBound::relative;
  double worst = 0.0;
  for (std::size_t j = 0; j < residuals.size(); ++j) {
    if (std::isnan(residuals[j])) return residuals[j];
    const double size = isRelative ? std::abs(result.values[j]) : 1.0;
    worst = std::max(worst, residuals[j] / size);
  }
  return worst;
}

/// What a tolerance is relative to.
double SizeOf(const RunResult& result) {
  const RunSettings& settings = result.settings;
  return DetectorOf(result.detector).scale(settings.normA, settings.normB);
}

bool IsSingle(const RunResult& result) {
  return result.scalar == VES_FLOAT || result.scalar == VES_COMPLEX_FLOAT;
}

bool IsAtRounding(const RunResult& result, double worst) {
  const double epsilon = IsSingle(result) ? std::numeric_limits<float>::epsilon()
                                          : std::numeric_limits<double>::epsilon();
  return DetectorOf(result.detector).bound == ResidualBound::absolute &&
         worst <= floorInRounding * epsilon * SizeOf(result);
}

// By the pace of the last half of the run; 0 where that is unknown or leads too far.
int IterationsNeeded(const RunResult& result, double worst) {
  const History& history = result.history;
  const double threshold = result.settings.threshold;
  const bool isCompared = DetectorOf(result.detector).bound != ResidualBound::none;
  if (!isCompared || history.size() < 4 || !(worst > threshold)) return 0;
  const HistoryEntry& middle = history[history.size() / 2];
  const double before = WorstOf(result, middle.residuals);
  const double fall = std::log(before / worst) / (result.iterations - middle.iteration);
  const double needed = result.iterations + std::log(worst / threshold) / fall;
  if (!(fall > 0.0) || !(needed < mostTimes * result.iterations)) return 0;
  const double digit = std::pow(10.0, std::floor(std::log10(needed)));
  return static_cast<int>(std::min(digit * std::ceil(1.2 * needed / digit), 1e9));
}

bool IsBegun(const std::string& text, const char* word) {
  return text.rfind(word, 0) == 0;
}

void SuggestPreconditioner(const RunResult& result, std::vector<std::string>& advice) {
  const std::string& used = result.preconditioner;
  const bool isOfMatrix = result.nonZerosA > 0 && !result.settings.isLargest;
  if (!isOfMatrix || IsBegun(used, "shift-invert")) return;
  if (result.processes == 1)
    advice.push_back("--precond shift-invert (exact factors)");
  else if (used == "none" || IsBegun(used, "jacobi"))
    advice.push_back("--precond ic");
}

void SuggestGuards(const RunResult& result, std::vector<std::string>& advice) {
  const RunSettings& settings = result.settings;
  const int missing = settings.pairs - result.converged;
  const int guard = std::max(4, 2 * settings.guard);
  // Guards serve the last pairs, which are slowed by the values behind them.
  if (2 * missing > settings.pairs || settings.pairs + guard > result.order) return;
  advice.push_back("--guard " + std::to_string(guard));
}

std::vector<std::string> Advice(const RunResult& result, double worst) {
  std::vector<std::string> advice;
  if (IsAtRounding(result, worst)) {
    if (IsSingle(result)) advice.push_back("--scalar double");
    advice.push_back("--tol " + Short(2.0 * worst / SizeOf(result)) +
                     ", since the residuals stand at the rounding of ||A||");
    return advice;
  }
  SuggestPreconditioner(result, advice);
  SuggestGuards(result, advice);
  if (result.reason == VES_REASON_ITERATIONS) {
    const int needed = IterationsNeeded(result, worst);
    if (needed > 0) advice.push_back("--max-iter " + std::to_string(needed) + " at this pace");
  }
  if (result.stop == Stop::timeLimit) advice.push_back("a longer --time-limit");
  if (result.reason == VES_REASON_STAGNATED && advice.empty()) advice.push_back("a looser --tol");
  return advice;
}

} // namespace

void PrintHints(std::ostream& out, const RunResult& result, const Options& options) {
  if (result.IsAccepted()) return;
  const double worst = WorstOf(result, result.residuals);
  const bool isCompared = DetectorOf(result.detector).bound != ResidualBound::none;
  out << "residuals   up to " << Short(worst);
  if (isCompared) out << ", threshold " << Short(result.settings.threshold);
  out << ", preconditioner " << result.preconditioner << "\n";
  std::vector<std::string> advice;
  if (std::isfinite(worst)) advice = Advice(result, worst);
  if (!options.output.vectors.empty() && result.unwritten.empty())
    advice.push_back("--start " + options.output.vectors + " to go on from here");
  for (std::size_t i = 0; i < advice.size(); ++i)
    out << (i == 0 ? "try         " : ", ") << advice[i];
  if (!advice.empty()) out << "\n";
  if (std::getenv("OMPI_COMM_WORLD_SIZE") != nullptr)
    out << "exit code 1, of which mpirun tells at length but with its option -q\n";
}

} // namespace VesTools
