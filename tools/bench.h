#ifndef VES_TOOLS_BENCH_H
#define VES_TOOLS_BENCH_H

#include "options.h"

#include <mpi.h>

#include <ostream>

namespace VesTools {

/// Runs all solvers on a model and compares them with the first. Throws Error. Collective.
/// \return whether all of them converged
bool CompareSolvers(const Options& options, std::ostream& out, MPI_Comm comm);

} // namespace VesTools

#endif
