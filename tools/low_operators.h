#ifndef VES_TOOLS_LOW_OPERATORS_H
#define VES_TOOLS_LOW_OPERATORS_H

#include "options.h"
#include "problem.h"

namespace VesTools {

/// Gives a problem in double precision its operators in single precision, with a float copy of its
/// factors, unless the options leave no use for them: then nothing is added. Exact factors get no
/// copy.
/// Throws Error where mixed precision is asked for in a problem of single precision. Collective.
template <typename Scalar>
void AddLowOperators(const Options& options, const ProblemData& data, Problem<Scalar>& problem);

} // namespace VesTools

#endif
