#ifndef VES_EIGENSOLVER_LAPACK_LOWEST_DIAG_H
#define VES_EIGENSOLVER_LAPACK_LOWEST_DIAG_H

#include "lapack_diag.h"

namespace Ves {

/// LapackDiag which, where not all vectors are asked for, transforms no others back.
template <typename Scalar>
class VES_EXPORT LapackLowestDiag : public LapackDiag<Scalar> {
public:
  LapackLowestDiag() { this->evdType = VES_LAPACK_LOWEST_DIAG; }
  VesReturnCode RunLowestEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& nVectors,
                             int& info) override;

private:
  void DecomposeLowest(VectorDense<Scalar>& vecM, VectorDense<Scalar>& vecD, int& nVectors,
                       int& info) const;
};

VES_EXTERN_TEMPLATE(LapackLowestDiag);

} // namespace Ves

#endif
