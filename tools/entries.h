#ifndef VES_TOOLS_ENTRIES_H
#define VES_TOOLS_ENTRIES_H

#include <mpi.h>

#include <complex>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace VesTools {

/// An entry of a matrix, counted from 0 over all processes.
template <typename Scalar>
struct Entry {
  int row, column;
  Scalar value;
};

/// A matrix whose entries lie on any process, each on one.
template <typename Scalar>
struct EntryList {
  std::string name; ///< of its file or model, for messages
  int rows = 0, columns = 0;
  bool isHermitian = false; ///< by the way it is stored, without a look at the entries
  std::vector<Entry<Scalar>> entries;
};

/// Real entries are held as such.
using AnyEntries = std::variant<EntryList<double>, EntryList<std::complex<double>>>;

template <typename Scalar>
Scalar Conjugate(const Scalar& value) {
  if constexpr (std::is_floating_point_v<Scalar>)
    return value;
  else
    return std::conj(value);
}

/// The place of an entry for messages, counted from 1.
std::string Place(int row, int column);

/// First row of every process and, at the end, the number of rows: process r holds the rows from
/// [r] to [r + 1].
using RowOffsets = std::vector<int>;

int OwnerOf(int row, const RowOffsets& offsets);

/// About as many rows for every process.
RowOffsets EvenRows(int rows, int processes);

/// Orders entries by row and column.
template <typename Scalar>
void Order(std::vector<Entry<Scalar>>& entries);

/// How many of the entries, which are ordered, lie in each row that is this process's by the
/// offsets. Collective.
template <typename Scalar>
std::vector<long long> CountByRows(const std::vector<Entry<Scalar>>& entries,
                                   const RowOffsets& offsets, MPI_Comm comm);

/// Contiguous rows for every process with about equally many entries, one more for each row; counts
/// are those of the rows that are this process's by the even offsets. Collective.
RowOffsets BalancedRows(std::vector<long long> counts, const RowOffsets& even, MPI_Comm comm);

/// Moves every entry to the owner of its row, where they are ordered. Collective.
template <typename Scalar>
void GatherRows(std::vector<Entry<Scalar>>& entries, const RowOffsets& offsets, MPI_Comm comm);

/// As GatherRows, but throws Error when an entry is given twice. Collective.
template <typename Scalar>
void MoveToOwners(EntryList<Scalar>& matrix, const RowOffsets& offsets, MPI_Comm comm);

} // namespace VesTools

#endif
