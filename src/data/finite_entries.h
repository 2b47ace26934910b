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

/// Sets the columns of a block that hold a non-finite local entry to zero, and their images with
/// them: what Normalize leaves of a zero column, which a rank test then drops.
template <typename Scalar>
void ZeroNonFiniteColumns(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX) {
  for (int j = 0; j < vecX.nCols; ++j) {
    bool finite = true;
    for (int i = 0; i < vecX.nRows && finite; ++i)
      finite = IsFinite(vecX(i, j)) && IsFinite(vecBX(i, j));
    for (int i = 0; i < vecX.nRows && !finite; ++i)
      vecX(i, j) = vecBX(i, j) = MathConstants<Scalar>::ZERO;
  }
}

} // namespace Ves

#endif
