#ifndef VES_DATA_FINITE_ENTRIES_H
#define VES_DATA_FINITE_ENTRIES_H

#include "vector_dense.h"

namespace Ves {

/// Order of the largest leading block of a replicated square matrix whose entries in the triangle
/// uplo are all finite. BLAS and LAPACK may report success on a NaN or never return from one, so
/// every dense routine is given only what passes here.
template <typename Scalar>
int LeadingFiniteOrder(const VectorDense<Scalar>& vecM, char uplo, int order) {
  const bool upper = uplo == 'U' || uplo == 'u';
  for (int j = 0; j < order; ++j)
    for (int i = 0; i <= j; ++i)
      if (!IsFinite(upper ? vecM(i, j) : vecM(j, i))) return j;
  return order;
}

/// Sets what Normalize leaves of a zero column, NaN in every entry, back to zero, and the image
/// with it, so that a rank test drops the column. The first entry tells.
template <typename Scalar>
void RestoreZeroColumns(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX) {
  for (int j = 0; j < vecX.nCols && vecX.nRows > 0; ++j) {
    if (IsFinite(vecX(0, j)) && IsFinite(vecBX(0, j))) continue;
    for (int i = 0; i < vecX.nRows; ++i)
      vecX(i, j) = vecBX(i, j) = MathConstants<Scalar>::ZERO;
  }
}

} // namespace Ves

#endif
