#ifndef VES_CHOLESKY_SCALAPACK_CHOL_H
#define VES_CHOLESKY_SCALAPACK_CHOL_H

#include "../parallel/blacs_wrapper.h"
#include "lapack_chol.h"

#include <memory>

namespace Ves {

/// Factorizes with ScaLAPACK on a square process grid from order threshold on, and as LapackChol
/// below it.
template <typename Scalar>
class VES_EXPORT ScaLapackChol : public LapackChol<Scalar> {
public:
  int threshold = gridFrom;
  std::unique_ptr<BlacsWrapper<Scalar>> blacs;

  ScaLapackChol();
  VesReturnCode RunChol(VesVectorBase& vecM, int& info, char uplo) override;
  VesReturnCode RunScaLapackChol(VectorDense<Scalar>& vecM, int& info, char uplo);
};

VES_EXTERN_TEMPLATE(ScaLapackChol);

} // namespace Ves

#endif
