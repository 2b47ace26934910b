#ifndef VES_TOOLS_REPORT_H
#define VES_TOOLS_REPORT_H

#include "run.h"

#include <ostream>

namespace VesTools {

/// The table of pairs and what the run took, for people.
void PrintReport(std::ostream& out, const RunResult& result);

/// "double, order 494, 1666 non-zeros, 2 processes" and the like.
void PrintProblem(std::ostream& out, const RunResult& result);

} // namespace VesTools

#endif
