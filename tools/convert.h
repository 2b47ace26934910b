#ifndef VES_TOOLS_CONVERT_H
#define VES_TOOLS_CONVERT_H

#include "options.h"

#include <mpi.h>

#include <ostream>

namespace VesTools {

/// Writes the rows of a matrix from a file to one that is read without a look at text. Throws
/// Error. Collective.
void ConvertMatrix(const Options& options, std::ostream& out, MPI_Comm comm);

} // namespace VesTools

#endif
