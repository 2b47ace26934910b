#ifndef VES_TOOLS_COMPRESSED_ROWS_H
#define VES_TOOLS_COMPRESSED_ROWS_H

#include "entries.h"

#include <mpi.h>

#include <complex>
#include <string>
#include <variant>
#include <vector>

namespace VesTools {

/// The rows of a matrix that a process holds: row first + i has the entries from starts[i] to
/// starts[i + 1], by columns that ascend and count over the whole matrix.
template <typename Scalar>
struct CompressedRows {
  std::string name; ///< of its file or model, for messages
  int first = 0;
  bool isHermitian = false;                  ///< known without a look at the entries
  std::vector<long long> starts{0}, columns; ///< of the width in which the library takes them
  std::vector<Scalar> values;

  int Rows() const { return static_cast<int>(starts.size()) - 1; }

  /// Calls function with column and value of each entry of the local row i, in their order.
  template <typename Function>
  void ForRow(int i, Function&& function) const {
    const auto begin = static_cast<std::size_t>(starts[static_cast<std::size_t>(i)]);
    const auto end = static_cast<std::size_t>(starts[static_cast<std::size_t>(i) + 1]);
    for (std::size_t at = begin; at < end; ++at)
      function(static_cast<int>(columns[at]), values[at]);
  }
  /// Calls function with row, column and value of each entry, in their order.
  template <typename Function>
  void ForEach(Function&& function) const {
    for (int i = 0; i < Rows(); ++i)
      ForRow(i, [&](int column, const Scalar& value) { function(first + i, column, value); });
  }

  /// Adds an entry to the last row.
  void Append(int column, const Scalar& value) {
    columns.push_back(column);
    values.push_back(value);
  }
  void EndRow() { starts.push_back(static_cast<long long>(values.size())); }
  void Reserve(std::size_t rows, std::size_t entries) {
    starts.reserve(rows + 1);
    columns.reserve(entries);
    values.reserve(entries);
  }
};

/// Real entries are held as such.
using AnyRows = std::variant<CompressedRows<double>, CompressedRows<std::complex<double>>>;

/// The rows from first to last of entries that are ordered and all lie there. They are released.
template <typename Scalar>
CompressedRows<Scalar> Compress(EntryList<Scalar>&& matrix, int first, int last);

/// Throws Error with the worst entry when A differs from its conjugate transpose by more than
/// rounding in a text file may cause, and takes the mean of both otherwise. Collective.
template <typename Scalar>
void RequireHermitian(CompressedRows<Scalar>& matrix, const RowOffsets& offsets, MPI_Comm comm);

/// Throws Error where a diagonal entry of B is not above 0: the Cholesky factorizations of the
/// library need B positive definite. Collective.
template <typename Scalar>
void RequirePositiveDiagonal(const CompressedRows<Scalar>& b, MPI_Comm comm);

/// The graph Laplacian of weights of edges: row sums minus weights; loops do not count. Throws
/// Error for a weight that is not a number >= 0. Collective.
template <typename Scalar>
CompressedRows<double> LaplacianOf(const CompressedRows<Scalar>& graph, MPI_Comm comm);

} // namespace VesTools

#endif
