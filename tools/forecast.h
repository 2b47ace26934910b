#ifndef VES_TOOLS_FORECAST_H
#define VES_TOOLS_FORECAST_H

#include "options.h"
#include "run.h"
#include "run_model.h"

#include <mpi.h>

#include <ostream>
#include <string>
#include <vector>

namespace VesTools {

/// The iterations of a run as the model sees them, each as wide as it was.
std::vector<RunShape> CourseOf(const RunResult& run);

/// Of a solver on each of ForecastProcesses.
struct SolverForecast {
  VesSolverType solver = VES_LOBPCG;
  std::vector<RunShape> course;  ///< of the run that was counted
  std::vector<Cost> costs;       ///< of an iteration in the mean
  std::vector<double> bytesHeld; ///< by a process

  /// Of the whole run, on an entry of ForecastProcesses.
  double Seconds(std::size_t entry) const {
    return static_cast<double>(course.size()) * costs[entry].Total();
  }
  /// Processes; on more of them an iteration takes longer.
  int FastestOn() const;
};

/// Runs all solvers on a model and tells by the model of a run what they take on many processes,
/// and which to choose. Throws Error. Collective.
/// \return whether all of them converged
bool ForecastSolvers(const Options& options, std::ostream& out, MPI_Comm comm);

} // namespace VesTools

#endif
