#ifndef VES_TOOLS_PROBLEM_H
#define VES_TOOLS_PROBLEM_H

#include "diagonal_blocks.h"
#include "options.h"
#include "sparse_matrix.h"

#include <mpi.h>
#include <ves.h>

#include <complex>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace VesTools {

/// The scalar type of the same field in single precision.
template <typename Scalar>
using Low = std::conditional_t<std::is_floating_point_v<Scalar>, float, std::complex<float>>;

/// y = Op x on the local rows of a block; called on processes with rows alone.
template <typename Scalar>
using BlockOperator = std::function<void(const Scalar* x, Scalar* y, int nCols, int ld)>;

/// The product with a matrix, which it keeps, on blocks of Number.
template <typename Number, typename Scalar>
BlockOperator<Number> ProductWith(const std::shared_ptr<const SparseMatrix<Scalar>>& matrix) {
  if (!matrix) return nullptr;
  return
      [matrix](const Number* x, Number* y, int nCols, int ld) { matrix->Apply(x, y, nCols, ld); };
}

/// y = -Op x.
template <typename Scalar>
BlockOperator<Scalar> Negated(const BlockOperator<Scalar>& apply, int rows) {
  return [apply, rows](const Scalar* x, Scalar* y, int nCols, int ld) {
    apply(x, y, nCols, ld);
    for (std::ptrdiff_t j = 0; j < nCols; ++j)
      for (std::ptrdiff_t i = 0; i < rows; ++i)
        y[i + j * ld] = -y[i + j * ld];
  };
}

/// A x = lambda x or A x = lambda B x with rows distributed over comm. A is a sparse matrix or,
/// where matrixA is null, an operator with a preconditioner of its own.
template <typename Scalar>
struct Problem {
  std::string title;
  MPI_Comm comm = MPI_COMM_NULL;
  RowOffsets offsets;
  std::shared_ptr<const SparseMatrix<Scalar>> matrixA, matrixB;
  /// The entries, of which the operators have their own copy; gone when nobody needs them.
  std::shared_ptr<const CompressedRows<Scalar>> rowsA, rowsB;
  BlockOperator<Scalar> a, b, t; ///< b is empty in the standard problem, t without preconditioner
  BlockOperator<Low<Scalar>> lowA, lowB, lowT; ///< in single precision; empty where not wanted
  bool isInverseExact = false;                 ///< t is (A - s B)^-1
  std::vector<double> guessWeights; ///< of the local rows of a random guess; empty for equal ones

  int Order() const { return offsets.back(); }
  int LocalRows() const { return FirstRowOf(Rank() + 1) - FirstRow(); }
  int FirstRow() const { return FirstRowOf(Rank()); }
  bool IsGeneralized() const { return static_cast<bool>(b); }

  /// What preconditioners are made of, which takes the place of the rows. Local.
  const DiagonalBlocks<Scalar>& Blocks() {
    if (!m_blocks) m_blocks = std::make_shared<const DiagonalBlocks<Scalar>>(MakeBlocks());
    rowsA = rowsB = nullptr;
    return *m_blocks;
  }
  void ReleaseEntries() {
    rowsA = rowsB = nullptr;
    m_blocks = nullptr;
  }

  /// Puts -A in place of A, whose lowest pairs are the highest of A. Entries stay, and the random
  /// guess loses the weights that were made for the lowest.
  void NegateA() {
    a = Negated(a, LocalRows());
    if (lowA) lowA = Negated(lowA, LocalRows());
    guessWeights.clear();
  }

private:
  DiagonalBlocks<Scalar> MakeBlocks() const {
    DiagonalBlocks<Scalar> blocks{DiagonalBlock(*rowsA), {}, comm};
    if (LocalRows() < Order()) return blocks;
    if (rowsB) {
      blocks.b = DiagonalBlock(*rowsB);
    } else {
      blocks.b.resize(Order(), Order());
      blocks.b.setIdentity();
    }
    return blocks;
  }
  int Rank() const {
    int rank = 0;
    MPI_Comm_rank(comm, &rank);
    return rank;
  }
  int FirstRowOf(int process) const { return offsets[static_cast<std::size_t>(process)]; }

  std::shared_ptr<const DiagonalBlocks<Scalar>> m_blocks;
};

/// A and B as they were read, with their owners; or a plane-wave model, which needs no entries.
struct ProblemData {
  std::string title;
  AnyRows a;
  std::optional<AnyRows> b; ///< none in the standard problem
  RowOffsets offsets;
  bool isPlaneWaves = false;
  VesScalarType scalar = VES_DOUBLE; ///< asked for, or the simplest that holds the entries
};

/// Reads or makes what the options name. Throws Error. Collective.
ProblemData LoadProblem(const ProblemOptions& options, MPI_Comm comm);

/// The operators without a preconditioner. Collective.
template <typename Scalar>
Problem<Scalar> MakeProblem(const ProblemOptions& options, ProblemData data, MPI_Comm comm);

/// Calls function with a null pointer to the C++ type of a scalar type.
template <typename Function>
auto WithScalar(VesScalarType type, Function&& function) {
  switch (type) {
  case VES_FLOAT:
    return function(static_cast<float*>(nullptr));
  case VES_COMPLEX_DOUBLE:
    return function(static_cast<std::complex<double>*>(nullptr));
  case VES_COMPLEX_FLOAT:
    return function(static_cast<std::complex<float>*>(nullptr));
  default:
    return function(static_cast<double*>(nullptr));
  }
}

} // namespace VesTools

#endif
