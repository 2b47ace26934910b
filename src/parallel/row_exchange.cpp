#include "row_exchange.h"

#include "agreement.h"
#include "mpi_wrapper.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <numeric>

namespace Ves {
namespace {

constexpr int rowsTag = 1;
constexpr int largestCount = std::numeric_limits<int>::max();
/// Wider blocks go in several messages, so that buffers stay small and never have to grow.
constexpr int widestMessage = 32;

std::size_t AsSize(int count) {
  return static_cast<std::size_t>(count);
}

/// First places of consecutive groups, and the end of the last.
std::vector<int> PlacesOf(const std::vector<int>& counts) {
  std::vector<int> places(counts.size() + 1, 0);
  std::partial_sum(counts.begin(), counts.end(), places.begin() + 1);
  return places;
}

} // namespace

RowExchange::RowExchange(MPI_Comm comm, int nRows) {
  int size = 0, rank = 0;
  MPI_Comm_dup(comm, &m_comm);
  // A message of another length, of processes that multiply by different blocks, would leave old
  // numbers where a caller's communicator only returns codes.
  MPI_Comm_set_errhandler(m_comm, MPI_ERRORS_ARE_FATAL);
  MPI_Comm_size(m_comm, &size);
  MPI_Comm_rank(m_comm, &rank);
  m_rank = AsSize(rank);
  m_offsets.resize(AsSize(size) + 1, 0);
  const long long own = nRows;
  MPI_Allgather(&own, 1, MPI_LONG_LONG, &m_offsets[1], 1, MPI_LONG_LONG, m_comm);
  const long long most = *std::max_element(m_offsets.begin(), m_offsets.end());
  m_mostColumns =
      static_cast<int>(std::clamp<long long>(largestCount / std::max(most, 1LL), 1, widestMessage));
  std::partial_sum(m_offsets.begin(), m_offsets.end(), m_offsets.begin());
}

RowExchange::~RowExchange() {
  int isFinalized = 0;
  MPI_Finalized(&isFinalized);
  if (isFinalized == 0) MPI_Comm_free(&m_comm);
}

std::vector<int> RowExchange::CountByOwner(const std::vector<long long>& rows) const {
  std::vector<int> counts(m_offsets.size() - 1);
  auto at = rows.begin();
  for (std::size_t process = 0; process < counts.size(); ++process) {
    const auto end = std::lower_bound(at, rows.end(), m_offsets[process + 1]);
    counts[process] = static_cast<int>(end - at);
    at = end;
  }
  return counts;
}

std::vector<RowExchange::Neighbour> RowExchange::Neighbours(const std::vector<int>& counts) {
  std::vector<Neighbour> neighbours;
  int first = 0;
  for (std::size_t process = 0; process < counts.size(); ++process) {
    if (counts[process] > 0)
      neighbours.push_back({static_cast<int>(process), first, counts[process]});
    first += counts[process];
  }
  return neighbours;
}

void RowExchange::Allocate(std::size_t needed, std::size_t given, std::size_t numberSize) {
  const std::size_t rowSize = numberSize * AsSize(m_mostColumns);
  m_givenRows.resize(given);
  m_sent.resize(given * rowSize);
  m_received.resize(needed * rowSize);
  m_requests.reserve(m_sources.size() + m_targets.size());
}

// MPI_Alltoall of counts, an agreement, MPI_Alltoallv of numbers.
VesReturnCode RowExchange::Connect(const std::vector<long long>& neededRows,
                                   std::size_t numberSize) {
  const std::vector<int> needed = CountByOwner(neededRows);
  std::vector<int> given(needed.size());
  MPI_Alltoall(needed.data(), 1, MPI_INT, given.data(), 1, MPI_INT, m_comm);
  const long long sum = std::accumulate(given.begin(), given.end(), 0LL);
  VesReturnCode verdict = sum > largestCount ? VES_ERR_INVALID_VALUE : VES_GOOD;
  std::vector<long long> rows;
  if (verdict == VES_GOOD) try {
      m_sources = Neighbours(needed);
      m_targets = Neighbours(given);
      rows.resize(static_cast<std::size_t>(sum));
      Allocate(neededRows.size(), rows.size(), numberSize);
    } catch (const std::exception&) { // std::length_error, too
      verdict = VES_ERR_INVALID_VALUE;
    }
  verdict = AgreeOn(verdict, {}, m_comm);
  if (verdict != VES_GOOD) return verdict;
  MPI_Alltoallv(neededRows.data(), needed.data(), PlacesOf(needed).data(), MPI_LONG_LONG,
                rows.data(), given.data(), PlacesOf(given).data(), MPI_LONG_LONG, m_comm);
  std::transform(rows.begin(), rows.end(), m_givenRows.begin(),
                 [&](long long row) { return static_cast<int>(row - FirstRow()); });
  return VES_GOOD;
}

template <typename Number>
void RowExchange::Begin(const Number* x, int nCols, int ld) {
  auto* const received = reinterpret_cast<Number*>(m_received.data());
  auto* const sent = reinterpret_cast<Number*>(m_sent.data());
  const std::size_t cols = AsSize(nCols);
  for (const auto& [process, first, count] : m_sources)
    MPI_Irecv(received + AsSize(first) * cols, count * nCols, MpiType<Number>(), process, rowsTag,
              m_comm, &m_requests.emplace_back());
  for (const auto& [process, first, count] : m_targets) {
    Number* next = sent + AsSize(first) * cols;
    for (std::size_t i = AsSize(first); i < AsSize(first + count); ++i)
      for (std::size_t j = 0; j < cols; ++j)
        *next++ = x[AsSize(m_givenRows[i]) + j * AsSize(ld)];
    MPI_Isend(sent + AsSize(first) * cols, count * nCols, MpiType<Number>(), process, rowsTag,
              m_comm, &m_requests.emplace_back());
  }
}

template <typename Number>
const Number* RowExchange::End() {
  MPI_Waitall(static_cast<int>(m_requests.size()), m_requests.data(), MPI_STATUSES_IGNORE);
  m_requests.clear();
  return reinterpret_cast<const Number*>(m_received.data());
}

#define VES_INSTANTIATE_EXCHANGE(Number)                                                           \
  template VES_EXPORT void RowExchange::Begin(const Number*, int, int);                            \
  template VES_EXPORT const Number* RowExchange::End()
VES_INSTANTIATE_EXCHANGE(double);
VES_INSTANTIATE_EXCHANGE(float);
VES_INSTANTIATE_EXCHANGE(std::complex<double>);
VES_INSTANTIATE_EXCHANGE(std::complex<float>);

} // namespace Ves
