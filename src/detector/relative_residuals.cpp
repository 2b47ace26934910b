#include "relative_residuals.h"

#include "flag_pairs.h"

namespace Ves {

template <typename Scalar>
RelativeResiduals<Scalar>::RelativeResiduals() {
  MathKernel<Scalar>::SetScalarType(scalarType);
  detectorType = VES_RELATIVE_RESIDUALS;
}

template <typename Scalar>
VesReturnCode RelativeResiduals<Scalar>::Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                                             const VesVectorBase& vecD, double threshold,
                                             VesVectorBase& idxs, int& dummy, int& nLeading) {
  if (vecR.nCols != idxs.nRows || idxs.nCols != 1) return VES_ERR_INVALID_VALUE;
  if (!AllDense<Scalar>(vecR, workD, vecD, idxs)) return VES_ERR_MISMATCH;
  return RunDense(AsDense<Scalar>(vecR), AsDense<Scalar>(workD), AsDense<Scalar>(vecD), threshold,
                  AsDense<Scalar>(idxs), dummy, nLeading);
}

template <typename Scalar>
VesReturnCode RelativeResiduals<Scalar>::RunDense(const VectorDense<Scalar>& vecR,
                                                  const VectorDense<Scalar>& workD,
                                                  const VectorDense<Scalar>&, double threshold,
                                                  VectorDense<Scalar>& idxs, int& dummy,
                                                  int& nLeading) {
  if (vecR.IsDataEmpty() || idxs.IsDataEmpty()) return VES_ERR_NULL_POINTER;
  residualNorms = TestedNorms(*this, vecR);
  const auto passes = [&](int j) {
    const double norm = residualNorms[static_cast<std::size_t>(j)];
    return IsBelow<Scalar>(norm, static_cast<double>(std::abs(workD(j))) * threshold);
  };
  FlagPairs(idxs, vecR.nCols, vecR.nCols, passes, dummy, nLeading);
  return VES_GOOD;
}

VES_INSTANTIATE(RelativeResiduals);

} // namespace Ves
