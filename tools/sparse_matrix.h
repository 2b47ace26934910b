#ifndef VES_TOOLS_SPARSE_MATRIX_H
#define VES_TOOLS_SPARSE_MATRIX_H

#include "entries.h"

#include <Eigen/SparseCore>
#include <mpi.h>
#include <ves.hpp>

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

/// A sparse square matrix by blocks of rows: the library's operator, and beside it what couples the
/// rows of this process with each other, of which preconditioners are made.
template <typename Scalar>
class SparseMatrix {
public:
  using Sparse = Eigen::SparseMatrix<Scalar, Eigen::RowMajor>;

  /// The entries are with the owners of their rows, ordered. Collective, as is the end of its life.
  SparseMatrix(const std::vector<Entry>& entries, const RowOffsets& offsets, MPI_Comm comm);

  long long NonZeros() const { return m_nonZeros; } ///< local
  const Sparse& DiagonalBlock() const { return m_block; }

  /// y = A x, both n x nCols with leading dimension ld, in the type of the matrix or its kin of
  /// single precision. Collective over the processes with rows.
  template <typename Number>
  void Apply(const Number* x, Number* y, int nCols, int ld) const {
    const auto block = [&](Number* data) {
      return ves::Block<Number>(
          ves::View<Number>(data, static_cast<int>(m_block.rows()), nCols, ld), m_comm);
    };
    multiply(m_operator, block(const_cast<Number*>(x)), block(y)); // which is read only
  }

private:
  MPI_Comm m_comm;
  long long m_nonZeros;
  Sparse m_block;
  ves::Operator<Scalar> m_operator;
};

} // namespace VesTools

#endif
