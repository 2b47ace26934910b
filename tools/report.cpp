#include "report.h"

#include "detectors.h"
#include "names.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <string>

namespace VesTools {
namespace {

/// A number with a few digits.
std::string Short(double value, int digits = 2) {
  std::ostringstream text;
  text << std::setprecision(digits) << value;
  return text.str();
}

std::string Counted(long long count, const std::string& one, const std::string& more) {
  return std::to_string(count) + " " + (count == 1 ? one : more);
}

std::string Bytes(double bytes) {
  static constexpr const char* units[] = {"B", "kB", "MB", "GB", "TB"};
  std::size_t unit = 0;
  for (; bytes >= 1000.0 && unit + 1 < std::size(units); ++unit)
    bytes /= 1000.0;
  return Short(bytes, 3) + " " + units[unit];
}

// The monitor of the program acts for its user.
const char* ReasonOf(const RunResult& result) {
  return result.reason == VES_REASON_MONITOR ? "stopped by the time limit or an interrupt"
                                             : VesReasonString(result.reason);
}

void PrintSettings(std::ostream& out, const RunResult& result) {
  const RunSettings& settings = result.settings;
  out << NameOf(solverNames, settings.solver);
  if (settings.solver == VES_LOBPCG_BATCH) {
    out << " of " << settings.batch;
    if (settings.batchLimit > settings.batch) out << " to " << settings.batchLimit;
    out << " at once";
  }
  out << ", preconditioner " << result.preconditioner << "\n"
      << NameOf(detectorNames, result.detector) << " below " << Short(settings.threshold);
  if (settings.tolerance > 0.0) {
    out << " (tolerance " << Short(settings.tolerance);
    if (DetectorOf(result.detector).bound != ResidualBound::relative)
      out << ", ||A|| about " << Short(settings.normA, 3);
    if (result.nonZerosB > 0) out << ", ||B|| about " << Short(settings.normB, 3);
    out << ")";
  }
  out << "\n";
}

void PrintPairs(std::ostream& out, const RunResult& result) {
  const bool isSingle = result.scalar == VES_FLOAT || result.scalar == VES_COMPLEX_FLOAT;
  out << "\n  pair            eigenvalue   residual\n";
  for (std::size_t j = 0; j < result.values.size(); ++j) {
    out << std::setw(6) << j + 1 << std::setw(22) << std::setprecision(isSingle ? 7 : 14)
        << result.values[j] << std::setw(11) << Short(result.residuals[j])
        << (j < static_cast<std::size_t>(result.converged) ? "" : "  not converged") << "\n";
  }
}

void PrintCosts(std::ostream& out, const RunResult& result) {
  const VesSolverStats& stats = result.stats;
  const double operators = result.secondsA + result.secondsB;
  const double rest = stats.secondsTotal - operators - result.secondsT - stats.secondsDense;
  out << "columns     A " << stats.columnsA;
  if (result.nonZerosB > 0) out << ", B " << stats.columnsB;
  if (stats.columnsT > 0) out << ", preconditioner " << stats.columnsT;
  if (stats.columnsLow > 0) out << "; of A " << stats.columnsLow << " in single precision";
  out << "\ntime        " << Short(stats.secondsTotal, 3) << " s: operator " << Short(operators)
      << ", preconditioner " << Short(result.secondsT) << ", small problems "
      << Short(stats.secondsDense) << ", rest " << Short(std::max(rest, 0.0)) << "\nmemory      "
      << Bytes(result.bytesTaken) << ", forecast " << Bytes(result.bytesForecast)
      << (result.processes > 1 ? " a process\n" : "\n");
}

} // namespace

void PrintProblem(std::ostream& out, const RunResult& result) {
  out << result.title << "\n" << NameOf(scalarNames, result.scalar) << ", order " << result.order;
  if (result.nonZerosA > 0) out << ", " << result.nonZerosA << " non-zeros";
  if (result.nonZerosB > 0) out << " (B: " << result.nonZerosB << ")";
  out << ", " << Counted(result.processes, "process", "processes") << "\n";
}

void PrintReport(std::ostream& out, const RunResult& result) {
  PrintProblem(out, result);
  PrintSettings(out, result);
  PrintPairs(out, result);
  out << "\n"
      << result.converged << " of " << Counted(result.settings.pairs, "pair", "pairs")
      << " converged in " << Counted(result.iterations, "iteration", "iterations") << ": "
      << ReasonOf(result) << "\northogonality to " << Short(result.orthoError) << "\n";
  PrintCosts(out, result);
}

} // namespace VesTools
