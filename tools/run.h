#ifndef VES_TOOLS_RUN_H
#define VES_TOOLS_RUN_H

#include "options.h"
#include "problem.h"
#include "run_monitor.h"

#include <mpi.h>

#include <functional>
#include <string>
#include <vector>

namespace VesTools {

/// How a run is set, with every "auto" decided.
struct RunSettings {
  VesSolverType solver = VES_LOBPCG;
  int pairs = 0, guard = 0, innerSteps = 0, batch = 0, batchLimit = 0, orthoPasses = 0;
  bool isMixed = false, isLargest = false;
  VesDenseEigenSolverType dense = VES_LAPACK_DIAG;
  double normA = 0.0;     ///< estimate of ||A||
  double normB = 1.0;     ///< estimate of ||B||, 1 in the standard problem
  double tolerance = 0.0; ///< 0 when the threshold was given
  double threshold = 0.0; ///< in the units of the detector
};

/// A run and its recomputed result, the same on all processes but for the times of each.
struct RunResult {
  std::string title, preconditioner;
  VesScalarType scalar = VES_DOUBLE;
  VesConvergeDetectorType detector = VES_RESIDUALS;
  int order = 0, processes = 1;
  long long nonZerosA = 0, nonZerosB = 0; ///< 0 for a model without entries, or without B
  RunSettings settings;
  VesSolverReason reason = VES_REASON_NONE;
  Stop stop = Stop::none; ///< what the monitor ended it for
  int iterations = 0, converged = 0;
  std::vector<double> values;    ///< ascending, of the largest pairs descending
  std::vector<double> residuals; ///< ||A x - lambda B x||, recomputed
  double orthoError = 0.0;       ///< largest entry of |X^H B X - I|, recomputed
  VesSolverStats stats{};
  double secondsA = 0.0, secondsB = 0.0, secondsT = 0.0;
  double bytesTaken = 0.0, bytesForecast = 0.0; ///< on the process with most
  History history;
  std::string unwritten; ///< why the vectors wanted in a file are not there; or empty

  /// All pairs converged, by the word of the library and by their recomputed residuals where those
  /// are what was compared.
  bool IsAccepted() const;

  /// Why the run ended, in words of the program, whose monitor acts for its user.
  std::string Reason() const;
};

/// Hears of a run on all processes when all but its result is known.
using RunListener = std::function<void(const RunResult& head)>;

/// Computes the lowest pairs, which are the highest of A where A was negated. With output.vectors
/// they are written to that file; a failure of that is noted in the result, which must not be lost
/// with them. Collective.
template <typename Scalar>
RunResult Run(const Problem<Scalar>& problem, const std::string& preconditioner,
              const SolverOptions& options, const OutputOptions& output,
              const RunListener& begins = nullptr);

/// Loads the problem, adds the preconditioner and runs, in the scalar type asked for. Collective.
RunResult RunWith(const Options& options, MPI_Comm comm, const RunListener& begins = nullptr);

} // namespace VesTools

#endif
