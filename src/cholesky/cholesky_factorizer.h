#ifndef VES_CHOLESKY_CHOLESKY_FACTORIZER_H
#define VES_CHOLESKY_CHOLESKY_FACTORIZER_H

#include "../data/vector_base.h"

namespace Ves {

/// Cholesky factorization of a small Hermitian matrix that every process holds whole.
class VES_EXPORT VesCholeskyFactorizer {
public:
  VesScalarType scalarType = VES_DOUBLE;
  int cholType = 0; ///< 0 LAPACK, 1 ScaLAPACK

  virtual ~VesCholeskyFactorizer() = default;

  /// Overwrites the triangle uplo of vecM (k x k) by its factor, the same on every process; the
  /// other triangle is without meaning. info is 0, or 1 + the order of the largest leading block
  /// that has a finite factor, which is then in place. Collective over vecM's comm, then over its
  /// auxComm. \return -1 vecM is not square; -5 not a dense block of the scalar type; 0
  virtual VesReturnCode RunChol(VesVectorBase& vecM, int& info, char uplo) = 0;
};

} // namespace Ves

#endif
