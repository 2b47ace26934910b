#include <ves.h>

#define VES_QUOTE(number) #number
#define VES_DOTTED(major, minor, patch) VES_QUOTE(major) "." VES_QUOTE(minor) "." VES_QUOTE(patch)

const char* VesGetVersion(void) noexcept {
  return VES_DOTTED(VES_VERSION_MAJOR, VES_VERSION_MINOR, VES_VERSION_PATCH);
}

const char* VesErrorString(VesReturnCode code) noexcept {
  switch (code) {
  case VES_GOOD:
    return "success";
  case VES_ERR_INVALID_VALUE:
    return "an argument has an invalid value";
  case VES_ERR_OUT_OF_RANGE:
    return "a sub-block lies outside its parent block";
  case VES_ERR_UNSUPPORTED:
    return "unknown kind, or a block that the operation cannot work on";
  case VES_ERR_MISMATCH:
    return "scalar types, shapes or communicators do not belong together";
  case VES_ERR_INCOMPATIBLE:
    return "the objects cannot take part in the operation";
  case VES_ERR_NULL_POINTER:
    return "a required handle, pointer, storage or routine is missing";
  }
  return "unknown return code";
}

const char* VesReasonString(VesSolverReason reason) noexcept {
  switch (reason) {
  case VES_REASON_NONE:
    return "no run yet";
  case VES_REASON_CONVERGED:
    return "converged";
  case VES_REASON_ITERATIONS:
    return "iteration limit reached";
  case VES_REASON_MONITOR:
    return "stopped by the monitor";
  case VES_REASON_STAGNATED:
    return "stagnated";
  case VES_REASON_NONFINITE:
    return "an operator returned NaN or infinity";
  }
  return "unknown reason";
}
