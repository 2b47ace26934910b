#ifndef VES_EIGENSOLVER_LAPACK_DIAG_H
#define VES_EIGENSOLVER_LAPACK_DIAG_H

#include "../data/vector_dense.h"
#include "dense_eigensolver.h"

#include <functional>

namespace Ves {

/// Diagonalizes with LAPACK on process 0 and broadcasts, so that all replicas stay identical.
template <typename Scalar>
class VES_EXPORT LapackDiag : public VesDenseEigenSolver {
public:
  LapackDiag();
  LapackDiag(char job, char triangle, int parameter);
  VesReturnCode RunEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& info) override;
  VesReturnCode RunLapackEvd(VectorDense<Scalar>& vecM, VectorDense<Scalar>& vecD, int& info);

  /// LAPACK on this process, A (n x n) and W (n entries). The form of the other field does
  /// nothing and returns -5.
  VesReturnCode RunLapackRealEvd(int n, Scalar* A, int lda, Scalar* W, int& info);
  VesReturnCode RunLapackCmplxEvd(int n, Scalar* A, int lda, Scalar* W, int& info);

protected:
  static VesReturnCode CheckArguments(const VesVectorBase& vecM, const VesVectorBase& vecD);
  /// Calls decompose on process 0, with the provider's threads for a large matrix; for one that is
  /// not finite info becomes 1 instead.
  void OnProcess0(const VectorDense<Scalar>& vecM, int& info,
                  const std::function<void()>& decompose) const;
};

VES_EXTERN_TEMPLATE(LapackDiag);

} // namespace Ves

#endif
