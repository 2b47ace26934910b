#ifndef VES_TOOLS_CHECK_H
#define VES_TOOLS_CHECK_H

#include <mpi.h>

#include <ostream>
#include <string>

namespace VesTools {

/// Recomputes what a result file claims from the problem and the vectors: residuals of the
/// converged pairs, B-orthonormality of all, the order of the values. Throws Error. Collective.
/// \return whether all is as it should be
bool CheckResult(const std::string& path, std::ostream& out, MPI_Comm comm);

} // namespace VesTools

#endif
