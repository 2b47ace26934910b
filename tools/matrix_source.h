#ifndef VES_TOOLS_MATRIX_SOURCE_H
#define VES_TOOLS_MATRIX_SOURCE_H

#include "compressed_rows.h"

#include <mpi.h>

#include <memory>
#include <string>
#include <vector>

namespace VesTools {

/// A square matrix whose rows have no owners yet: entries on any process, or a file of which each
/// process can read the rows that it shall have.
class MatrixSource {
public:
  explicit MatrixSource(MPI_Comm comm) : m_comm(comm) {}
  MatrixSource(const MatrixSource&) = delete;
  MatrixSource& operator=(const MatrixSource&) = delete;
  virtual ~MatrixSource() = default;

  virtual int Order() const = 0;
  /// The numbers of entries in the rows that are this process's by the offsets. Collective.
  virtual std::vector<long long> CountEntries(const RowOffsets& offsets) const = 0;
  /// The rows that are this process's by the offsets; only once. Throws Error. Collective.
  virtual AnyRows TakeRows(const RowOffsets& offsets) = 0;

  MPI_Comm Comm() const { return m_comm; }

private:
  MPI_Comm m_comm;
};

/// As BalancedRows of entries.h, by the entries of all matrices. Collective.
RowOffsets BalancedRows(const std::vector<const MatrixSource*>& matrices);

/// The entries of a square matrix.
std::unique_ptr<MatrixSource> SourceOf(AnyEntries entries, MPI_Comm comm);

/// A square matrix in a file, of Matrix Market or of the rows that ves convert writes. Throws
/// Error. Collective.
std::unique_ptr<MatrixSource> OpenMatrix(const std::string& path, MPI_Comm comm);

} // namespace VesTools

#endif
