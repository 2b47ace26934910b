#ifndef VES_TOOLS_LOW_OPERATORS_H
#define VES_TOOLS_LOW_OPERATORS_H

#include "options.h"
#include "problem.h"

namespace VesTools {

/// Gives a problem in double precision, with its entries, operators in single precision and a
/// preconditioner made in it, unless the options leave no use for them: then nothing is added.
/// Exact factors get no copy. The entries may be gone then. Throws Error where mixed precision is asked for in a problem of single
/// precision. Collective.
template <typename Scalar>
void AddLowOperators(const Options& options, Problem<Scalar>& problem);

} // namespace VesTools

#endif
