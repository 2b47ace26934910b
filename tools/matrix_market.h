#ifndef VES_TOOLS_MATRIX_MARKET_H
#define VES_TOOLS_MATRIX_MARKET_H

#include "entries.h"

#include <mpi.h>

#include <string>

namespace VesTools {

/// Reads a Matrix Market file, coordinate or array, of any field and any symmetry but
/// skew-symmetric; entries of a triangle are mirrored. Each process reads a share of the file,
/// which all must be able to open. Throws Error with file name and line number. Collective.
AnyEntries ReadMatrixMarket(const std::string& path, MPI_Comm comm);

/// As ReadMatrixMarket, for a square matrix.
AnyEntries ReadSquareMatrix(const std::string& path, MPI_Comm comm);

/// Writes a distributed block as a general array: localRows x columns here, column-major without
/// gaps, the rows of a process following those of the process before it. Throws Error when the file
/// cannot be written. Collective.
template <typename Scalar>
void WriteMatrixMarket(const std::string& path, const Scalar* values, int localRows, int columns,
                       MPI_Comm comm);

} // namespace VesTools

#endif
