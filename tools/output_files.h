#ifndef VES_TOOLS_OUTPUT_FILES_H
#define VES_TOOLS_OUTPUT_FILES_H

#include "options.h"
#include "run.h"

#include <mpi.h>

#include <string>

namespace VesTools {

/// Makes sure, before the work for them is done, that the files can be written and that none takes
/// the place of another or of a matrix. Throws Error. Collective.
void ProbeOutput(const Options& options, MPI_Comm comm);

/// Writes the files of process 0, as far as possible. \return what is wrong with any file of the
/// run, or nothing
std::string WriteFiles(const RunResult& result, const Options& options);

} // namespace VesTools

#endif
