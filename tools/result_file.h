#ifndef VES_TOOLS_RESULT_FILE_H
#define VES_TOOLS_RESULT_FILE_H

#include "options.h"
#include "run.h"

#include <mpi.h>

#include <string>
#include <vector>

namespace VesTools {

/// Writes a result as JSON; files are named relative to its folder. On one process; \return
/// success.
bool WriteResult(const std::string& path, const RunResult& result, const Options& options);

/// What a result file claims, and where the problem and the vectors are.
struct Claim {
  ProblemOptions problem;
  std::string vectors;
  std::vector<double> values, residuals;
  bool isLargest = false; ///< values descend
  int converged = 0, processes = 1;
  VesConvergeDetectorType detector = VES_RESIDUALS;
  double threshold = 0.0, normA = 0.0, normB = 0.0;
};

/// Reads a result file on process 0 and sends it to all. Throws Error. Collective.
Claim ReadClaim(const std::string& path, MPI_Comm comm);

} // namespace VesTools

#endif
