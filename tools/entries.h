#ifndef VES_TOOLS_ENTRIES_H
#define VES_TOOLS_ENTRIES_H

#include <mpi.h>

#include <complex>
#include <string>
#include <vector>

namespace VesTools {

/// An entry of a matrix, counted from 0 over all processes.
struct Entry {
  int row, column;
  std::complex<double> value;
};

/// A matrix whose entries lie on any process, each on one.
struct EntryList {
  std::string name; ///< of its file or model, for messages
  int rows = 0, columns = 0;
  bool isComplex = false;
  bool isHermitian = false; ///< by the way it is stored, without a look at the entries
  std::vector<Entry> entries;
};

/// First row of every process and, at the end, the number of rows: process r holds the rows from
/// [r] to [r + 1].
using RowOffsets = std::vector<int>;

int OwnerOf(int row, const RowOffsets& offsets);

/// Contiguous rows for every process with about equally many entries of all matrices, one more for
/// each row. Collective.
RowOffsets BalancedRows(const std::vector<const EntryList*>& matrices, MPI_Comm comm);

/// Moves every entry to the owner of its row, ordered by row and column. Collective.
void GatherRows(EntryList& matrix, const RowOffsets& offsets, MPI_Comm comm);

/// As GatherRows, but throws Error when an entry is given twice. Collective.
void MoveToOwners(EntryList& matrix, const RowOffsets& offsets, MPI_Comm comm);

/// Throws Error with the worst entry when A differs from its conjugate transpose by more than
/// rounding in a text file may cause, and takes the mean of both otherwise. The entries are with
/// their owners before and after. Collective.
void RequireHermitian(EntryList& matrix, const RowOffsets& offsets, MPI_Comm comm);

/// Turns weights of edges, with the owners of their rows, into the graph Laplacian: row sums minus
/// weights; loops do not count. Throws Error for a negative weight. Collective.
void TurnIntoLaplacian(EntryList& graph, const RowOffsets& offsets, MPI_Comm comm);

} // namespace VesTools

#endif
