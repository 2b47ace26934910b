#ifndef VES_ORTHOGONALIZER_PASS_LOOP_H
#define VES_ORTHOGONALIZER_PASS_LOOP_H

#include <mpi.h>
#include <ves.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Ves {

/// Tolerance of an orthogonality error when none is given: 256 machine epsilons of double, 2^-44.
inline constexpr double defaultOrthoTol = 0x1p-44;
/// Passes when no limit is given.
inline constexpr int defaultOrthoPasses = 2;

/// Repeats pass(isFirst) until measure(), the orthogonality error after it, is at most the
/// threshold or the limit of passes is reached. At least one pass is made when the threshold is
/// below 1, no measurement follows the last allowed pass, and with a threshold of 1 or more there
/// is no pass. A negative limit or threshold takes its default. The error of process 0 of auxComm,
/// over which replicas of the blocks are kept in step, decides for all.
/// \return the result of the last pass
template <typename Pass, typename Measure>
VesReturnCode RepeatPasses(int maxOrthoIter, double threshold, MPI_Comm auxComm, Pass pass,
                           Measure measure) {
  const double tolerance = threshold < 0.0 ? defaultOrthoTol : threshold;
  const int maxPasses = maxOrthoIter < 0 ? defaultOrthoPasses : maxOrthoIter;
  VesReturnCode code = VES_GOOD;
  double error = 1.0;
  for (int passes = 1; tolerance < error; ++passes) {
    code = pass(passes == 1);
    if (passes >= maxPasses) break;
    error = measure();
    MPI_Bcast(&error, 1, MPI_DOUBLE, 0, auxComm);
  }
  return code;
}

/// Largest error of the groups that have columns; an empty group has no error of its own.
inline double LargestError(const std::vector<double>& errors, const std::vector<int>& widths) {
  double largest = 0.0;
  for (std::size_t j = 0; j < widths.size(); ++j)
    if (widths[j] > 0) largest = std::max(largest, errors[j]);
  return largest;
}

} // namespace Ves

#endif
