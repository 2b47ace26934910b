#ifndef VES_TOOLS_SPARSE_MATRIX_H
#define VES_TOOLS_SPARSE_MATRIX_H

#include "compressed_rows.h"

#include <mpi.h>
#include <ves.hpp>

#include <complex>
#include <type_traits>

namespace VesTools {

/// A number of the type; the imaginary part is dropped for real types.
template <typename Scalar>
Scalar Convert(const std::complex<double>& value) {
  if constexpr (std::is_floating_point_v<Scalar>)
    return static_cast<Scalar>(value.real());
  else
    return Scalar(value);
}

/// Rows in another type of numbers, or the same ones; those given are released.
template <typename Scalar, typename Given>
CompressedRows<Scalar> ConvertRows(CompressedRows<Given>&& given) {
  if constexpr (std::is_same_v<Scalar, Given>) {
    return std::move(given);
  } else {
    CompressedRows<Scalar> rows{std::move(given.name),    given.first,
                                given.isHermitian,        std::move(given.starts),
                                std::move(given.columns), {}};
    rows.values.reserve(given.values.size());
    for (const Given& value : given.values)
      rows.values.push_back(Convert<Scalar>(value));
    given = {};
    return rows;
  }
}

/// The library's operator of a sparse square matrix by blocks of rows.
template <typename Scalar>
class SparseMatrix {
public:
  /// Copies the rows of this process. Collective, as is the end of its life.
  SparseMatrix(const CompressedRows<Scalar>& rows, MPI_Comm comm)
      : m_comm(comm), m_rows(rows.Rows()), m_nonZeros(rows.starts.back()),
        m_operator(comm, rows.starts, rows.columns, rows.values) {}

  long long NonZeros() const { return m_nonZeros; } ///< local

  /// y = A x, both n x nCols with leading dimension ld, in the type of the matrix or its kin of
  /// single precision. Collective over the processes with rows.
  template <typename Number>
  void Apply(const Number* x, Number* y, int nCols, int ld) const {
    const auto block = [&](Number* data) {
      return ves::Block<Number>(ves::View<Number>(data, m_rows, nCols, ld), m_comm);
    };
    multiply(m_operator, block(const_cast<Number*>(x)), block(y)); // which is read only
  }

private:
  MPI_Comm m_comm;
  int m_rows;
  long long m_nonZeros;
  ves::Operator<Scalar> m_operator;
};

} // namespace VesTools

#endif
