#include "distributed_matrix.h"

#include "parallel.h"

#include <algorithm>
#include <numeric>

namespace VesTools {
namespace {

template <typename Scalar>
using ColumnBlock = Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>;
template <typename Scalar>
using Strided = Eigen::Map<ColumnBlock<Scalar>, 0, Eigen::OuterStride<>>;
template <typename Scalar>
using ConstStrided = Eigen::Map<const ColumnBlock<Scalar>, 0, Eigen::OuterStride<>>;

template <typename Scalar>
MPI_Datatype TypeOf() {
  if constexpr (std::is_same_v<Scalar, double>) return MPI_DOUBLE;
  if constexpr (std::is_same_v<Scalar, float>) return MPI_FLOAT;
  if constexpr (std::is_same_v<Scalar, std::complex<double>>) return MPI_C_DOUBLE_COMPLEX;
  if constexpr (std::is_same_v<Scalar, std::complex<float>>) return MPI_C_FLOAT_COMPLEX;
}

// Columns outside the own rows, ascending.
std::vector<int> HaloColumns(const std::vector<Entry>& entries, int first, int last) {
  std::vector<int> columns;
  for (const Entry& entry : entries)
    if (entry.column < first || entry.column >= last) columns.push_back(entry.column);
  std::sort(columns.begin(), columns.end());
  columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
  return columns;
}

constexpr int haloTag = 1;

} // namespace

template <typename Scalar>
DistributedMatrix<Scalar>::DistributedMatrix(const std::vector<Entry>& entries,
                                             const RowOffsets& offsets, MPI_Comm comm)
    : m_comm(comm) {
  const auto rank = static_cast<std::size_t>(Rank(comm));
  const int first = offsets[rank], last = offsets[rank + 1];
  const std::vector<int> haloColumns = HaloColumns(entries, first, last);
  std::vector<Eigen::Triplet<Scalar>> local, halo;
  for (const Entry& entry : entries) {
    const Scalar value = Convert<Scalar>(entry.value);
    if (entry.column >= first && entry.column < last) {
      local.emplace_back(entry.row - first, entry.column - first, value);
    } else {
      const auto at = std::lower_bound(haloColumns.begin(), haloColumns.end(), entry.column);
      halo.emplace_back(entry.row - first, static_cast<int>(at - haloColumns.begin()), value);
    }
  }
  m_local.resize(last - first, last - first);
  m_local.setFromTriplets(local.begin(), local.end());
  m_halo.resize(last - first, static_cast<Eigen::Index>(haloColumns.size()));
  m_halo.setFromTriplets(halo.begin(), halo.end());
  SetNeighbours(haloColumns, offsets, first);
}

// Tells every process which of its rows are needed here. MPI_Alltoall, MPI_Alltoallv.
template <typename Scalar>
void DistributedMatrix<Scalar>::SetNeighbours(const std::vector<int>& haloColumns,
                                              const RowOffsets& offsets, int firstRow) {
  const std::size_t size = offsets.size() - 1;
  std::vector<int> wanted(size, 0), given(size, 0), from(size + 1, 0), to(size + 1, 0);
  for (const int column : haloColumns)
    ++wanted[static_cast<std::size_t>(OwnerOf(column, offsets))];
  MPI_Alltoall(wanted.data(), 1, MPI_INT, given.data(), 1, MPI_INT, m_comm);
  std::partial_sum(wanted.begin(), wanted.end(), from.begin() + 1);
  std::partial_sum(given.begin(), given.end(), to.begin() + 1);
  m_sentRows.resize(static_cast<std::size_t>(to.back()));
  MPI_Alltoallv(haloColumns.data(), wanted.data(), from.data(), MPI_INT, m_sentRows.data(),
                given.data(), to.data(), MPI_INT, m_comm);
  for (int& row : m_sentRows)
    row -= firstRow;
  for (std::size_t r = 0; r < size; ++r) {
    if (wanted[r] > 0) m_sources.push_back({static_cast<int>(r), from[r], wanted[r]});
    if (given[r] > 0) m_targets.push_back({static_cast<int>(r), to[r], given[r]});
  }
}

// Messages hold a neighbour's rows of all columns, column by column.
template <typename Scalar>
void DistributedMatrix<Scalar>::Apply(const Scalar* x, Scalar* y, int nCols, int ld) const {
  const auto cols = static_cast<std::size_t>(nCols);
  const Eigen::Index stride = ld;
  std::vector<Scalar> sent(m_sentRows.size() * cols);
  std::vector<Scalar> received(static_cast<std::size_t>(m_halo.cols()) * cols);
  std::vector<MPI_Request> requests;
  for (const auto& [process, first, count] : m_sources)
    MPI_Irecv(&received[static_cast<std::size_t>(first) * cols], count * nCols, TypeOf<Scalar>(),
              process, haloTag, m_comm, &requests.emplace_back());
  for (const auto& [process, first, count] : m_targets) {
    Scalar* const begin = &sent[static_cast<std::size_t>(first) * cols];
    Scalar* next = begin;
    for (Eigen::Index j = 0; j < nCols; ++j)
      for (int i = first; i < first + count; ++i)
        *next++ = x[m_sentRows[static_cast<std::size_t>(i)] + j * stride];
    MPI_Isend(begin, count * nCols, TypeOf<Scalar>(), process, haloTag, m_comm,
              &requests.emplace_back());
  }
  const ConstStrided<Scalar> in(x, LocalRows(), nCols, Eigen::OuterStride<>(stride));
  Strided<Scalar> out(y, LocalRows(), nCols, Eigen::OuterStride<>(stride));
  out.noalias() = m_local * in;
  MPI_Waitall(static_cast<int>(requests.size()), requests.data(), MPI_STATUSES_IGNORE);
  ColumnBlock<Scalar> halo(m_halo.cols(), nCols);
  for (const auto& [process, first, count] : m_sources)
    halo.middleRows(first, count) = Eigen::Map<const ColumnBlock<Scalar>>(
        &received[static_cast<std::size_t>(first) * cols], count, nCols);
  if (m_halo.nonZeros() > 0) out.noalias() += m_halo * halo;
}

template class DistributedMatrix<double>;
template class DistributedMatrix<float>;
template class DistributedMatrix<std::complex<double>>;
template class DistributedMatrix<std::complex<float>>;

} // namespace VesTools
