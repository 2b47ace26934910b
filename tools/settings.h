#ifndef VES_TOOLS_SETTINGS_H
#define VES_TOOLS_SETTINGS_H

#include "run.h"

#include <ves.hpp>

namespace VesTools {

/// Decides what the options leave open, beside so many columns that are deflated. Estimates norms.
/// Collective.
template <typename Scalar>
RunSettings Decide(const Problem<Scalar>& problem, const SolverOptions& options, int deflated = 0);

/// The options of the library accordingly.
ves::Options LibraryOptions(const RunSettings& settings, const SolverOptions& options);

} // namespace VesTools

#endif
