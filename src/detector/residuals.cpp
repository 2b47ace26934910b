#include "residuals.h"

#include "flag_pairs.h"

namespace Ves {

template <typename Scalar>
Residuals<Scalar>::Residuals() {
  MathKernel<Scalar>::SetScalarType(scalarType);
  detectorType = VES_RESIDUALS;
}

template <typename Scalar>
VesReturnCode Residuals<Scalar>::Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                                     const VesVectorBase& vecD, double threshold,
                                     VesVectorBase& idxs, int& dummy, int& nLeading) {
  if (vecR.nCols != idxs.nRows || idxs.nCols != 1) return VES_ERR_INVALID_VALUE;
  if (!AllDense<Scalar>(vecR, workD, vecD, idxs)) return VES_ERR_MISMATCH;
  return RunDense(AsDense<Scalar>(vecR), AsDense<Scalar>(workD), AsDense<Scalar>(vecD), threshold,
                  AsDense<Scalar>(idxs), dummy, nLeading);
}

template <typename Scalar>
VesReturnCode Residuals<Scalar>::RunDense(const VectorDense<Scalar>& vecR,
                                          const VectorDense<Scalar>&, const VectorDense<Scalar>&,
                                          double threshold, VectorDense<Scalar>& idxs, int& dummy,
                                          int& nLeading) {
  if (vecR.IsDataEmpty() || idxs.IsDataEmpty()) return VES_ERR_NULL_POINTER;
  residualNorms = TestedNorms(*this, vecR);
  const auto passes = [&](int j) {
    return IsBelow<Scalar>(residualNorms[static_cast<std::size_t>(j)], threshold);
  };
  FlagPairs(idxs, vecR.nCols, vecR.nCols, passes, dummy, nLeading);
  return VES_GOOD;
}

VES_INSTANTIATE(Residuals);

} // namespace Ves
