#ifndef VES_TOOLS_DIAGONAL_BLOCKS_H
#define VES_TOOLS_DIAGONAL_BLOCKS_H

#include "compressed_rows.h"

#include <Eigen/SparseCore>
#include <mpi.h>

namespace VesTools {

/// What couples the rows of each process with each other in A and B, of which preconditioners are
/// made. Every diagonal entry is stored, as factorizations want it.
template <typename Scalar>
struct DiagonalBlocks {
  using Sparse = Eigen::SparseMatrix<Scalar>;

  Sparse a;
  Sparse b; ///< on a process alone, the identity in the standard problem; else empty
  MPI_Comm comm;

  template <typename Number>
  DiagonalBlocks<Number> In() const { // another type of numbers
    return {a.template cast<Number>(), b.template cast<Number>(), comm};
  }
};

/// The block of this process of a Hermitian matrix.
template <typename Scalar>
Eigen::SparseMatrix<Scalar> DiagonalBlock(const CompressedRows<Scalar>& rows) {
  const int order = rows.Rows();
  Eigen::SparseMatrix<Scalar> block(order, order);
  block.reserve(static_cast<Eigen::Index>(rows.values.size()) + order);
  for (int i = 0; i < order; ++i) {
    block.startVec(i);
    bool hasDiagonal = false;
    const auto completeDiagonal = [&] {
      if (!hasDiagonal) block.insertBack(i, i) = Scalar(0);
      hasDiagonal = true;
    };
    // A column of the matrix is its row, conjugated.
    rows.ForRow(i, [&](int column, const Scalar& value) {
      const int j = column - rows.first;
      if (j < 0 || j >= order) return;
      if (j > i) completeDiagonal();
      block.insertBack(j, i) = Conjugate(value);
      hasDiagonal = hasDiagonal || j == i;
    });
    completeDiagonal();
  }
  block.finalize();
  return block;
}

} // namespace VesTools

#endif
