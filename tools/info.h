#ifndef VES_TOOLS_INFO_H
#define VES_TOOLS_INFO_H

#include "kernels.h"

#include <mpi.h>

#include <ostream>

namespace VesTools {

/// Prints versions, the BLAS, LAPACK and MPI that are loaded, processes, threads and cores, and
/// what may make runs slow or wrong. Collective.
void PrintInfo(std::ostream& out, const Kernels& kernels, MPI_Comm comm);

} // namespace VesTools

#endif
