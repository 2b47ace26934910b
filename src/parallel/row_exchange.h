#ifndef VES_PARALLEL_ROW_EXCHANGE_H
#define VES_PARALLEL_ROW_EXCHANGE_H

#include <mpi.h>
#include <ves.h>

#include <cstddef>
#include <vector>

namespace Ves {

/// Rows of distributed blocks that processes need of each other: those of this process go to its
/// neighbours, theirs arrive in the order of their numbers. Rows are numbered over all processes,
/// in the order of ranks. Messages travel on a duplicate of the communicator, where they meet
/// neither those of the caller, whatever he receives, nor those of another matrix; and the caller
/// may free his own.
class VES_EXPORT RowExchange {
public:
  /// Tells all processes how many rows each of them holds, from 0 on. Collective over comm.
  RowExchange(MPI_Comm comm, int nRows);
  /// Frees the duplicate, which is collective; does nothing after MPI_Finalize.
  ~RowExchange();
  RowExchange(const RowExchange&) = delete;
  RowExchange& operator=(const RowExchange&) = delete;

  MPI_Comm Comm() const { return m_comm; }
  long long FirstRow() const { return m_offsets[m_rank]; } ///< of this process
  long long EndRow() const { return m_offsets[m_rank + 1]; }
  long long TotalRows() const { return m_offsets.back(); }
  /// Columns that fit into a message, on all processes: its entries are counted by an int.
  int MostColumns() const { return m_mostColumns; }

  /// Takes the numbers of the rows of others that are needed here, ascending, and learns which rows
  /// others need. numberSize is the size of the largest numbers that will be exchanged. Collective.
  /// \return on all processes -1 when one cannot have the storage, or gives away more rows than 32
  ///         bits count; 0
  VesReturnCode Connect(const std::vector<long long>& neededRows, std::size_t numberSize);

  /// Sends what others need of x, n x nCols with leading dimension ld, and begins to receive;
  /// nCols is at most MostColumns(). x may be read on. Processes that need nothing of others and
  /// give them nothing may stay away.
  template <typename Number>
  void Begin(const Number* x, int nCols, int ld);
  /// Waits for the messages. \return the needed rows, one after the other, nCols numbers each
  template <typename Number>
  const Number* End();

private:
  /// Rows that are exchanged with another process: count of them from first on.
  struct Neighbour {
    int process, first, count;
  };
  static std::vector<Neighbour> Neighbours(const std::vector<int>& counts);
  std::vector<int> CountByOwner(const std::vector<long long>& rows) const;
  void Allocate(std::size_t needed, std::size_t given, std::size_t numberSize);

  MPI_Comm m_comm = MPI_COMM_NULL;
  std::size_t m_rank = 0;
  std::vector<long long> m_offsets; ///< first row of each process, and the number of all rows
  int m_mostColumns = 1;
  std::vector<Neighbour> m_sources, m_targets;
  std::vector<int> m_givenRows; ///< local numbers of the rows that others need, by process
  std::vector<unsigned char> m_received, m_sent;
  std::vector<MPI_Request> m_requests;
};

} // namespace Ves

#endif
