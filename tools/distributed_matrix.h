#ifndef VES_TOOLS_DISTRIBUTED_MATRIX_H
#define VES_TOOLS_DISTRIBUTED_MATRIX_H

#include "entries.h"

#include <Eigen/SparseCore>
#include <mpi.h>

#include <complex>
#include <type_traits>
#include <vector>

namespace VesTools {

/// A number of the type; the imaginary part is dropped for real types.
template <typename Scalar>
Scalar Convert(const std::complex<double>& value) {
  if constexpr (std::is_floating_point_v<Scalar>)
    return static_cast<Scalar>(value.real());
  else
    return Scalar(value);
}

/// A sparse square matrix by blocks of rows. A product exchanges the rows of x that other processes
/// need once for all columns of a block, with neighbours alone: processes without rows have none.
template <typename Scalar>
class DistributedMatrix {
public:
  using Sparse = Eigen::SparseMatrix<Scalar, Eigen::RowMajor>;

  /// The entries are with the owners of their rows, ordered. Collective.
  DistributedMatrix(const std::vector<Entry>& entries, const RowOffsets& offsets, MPI_Comm comm);

  int LocalRows() const { return static_cast<int>(m_local.rows()); }
  long long NonZeros() const { return m_local.nonZeros() + m_halo.nonZeros(); } ///< local
  const Sparse& DiagonalBlock() const { return m_local; }

  /// y = A x, both n x nCols with leading dimension ld. Collective over the processes with rows.
  void Apply(const Scalar* x, Scalar* y, int nCols, int ld) const;

private:
  /// Rows that are exchanged with another process: count of them from first on, in the order of the
  /// halo for those received and of m_sentRows for those sent.
  struct Neighbour {
    int process;
    int first, count;
  };

  void SetNeighbours(const std::vector<int>& haloColumns, const RowOffsets& offsets, int firstRow);

  MPI_Comm m_comm;
  Sparse m_local; ///< columns of own rows
  Sparse m_halo;  ///< columns of other processes' rows, numbered by their order
  std::vector<Neighbour> m_sources, m_targets;
  std::vector<int> m_sentRows; ///< local numbers of the rows that others need
};

} // namespace VesTools

#endif
