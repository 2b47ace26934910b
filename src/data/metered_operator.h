#ifndef VES_DATA_METERED_OPERATOR_H
#define VES_DATA_METERED_OPERATOR_H

#include "matrix_base.h"
#include "vector_base.h"

namespace Ves {

/// An operator of the caller that counts what it is applied to and the time that it takes.
class MeteredOperator : public VesMatrixBase {
public:
  mutable long long columns = 0;
  mutable double seconds = 0.0;

  explicit MeteredOperator(const VesMatrixBase& inner) : m_inner(inner) {
    scalarType = inner.scalarType;
    matrixType = inner.matrixType;
    nRows = inner.nRows;
    nCols = inner.nCols;
    isCalledEverywhere = inner.isCalledEverywhere;
  }

  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override {
    const double start = MPI_Wtime();
    const VesReturnCode code = m_inner.Apply(x, y);
    seconds += MPI_Wtime() - start;
    columns += IsPresent() ? x.nCols : 0;
    return code;
  }

private:
  const VesMatrixBase& m_inner;
};

} // namespace Ves

#endif
