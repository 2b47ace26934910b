// Time of every step of a solver, where the library was built with VES_PROFILE_STEPS.
#ifndef VES_BENCH_STEP_PROFILE_H
#define VES_BENCH_STEP_PROFILE_H

#include <string>
#include <vector>

namespace VesBench {

struct StepTime {
  std::string name; ///< of the method, without its class
  long calls;
  double seconds; ///< with all that the step calls
};

/// What the loops of all runs so far have called, and what came before and after them; the longest
/// first. None in a plain build.
std::vector<StepTime> StepTimes();

} // namespace VesBench

#endif
