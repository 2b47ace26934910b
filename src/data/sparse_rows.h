#ifndef VES_DATA_SPARSE_ROWS_H
#define VES_DATA_SPARSE_ROWS_H

#include "../kernel/instantiate.h"
#include "../kernel/scalar_traits.h"
#include "../parallel/row_exchange.h"
#include "matrix_base.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace Ves {

/// Rows of a sparse matrix as a caller gives them: those of this process, with columns numbered
/// over all of them. Row i has the entries from starts[i] to starts[i + 1].
template <typename Scalar>
struct GivenRows {
  int nRows;
  const long long *starts, *columns;
  const Scalar* values;

  /// Pointers are there and starts ascend from 0. \return -7, -1; 0
  VesReturnCode Check() const;
  bool HaveColumnsBelow(long long nCols) const;
  long long Entries() const { return nRows > 0 ? starts[nRows] : 0; }
};

/// Entries of some rows, by rows, those without any left out.
template <typename Scalar>
struct EntriesByRows {
  struct Row {
    int number;
    std::size_t end; ///< of its entries, which begin where those of the row before end
  };
  std::vector<Row> rows;
  std::vector<int> columns;
  std::vector<Scalar> values;

  void Reserve(long long entries) {
    columns.reserve(static_cast<std::size_t>(entries));
    values.reserve(static_cast<std::size_t>(entries));
  }
};

/// The rows of a sparse matrix that this process holds. Entries of columns whose rows are here too
/// are kept apart from those of other processes' columns, of which a product needs messages: it is
/// made of the first while these are on their way. Each entry is read once for some columns of a
/// block at a time.
template <typename Scalar>
class VES_EXPORT SparseRows final : public VesMatrixEntries {
public:
  using Low = LowType<Scalar>;

  /// Copies the entries. Collective over comm. code is the verdict of all processes, and without a
  /// matrix another one than 0:
  ///   -5 processes disagree on the scalar type; of the worst of them -7 or -1 as Check tells;
  ///   -1 a column outside of the matrix, more than 32 bits count, no storage
  static std::unique_ptr<SparseRows> Create(MPI_Comm comm, const GivenRows<Scalar>& given,
                                            VesReturnCode& code);

  bool Fits(const VesVectorBase& like) const override;

  /// y = A x, n x nCols both, with leading dimension ld; Number is Scalar, or its type in single
  /// precision: then products and sums are made in that, of the same entries. Collective over the
  /// processes with rows.
  template <typename Number>
  void Multiply(const Number* x, Number* y, int nCols, int ld) const;

private:
  SparseRows(MPI_Comm comm, int nRows) : m_nRows(nRows), m_exchange(comm, nRows) {}
  std::vector<long long> ColumnsOfOthers(const GivenRows<Scalar>& given) const;
  void Take(const GivenRows<Scalar>& given, const std::vector<long long>& others);

  int m_nRows;
  EntriesByRows<Scalar> m_own;    ///< columns are local numbers of rows
  EntriesByRows<Scalar> m_others; ///< ... or places among the rows of others that are needed
  mutable RowExchange m_exchange; ///< its buffers change with every product
};

VES_EXTERN_TEMPLATE(SparseRows);

} // namespace Ves

#endif
