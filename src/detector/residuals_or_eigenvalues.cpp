#include "residuals_or_eigenvalues.h"

#include "flag_pairs.h"

namespace Ves {

template <typename Scalar>
ResidualsOrEigenvalues<Scalar>::ResidualsOrEigenvalues() {
  MathKernel<Scalar>::SetScalarType(scalarType);
  detectorType = VES_RESIDUALS_OR_EIGENVALUES;
}

template <typename Scalar>
VesReturnCode ResidualsOrEigenvalues<Scalar>::Run(const VesVectorBase& vecR,
                                                  const VesVectorBase& workD,
                                                  const VesVectorBase& vecD, double threshold,
                                                  VesVectorBase& idxs, int& dummy, int& nLeading) {
  if (vecR.nCols != idxs.nRows || idxs.nCols != 1 || workD.nCols != 1 || vecD.nCols != 1 ||
      vecD.nRows != workD.nRows || vecR.nCols != workD.nRows)
    return VES_ERR_INVALID_VALUE;
  if (!AllDense<Scalar>(vecR, workD, vecD, idxs)) return VES_ERR_MISMATCH;
  return RunDense(AsDense<Scalar>(vecR), AsDense<Scalar>(workD), AsDense<Scalar>(vecD), threshold,
                  AsDense<Scalar>(idxs), dummy, nLeading);
}

template <typename Scalar>
VesReturnCode ResidualsOrEigenvalues<Scalar>::RunDense(const VectorDense<Scalar>& vecR,
                                                       const VectorDense<Scalar>& workD,
                                                       const VectorDense<Scalar>& vecD,
                                                       double threshold, VectorDense<Scalar>& idxs,
                                                       int& dummy, int& nLeading) {
  if (vecR.IsDataEmpty() || idxs.IsDataEmpty() || workD.IsDataEmpty() || vecD.IsDataEmpty())
    return VES_ERR_NULL_POINTER;
  residualNorms = TestedNorms(*this, vecR);
  const auto passes = [&](int j) {
    const double norm = residualNorms[static_cast<std::size_t>(j)];
    const double change = static_cast<double>(std::abs(workD(j) - vecD(j)));
    return IsBelow<Scalar>(norm, threshold) || IsBelow<Scalar>(change, threshold);
  };
  FlagPairs(idxs, vecR.nCols, vecR.nCols, passes, dummy, nLeading);
  return VES_GOOD;
}

VES_INSTANTIATE(ResidualsOrEigenvalues);

} // namespace Ves
