#ifndef VES_CHOLESKY_LAPACK_CHOL_H
#define VES_CHOLESKY_LAPACK_CHOL_H

#include "../data/vector_dense.h"
#include "cholesky_factorizer.h"

namespace Ves {

/// Factorizes with LAPACK on process 0 and broadcasts, so that all replicas stay identical.
template <typename Scalar>
class VES_EXPORT LapackChol : public VesCholeskyFactorizer {
public:
  LapackChol();
  VesReturnCode RunChol(VesVectorBase& vecM, int& info, char uplo) override;
  VesReturnCode RunLapackChol(VectorDense<Scalar>& vecM, int& info, char uplo);

protected:
  static VesReturnCode CheckArguments(const VesVectorBase& vecM);
  static int FactorizeHere(VectorDense<Scalar>& vecM, char uplo);
  /// Lowers a success, or a failure further on, to the first column without a finite factor.
  static int JudgeFactor(const VectorDense<Scalar>& vecM, char uplo, int info);
};

VES_EXTERN_TEMPLATE(LapackChol);

} // namespace Ves

#endif
