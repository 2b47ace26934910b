#include "sparse_matrix.h"

#include "parallel.h"

#include <algorithm>

namespace VesTools {
namespace {

template <typename Scalar>
ves::Operator<Scalar> MakeOperator(const std::vector<Entry>& entries, int first, int last,
                                   MPI_Comm comm) {
  std::vector<long long> starts(static_cast<std::size_t>(last - first) + 1, 0), columns;
  std::vector<Scalar> values;
  for (const Entry& entry : entries) {
    columns.push_back(entry.column);
    values.push_back(Convert<Scalar>(entry.value));
    starts[static_cast<std::size_t>(entry.row - first) + 1] = static_cast<long long>(values.size());
  }
  for (std::size_t i = 1; i < starts.size(); ++i) // rows without entries end where they begin
    starts[i] = std::max(starts[i], starts[i - 1]);
  return {comm, starts, columns, values};
}

template <typename Scalar>
Eigen::SparseMatrix<Scalar, Eigen::RowMajor> MakeBlock(const std::vector<Entry>& entries, int first,
                                                       int last) {
  std::vector<Eigen::Triplet<Scalar>> own;
  for (const Entry& entry : entries)
    if (entry.column >= first && entry.column < last)
      own.emplace_back(entry.row - first, entry.column - first, Convert<Scalar>(entry.value));
  Eigen::SparseMatrix<Scalar, Eigen::RowMajor> block(last - first, last - first);
  block.setFromTriplets(own.begin(), own.end());
  return block;
}

int EndOf(const RowOffsets& offsets, int processes) {
  return offsets[static_cast<std::size_t>(processes)];
}

} // namespace

template <typename Scalar>
SparseMatrix<Scalar>::SparseMatrix(const std::vector<Entry>& entries, const RowOffsets& offsets,
                                   MPI_Comm comm)
    : m_comm(comm), m_nonZeros(static_cast<long long>(entries.size())),
      m_block(
          MakeBlock<Scalar>(entries, EndOf(offsets, Rank(comm)), EndOf(offsets, Rank(comm) + 1))),
      m_operator(MakeOperator<Scalar>(entries, EndOf(offsets, Rank(comm)),
                                      EndOf(offsets, Rank(comm) + 1), comm)) {}

template class SparseMatrix<double>;
template class SparseMatrix<float>;
template class SparseMatrix<std::complex<double>>;
template class SparseMatrix<std::complex<float>>;

} // namespace VesTools
