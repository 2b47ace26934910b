#ifndef VES_TOOLS_REPORT_H
#define VES_TOOLS_REPORT_H

#include "run.h"

#include <ostream>
#include <string>

namespace VesTools {

/// A number with a few digits.
std::string Short(double value, int digits = 2);

/// What the library spends between the operators and small problems: products of blocks and, on
/// several processes, reductions.
double SecondsOfBlocks(const VesSolverStats& stats);

/// What is solved and how, before the run.
void PrintHead(std::ostream& out, const RunResult& result);

/// The table of pairs and what the run took, for people.
void PrintReport(std::ostream& out, const RunResult& result);

/// "double, order 494, 1666 non-zeros, 2 processes" and the like.
void PrintProblem(std::ostream& out, const RunResult& result);

} // namespace VesTools

#endif
