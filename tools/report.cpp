#include "report.h"

#include "detectors.h"
#include "names.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <string>

namespace VesTools {
namespace {

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

void PrintSettings(std::ostream& out, const RunResult& result) {
  const RunSettings& settings = result.settings;
  const std::string which = settings.isLargest ? "largest pair" : "lowest pair";
  out << Counted(settings.pairs, which, which + "s");
  if (settings.guard > 0) out << " and " << Counted(settings.guard, "guard", "guards");
  out << " by " << NameOf(solverNames, settings.solver);
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
  out << "columns     A " << stats.columnsA;
  if (result.nonZerosB > 0) out << ", B " << stats.columnsB;
  if (stats.columnsT > 0) out << ", preconditioner " << stats.columnsT;
  if (stats.columnsLow > 0) out << "; of A " << stats.columnsLow << " in single precision";
  out << "\ntime        " << Short(stats.secondsTotal, 3) << " s: A " << Short(result.secondsA);
  if (result.nonZerosB > 0) out << ", B " << Short(result.secondsB);
  if (stats.columnsT > 0) out << ", preconditioner " << Short(result.secondsT);
  out << ", small problems " << Short(stats.secondsDense) << "\nblocks      "
      << Short(SecondsOfBlocks(stats)) << " s between these: products of blocks";
  if (result.processes > 1)
    out << ", " << Counted(stats.reductions, "reduction", "reductions") << " of "
        << Bytes(static_cast<double>(stats.bytesReduced));
  out << "\nmemory      " << Bytes(result.bytesTaken) << ", forecast "
      << Bytes(result.bytesForecast) << (result.processes > 1 ? " a process\n" : "\n");
}

} // namespace

std::string Short(double value, int digits) {
  std::ostringstream text;
  text << std::setprecision(digits) << value;
  return text.str();
}

double SecondsOfBlocks(const VesSolverStats& stats) {
  return std::max(stats.secondsTotal - stats.secondsOperators - stats.secondsDense, 0.0);
}

void PrintProblem(std::ostream& out, const RunResult& result) {
  out << result.title << "\n" << NameOf(scalarNames, result.scalar) << ", order " << result.order;
  if (result.nonZerosA > 0) out << ", " << result.nonZerosA << " non-zeros";
  if (result.nonZerosB > 0) out << " (B: " << result.nonZerosB << ")";
  out << ", " << Counted(result.processes, "process", "processes") << "\n";
}

void PrintHead(std::ostream& out, const RunResult& result) {
  PrintProblem(out, result);
  PrintSettings(out, result);
}

void PrintReport(std::ostream& out, const RunResult& result) {
  PrintPairs(out, result);
  out << "\n"
      << result.converged << " of " << Counted(result.settings.pairs, "pair", "pairs")
      << " converged in " << Counted(result.iterations, "iteration", "iterations") << ": "
      << result.Reason() << "\northogonality to " << Short(result.orthoError) << "\n";
  PrintCosts(out, result);
}

} // namespace VesTools
