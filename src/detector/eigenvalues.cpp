#include "eigenvalues.h"

#include "flag_pairs.h"

#include <algorithm>

namespace Ves {

template <typename Scalar>
Eigenvalues<Scalar>::Eigenvalues() {
  MathKernel<Scalar>::SetScalarType(scalarType);
  detectorType = VES_EIGENVALUES;
}

template <typename Scalar>
VesReturnCode Eigenvalues<Scalar>::Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                                       const VesVectorBase& vecD, double threshold,
                                       VesVectorBase& idxs, int& dummy, int& nLeading) {
  if (workD.nCols != 1 || vecD.nCols != 1 || idxs.nCols != 1 || workD.nRows != vecD.nRows ||
      workD.nRows != idxs.nRows)
    return VES_ERR_INVALID_VALUE;
  if (!AllDense<Scalar>(vecR, workD, vecD, idxs)) return VES_ERR_MISMATCH;
  return RunDense(AsDense<Scalar>(vecR), AsDense<Scalar>(workD), AsDense<Scalar>(vecD), threshold,
                  AsDense<Scalar>(idxs), dummy, nLeading);
}

template <typename Scalar>
VesReturnCode Eigenvalues<Scalar>::RunDense(const VectorDense<Scalar>& vecR,
                                            const VectorDense<Scalar>& workD,
                                            const VectorDense<Scalar>& vecD, double threshold,
                                            VectorDense<Scalar>& idxs, int& dummy, int& nLeading) {
  if (workD.IsDataEmpty() || vecD.IsDataEmpty() || idxs.IsDataEmpty()) return VES_ERR_NULL_POINTER;
  const auto passes = [&](int j) {
    return IsBelow<Scalar>(static_cast<double>(std::abs(workD(j) - vecD(j))), threshold);
  };
  FlagPairs(idxs, workD.nRows, std::min(vecR.nCols, idxs.nRows), passes, dummy, nLeading);
  return VES_GOOD;
}

VES_INSTANTIATE(Eigenvalues);

} // namespace Ves
