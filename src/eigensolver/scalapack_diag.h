#ifndef VES_EIGENSOLVER_SCALAPACK_DIAG_H
#define VES_EIGENSOLVER_SCALAPACK_DIAG_H

#include "../parallel/blacs_wrapper.h"
#include "lapack_diag.h"

#include <memory>

namespace Ves {

/// Diagonalizes with ScaLAPACK on a square process grid from order threshold on, and as
/// LapackDiag below it.
template <typename Scalar>
class VES_EXPORT ScaLapackDiag : public LapackDiag<Scalar> {
public:
  int threshold = gridFrom;
  std::unique_ptr<BlacsWrapper<Scalar>> blacs;

  ScaLapackDiag();
  ScaLapackDiag(char job, char triangle, int parameter, int fromOrder);
  VesReturnCode RunEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& info) override;
  VesReturnCode RunScaLapackEvd(VectorDense<Scalar>& vecM, VectorDense<Scalar>& vecD, int& info);

  /// ScaLAPACK on the processes of the grid: local pieces A and Z, all n eigenvalues in W. The
  /// form of the other field does nothing and returns -5.
  VesReturnCode RunScaLapackRealEvd(int n, Scalar* A, const int* descA, Scalar* Z, const int* descZ,
                                    Scalar* W, int& info);
  VesReturnCode RunScaLapackCmplxEvd(int n, Scalar* A, const int* descA, Scalar* Z,
                                     const int* descZ, Scalar* W, int& info);
};

VES_EXTERN_TEMPLATE(ScaLapackDiag);

} // namespace Ves

#endif
