#ifndef VES_TOOLS_ROW_FILE_H
#define VES_TOOLS_ROW_FILE_H

#include "matrix_source.h"

#include <mpi.h>

#include <memory>
#include <string>

namespace VesTools {

// A file of the rows of a Hermitian matrix, of which each process reads its share as it stands, in
// the byte order of the machine that wrote it:
//   header    RowFileHeader of row_file_format.h
//   starts    rows + 1 of 8 bytes: row i has the entries from starts[i] to starts[i + 1]
//   values    of 8 bytes, or 16 of complex numbers
//   columns   of 4 bytes, from 0, ascending in each row

/// Whether a file says that it holds rows. Collective.
bool IsRowFile(const std::string& path, MPI_Comm comm);

/// Throws Error for a file that is damaged, cut off or of another kind. Collective.
std::unique_ptr<MatrixSource> OpenRowFile(const std::string& path, MPI_Comm comm);

struct RowFileSummary {
  long long entries, bytes;
};

/// Writes rows, of which each process has those of the offsets, to a file beside the path, which
/// takes its name when it is whole. Throws Error. Collective.
RowFileSummary WriteRowFile(const std::string& path, const AnyRows& rows, int order, MPI_Comm comm);

} // namespace VesTools

#endif
