#ifndef VES_DETECTOR_EIGENVALUES_H
#define VES_DETECTOR_EIGENVALUES_H

#include "../data/vector_dense.h"
#include "converge_detector.h"

namespace Ves {

/// A pair passes when its eigenvalue moved by less than threshold since the last iteration. The
/// values of the residuals are never read.
template <typename Scalar>
class VES_EXPORT Eigenvalues : public VesConvergeDetector {
public:
  Eigenvalues();
  VesReturnCode Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                    const VesVectorBase& vecD, double threshold, VesVectorBase& idxs, int& dummy,
                    int& nLeading) override;
  VesReturnCode RunDense(const VectorDense<Scalar>& vecR, const VectorDense<Scalar>& workD,
                         const VectorDense<Scalar>& vecD, double threshold,
                         VectorDense<Scalar>& idxs, int& dummy, int& nLeading);
  bool ReadsResiduals() const override { return false; }
  bool PassesOnValues() const override { return true; }
};

VES_EXTERN_TEMPLATE(Eigenvalues);

} // namespace Ves

#endif
