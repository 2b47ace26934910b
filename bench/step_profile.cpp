#include "step_profile.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <mpi.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

namespace {

struct Frame {
  void* function;
  double start;
};

struct Total {
  long calls = 0;
  double seconds = 0.0;
};

/// Of the thread that asks: steps are those of the first, which runs the solver.
struct Profile {
  std::vector<Frame> open;
  std::map<std::pair<void*, void*>, Total> totals; ///< by caller and function
};

Profile& TheProfile() {
  thread_local Profile profile;
  return profile;
}

/// "Step" of "Ves::Class<Type>::Step(arguments)"; nothing for what is no method of the library.
std::string MethodName(void* function) {
  Dl_info info{};
  if (dladdr(function, &info) == 0 || info.dli_sname == nullptr) return {};
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), &std::free);
  if (status != 0 || text == nullptr) return {};
  const std::string name = text.get();
  const std::size_t end = name.find(">::");
  if (name.compare(0, 5, "Ves::") != 0 || end == std::string::npos) return {};
  return name.substr(end + 3, name.find('(', end) - end - 3);
}

} // namespace

// Calls that the compiler puts at the start and the end of every function of the solvers.
extern "C" void __cyg_profile_func_enter(void* function, void*) {
  TheProfile().open.push_back({function, MPI_Wtime()});
}

extern "C" void __cyg_profile_func_exit(void* function, void*) {
  Profile& profile = TheProfile();
  const double seconds = MPI_Wtime() - profile.open.back().start;
  profile.open.pop_back();
  void* const caller = profile.open.empty() ? nullptr : profile.open.back().function;
  Total& total = profile.totals[{caller, function}];
  ++total.calls;
  total.seconds += seconds;
}

namespace VesBench {

std::vector<StepTime> StepTimes() {
  std::vector<StepTime> steps;
  for (const auto& [place, total] : TheProfile().totals) {
    const std::string caller = MethodName(place.first), name = MethodName(place.second);
    const bool isStep = caller == "Iterate" || (caller == "SolveDense" && name != "Iterate");
    if (isStep && !name.empty()) steps.push_back({name, total.calls, total.seconds});
  }
  std::sort(steps.begin(), steps.end(),
            [](const StepTime& a, const StepTime& b) { return a.seconds > b.seconds; });
  return steps;
}

} // namespace VesBench
