#include "dense_orthogonalizer.h"

namespace Ves {

template <typename Scalar>
DenseOrthogonalizer<Scalar>::DenseOrthogonalizer() {
  MathKernel<Scalar>::SetScalarType(scalarType);
}

template <typename Scalar>
VesReturnCode DenseOrthogonalizer<Scalar>::Run(VesVectorBase& vecX, VesVectorBase& vecBX,
                                               const VesMatrixBase& matB, int& colRank, bool global,
                                               int maxOrthoIter, double threshold) {
  return Run(vecX, vecBX, vecBX, matB, colRank, global, maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode DenseOrthogonalizer<Scalar>::Run(VesVectorBase& vecX, VesVectorBase& vecBX,
                                               VesVectorBase& vecAX, const VesMatrixBase& matB,
                                               int& colRank, bool global, int maxOrthoIter,
                                               double threshold) {
  if (vecX.nCols == 0) return VES_GOOD;
  if (!AllDense<Scalar>(vecX, vecBX, vecAX)) return VES_ERR_MISMATCH;
  return Run4Dense(AsDense<Scalar>(vecX), AsDense<Scalar>(vecBX), AsDense<Scalar>(vecAX), matB,
                   colRank, global, maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode DenseOrthogonalizer<Scalar>::RunBatch(VesVectorBase& vecX, VesVectorBase& vecBX,
                                                    const std::vector<int>& dispX,
                                                    std::vector<int>& nXs,
                                                    const VesMatrixBase& matB, bool global,
                                                    int maxOrthoIter, double threshold) {
  return RunBatch(vecX, vecBX, vecBX, dispX, nXs, matB, global, maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode
DenseOrthogonalizer<Scalar>::RunBatch(VesVectorBase& vecX, VesVectorBase& vecBX,
                                      VesVectorBase& vecAX, const std::vector<int>& dispX,
                                      std::vector<int>& nXs, const VesMatrixBase& matB, bool global,
                                      int maxOrthoIter, double threshold) {
  if (vecX.nCols == 0) return VES_GOOD;
  if (!AllDense<Scalar>(vecX, vecBX, vecAX)) return VES_ERR_MISMATCH;
  return RunBatch4Dense(AsDense<Scalar>(vecX), AsDense<Scalar>(vecBX), AsDense<Scalar>(vecAX),
                        dispX, nXs, matB, global, maxOrthoIter, threshold);
}

VES_INSTANTIATE(DenseOrthogonalizer);

} // namespace Ves
