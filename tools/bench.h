#ifndef VES_TOOLS_BENCH_H
#define VES_TOOLS_BENCH_H

#include "options.h"
#include "run.h"

#include <mpi.h>

#include <ostream>

namespace VesTools {

/// Runs the solvers on a model, one after the other, until they have or an interrupt ends it; each
/// leaves out what only others are told. Throws Error. Collective.
void RunSolvers(const Options& options, MPI_Comm comm, const RunListener& ended);

/// Runs all solvers on a model and compares them with the first. Throws Error. Collective.
/// \return whether all of them converged
bool CompareSolvers(const Options& options, std::ostream& out, MPI_Comm comm);

} // namespace VesTools

#endif
