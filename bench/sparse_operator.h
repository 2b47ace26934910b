#ifndef VES_BENCH_SPARSE_OPERATOR_H
#define VES_BENCH_SPARSE_OPERATOR_H

#include "problems.h"

#include <mpi.h>

#include <cstddef>
#include <type_traits>

namespace VesBench {

/// Nearly equal shares of n rows for the processes of a communicator, none of them empty.
struct Rows {
  MPI_Comm comm;
  int n, first = 0, local = 0;
  std::vector<int> counts, displs; ///< of all processes

  Rows(int order, MPI_Comm over) : comm(over), n(order) {
    int size = 0, rank = 0;
    MPI_Comm_size(comm, &size);
    MPI_Comm_rank(comm, &rank);
    for (int r = 0; r < size; ++r) {
      const int begin = static_cast<int>(static_cast<long long>(n) * r / size);
      const int end = static_cast<int>(static_cast<long long>(n) * (r + 1) / size);
      displs.push_back(begin);
      counts.push_back(end - begin);
    }
    first = displs[static_cast<std::size_t>(rank)];
    local = counts[static_cast<std::size_t>(rank)];
  }
};

/// A number of the type: the imaginary part is dropped for real types.
template <typename Scalar>
Scalar Convert(const Complex& value) {
  if constexpr (std::is_floating_point_v<Scalar>)
    return static_cast<Scalar>(value.real());
  else
    return Scalar(value);
}

/// Local rows of a sparse matrix; a product gathers every column whole on all processes.
template <typename Scalar>
class SparseOperator {
public:
  SparseOperator(const Rows& rows, const std::function<Row(int)>& rowOf) : m_rows(rows) {
    for (int i = rows.first; i < rows.first + rows.local; ++i) {
      for (const auto& [column, value] : rowOf(i)) {
        m_columns.push_back(static_cast<std::size_t>(column));
        m_values.push_back(Convert<Scalar>(value));
      }
      m_ends.push_back(m_columns.size());
    }
    for (const int count : rows.counts)
      m_bytes.push_back(count * static_cast<int>(sizeof(Scalar)));
    for (const int displ : rows.displs)
      m_byteDispls.push_back(displ * static_cast<int>(sizeof(Scalar)));
  }

  void Apply(const Scalar* x, Scalar* y, int nCols, int ld) const {
    std::vector<Scalar> whole(static_cast<std::size_t>(m_rows.n));
    for (int j = 0; j < nCols; ++j, x += ld, y += ld) {
      MPI_Allgatherv(x, m_rows.local * static_cast<int>(sizeof(Scalar)), MPI_BYTE, whole.data(),
                     m_bytes.data(), m_byteDispls.data(), MPI_BYTE, m_rows.comm);
      for (std::size_t i = 0, entry = 0; i < m_ends.size(); ++i) {
        Scalar sum{};
        for (; entry < m_ends[i]; ++entry)
          sum += m_values[entry] * whole[m_columns[entry]];
        y[i] = sum;
      }
    }
  }

private:
  const Rows& m_rows;
  std::vector<std::size_t> m_ends, m_columns; ///< ends of the local rows, columns of the entries
  std::vector<Scalar> m_values;
  std::vector<int> m_bytes, m_byteDispls;
};

} // namespace VesBench

#endif
