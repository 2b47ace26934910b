#ifndef VES_TOOLS_HINTS_H
#define VES_TOOLS_HINTS_H

#include "options.h"
#include "run.h"

#include <ostream>

namespace VesTools {

/// Of a run that did not find all pairs: how far its residuals are, and what to try.
void PrintHints(std::ostream& out, const RunResult& result, const Options& options);

} // namespace VesTools

#endif
