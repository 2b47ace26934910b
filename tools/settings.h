#ifndef VES_TOOLS_SETTINGS_H
#define VES_TOOLS_SETTINGS_H

#include "handles.h"
#include "run.h"

namespace VesTools {

/// Decides what the options leave open. Estimates norms. Collective.
template <typename Scalar>
RunSettings Decide(const Problem<Scalar>& problem, const SolverOptions& options);

/// A solver of the library, set accordingly.
SolverHandle MakeSolver(VesScalarType scalar, bool isGeneralized, const RunSettings& settings,
                        const SolverOptions& options);

} // namespace VesTools

#endif
