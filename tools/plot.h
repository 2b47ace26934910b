#ifndef VES_TOOLS_PLOT_H
#define VES_TOOLS_PLOT_H

#include "run.h"

#include <ostream>

namespace VesTools {

/// Draws a run: the residual of every pair against the iterations on a logarithmic axis, with the
/// threshold where it is a bound of residuals; the values found; where the time went.
void WritePlot(std::ostream& out, const RunResult& result);

} // namespace VesTools

#endif
