// Every setting of a solver that is one number, with what it refuses.
#ifndef VES_TESTS_INTERFACE_SETTERS_H
#define VES_TESTS_INTERFACE_SETTERS_H

#include "support/dense_kinds.h"

#include <ves.h>

#include <cmath>
#include <functional>
#include <optional>
#include <type_traits>
#include <vector>

namespace VesTest {

struct Setter {
  const char* name;
  std::function<VesReturnCode(VesSolver, double)> call;
  std::vector<double> wrong;
  VesReturnCode refusal;              ///< of what is wrong
  std::vector<double> taken;          ///< the last is not the default
  std::optional<VesSolverType> owner; ///< the only kind of solver that has it
  bool isReal;

  template <typename Value>
  Setter(const char* itsName, VesReturnCode (*set)(VesSolver, Value) noexcept,
         std::vector<double> refused, VesReturnCode code, std::vector<double> accepted,
         std::optional<VesSolverType> only = {})
      : name(itsName), call([set](VesSolver s, double v) { return set(s, static_cast<Value>(v)); }),
        wrong(std::move(refused)), refusal(code), taken(std::move(accepted)), owner(only),
        isReal(std::is_same_v<Value, double>) {}
};

inline const std::vector<Setter>& Setters() {
  constexpr VesReturnCode bad = VES_ERR_INVALID_VALUE, unsupported = VES_ERR_UNSUPPORTED;
  const double nan = std::nan("");
  std::vector<double> noSuchEvd = kindsNotBuilt;
  noSuchEvd.insert(noSuchEvd.end(), {-1, 5});
#define VES_SETTER(setter, ...) Setter(#setter, setter, __VA_ARGS__)
  static const std::vector<Setter> setters = {
      VES_SETTER(VesSolverSetProblemType, {}, VES_GOOD, {17}),
      VES_SETTER(VesSolverSetMaxIter, {0, -2}, bad, {1, 7}),
      VES_SETTER(VesSolverSetMaxOrthoIter, {0, -2}, bad, {1, 3}),
      VES_SETTER(VesSolverSetThreshold, {0, -1e-300}, bad, {1e-300}),
      VES_SETTER(VesSetDenseEigenSolverType, noSuchEvd, unsupported, {1, 0}),
      VES_SETTER(VesSetConvergeDetectorType, {-1, 4}, unsupported, {0, 3}),
      VES_SETTER(VesSetOrthogonalizerType, {-1, 2}, unsupported, {0, 1}),
      VES_SETTER(VesSolverSetLockDetectorType, {-1, 4}, unsupported, {0, 3}),
      VES_SETTER(VesSolverSetRankRevealerType, {-1, 2}, unsupported, {0, 1}),
      VES_SETTER(VesSolverSetSelfCheck, {}, VES_GOOD, {true, false}),
      VES_SETTER(VesSolverSetMixedPrecision, {}, unsupported, {false, true}), // of double precision
      VES_SETTER(VesSolverSetWanted, {-1}, bad, {0, 2}),
      VES_SETTER(VesSolverSetInnerSteps, {-2, 1001}, bad, {0, -1}),
      VES_SETTER(VesSolverSetThreads, {-2, 1025}, bad, {0, 1, -1}),
      VES_SETTER(VesSolverSetLockFactor, {-0.01, 1.01, nan}, bad, {0, 1}),
      VES_SETTER(VesSolverSetBatchLimit, {0, -1}, bad, {1}, VES_LOBPCG_BATCH),
      VES_SETTER(VesSolverSetBatchStart, {-1}, bad, {0, 1}, VES_LOBPCG_BATCH),
      VES_SETTER(VesSolverSetPPCGSoftLocking, {-1, 3}, bad, {0, 2}, VES_PPCG),
      VES_SETTER(VesSolverSetPPCGBatch, {0, -1}, bad, {1}, VES_PPCG),
      VES_SETTER(VesSolverSetPPCGRRPeriod, {-1}, bad, {0}, VES_PPCG),
      VES_SETTER(VesSolverSetPPCGLockFactor, {-0.01, 1.01, nan}, bad, {1, 0}, VES_PPCG),
  };
#undef VES_SETTER
  return setters;
}

} // namespace VesTest

#endif
