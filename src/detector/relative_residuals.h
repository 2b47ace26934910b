#ifndef VES_DETECTOR_RELATIVE_RESIDUALS_H
#define VES_DETECTOR_RELATIVE_RESIDUALS_H

#include "../data/vector_dense.h"
#include "converge_detector.h"

#include <cmath>

namespace Ves {

/// A pair passes when ||r|| < |lambda| threshold.
template <typename Scalar>
class VES_EXPORT RelativeResiduals : public VesConvergeDetector {
public:
  RelativeResiduals();
  VesReturnCode Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                    const VesVectorBase& vecD, double threshold, VesVectorBase& idxs, int& dummy,
                    int& nLeading) override;
  VesReturnCode RunDense(const VectorDense<Scalar>& vecR, const VectorDense<Scalar>& workD,
                         const VectorDense<Scalar>& vecD, double threshold,
                         VectorDense<Scalar>& idxs, int& dummy, int& nLeading);
  double ClaimBound(double value, double threshold) const override {
    return std::abs(value) * threshold;
  }
};

VES_EXTERN_TEMPLATE(RelativeResiduals);

} // namespace Ves

#endif
