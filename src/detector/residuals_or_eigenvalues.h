#ifndef VES_DETECTOR_RESIDUALS_OR_EIGENVALUES_H
#define VES_DETECTOR_RESIDUALS_OR_EIGENVALUES_H

#include "../data/vector_dense.h"
#include "converge_detector.h"

namespace Ves {

/// A pair passes when ||r|| < threshold or its eigenvalue moved by less than threshold.
template <typename Scalar>
class VES_EXPORT ResidualsOrEigenvalues : public VesConvergeDetector {
public:
  ResidualsOrEigenvalues();
  VesReturnCode Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                    const VesVectorBase& vecD, double threshold, VesVectorBase& idxs, int& dummy,
                    int& nLeading) override;
  VesReturnCode RunDense(const VectorDense<Scalar>& vecR, const VectorDense<Scalar>& workD,
                         const VectorDense<Scalar>& vecD, double threshold,
                         VectorDense<Scalar>& idxs, int& dummy, int& nLeading);
  bool PassesOnValues() const override { return true; }
};

VES_EXTERN_TEMPLATE(ResidualsOrEigenvalues);

} // namespace Ves

#endif
