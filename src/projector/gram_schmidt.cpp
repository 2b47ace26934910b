#include "gram_schmidt.h"

#include "../orthogonalizer/pass_loop.h"

namespace Ves {

template <typename Scalar>
GramSchmidt<Scalar>::GramSchmidt() {
  MathKernel<Scalar>::SetScalarType(scalarType);
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::Run(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                                       VesVectorBase& vecY, VesVectorBase& vecBY,
                                       const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                       double threshold) {
  return Run(vecX, vecBX, vecBX, vecY, vecBY, vecBY, matB, global, maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::Run(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                                       const VesVectorBase& vecAX, VesVectorBase& vecY,
                                       VesVectorBase& vecBY, VesVectorBase& vecAY,
                                       const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                       double threshold) {
  if (vecX.nCols == 0) return VES_GOOD;
  if (!AllDense<Scalar>(vecX, vecBX, vecAX, vecY, vecBY, vecAY)) return VES_ERR_MISMATCH;
  return Run4Dense(AsDense<Scalar>(vecX), AsDense<Scalar>(vecBX), AsDense<Scalar>(vecAX),
                   AsDense<Scalar>(vecY), AsDense<Scalar>(vecBY), AsDense<Scalar>(vecAY), matB,
                   global, maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                                            VesVectorBase& vecY, VesVectorBase& vecBY,
                                            const Indices& dispX, const Indices& nXs,
                                            const Indices& dispY, const Indices& nYs,
                                            const VesMatrixBase& matB, bool global,
                                            int maxOrthoIter, double threshold) {
  return RunBatch(vecX, vecBX, vecBX, vecY, vecBY, vecBY, dispX, nXs, dispY, nYs, matB, global,
                  maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode
GramSchmidt<Scalar>::RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                              const VesVectorBase& vecAX, VesVectorBase& vecY, VesVectorBase& vecBY,
                              VesVectorBase& vecAY, const Indices& dispX, const Indices& nXs,
                              const Indices& dispY, const Indices& nYs, const VesMatrixBase& matB,
                              bool global, int maxOrthoIter, double threshold) {
  if (vecX.nCols == 0) return VES_GOOD;
  if (!AllDense<Scalar>(vecX, vecBX, vecAX, vecY, vecBY, vecAY)) return VES_ERR_MISMATCH;
  return RunBatch4Dense(AsDense<Scalar>(vecX), AsDense<Scalar>(vecBX), AsDense<Scalar>(vecAX),
                        AsDense<Scalar>(vecY), AsDense<Scalar>(vecBY), AsDense<Scalar>(vecAY),
                        dispX, nXs, dispY, nYs, matB, global, maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::Run4Dense(const Block& vecX, const Block& vecBX,
                                             const Block& vecAX, Block& vecY, Block& vecBY,
                                             Block& vecAY, const VesMatrixBase&, bool global,
                                             int maxOrthoIter, double threshold) {
  return RepeatPasses(
      maxOrthoIter, threshold, vecX.auxComm,
      [&] { return this->GramSchm(vecX, vecBX, vecAX, vecY, vecBY, vecAY, global); },
      [&] {
        double error = 0.0;
        VES_ASSERT_GOOD(vecBX.CheckOrthogonality(vecY, error, false, global));
        return error;
      });
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::RunBatch4Dense(const Block& vecX, const Block& vecBX,
                                                  const Block& vecAX, Block& vecY, Block& vecBY,
                                                  Block& vecAY, const Indices& dispX,
                                                  const Indices& nXs, const Indices& dispY,
                                                  const Indices& nYs, const VesMatrixBase&,
                                                  bool global, int maxOrthoIter, double threshold) {
  std::vector<double> errors(nXs.size(), 0.0);
  return RepeatPasses(
      maxOrthoIter, threshold, vecX.auxComm,
      [&] {
        return this->BatchGramSchm(vecX, vecBX, vecAX, vecY, vecBY, vecAY, dispX, nXs, dispY, nYs,
                                   global);
      },
      [&] {
        VES_ASSERT_GOOD(
            vecBX.CheckBatchOrthogonality(vecY, dispX, nXs, dispY, nYs, errors, false, global));
        return LargestError(errors, nXs);
      });
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::GramSchm(const Block& vecX, const Block& vecBX,
                                            const Block& vecAX, Block& vecY, Block& vecBY,
                                            Block& vecAY, bool global) {
  const ImageUpdates images(vecY, vecBY, vecAY);
  Block vecM;
  VES_ASSERT_GOOD(vecM.DuplicateShape(vecX));
  vecM.SetDims(vecBX.nCols, vecY.nCols, vecBX.nCols);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecM.InnerProduct(vecBX, vecY, global));
  VES_ASSERT_GOOD(vecY.Gemm(vecX, vecM, 'N', 'N', -1, 1));
  if (images.needB) VES_ASSERT_GOOD(vecBY.Gemm(vecBX, vecM, 'N', 'N', -1, 1));
  if (images.needA) VES_ASSERT_GOOD(vecAY.Gemm(vecAX, vecM, 'N', 'N', -1, 1));
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::BatchGramSchm(const Block& vecX, const Block& vecBX,
                                                 const Block& vecAX, Block& vecY, Block& vecBY,
                                                 Block& vecAY, const Indices& dispX,
                                                 const Indices& nXs, const Indices& dispY,
                                                 const Indices& nYs, bool global) {
  const ImageUpdates images(vecY, vecBY, vecAY);
  const GroupLayout layout(nXs, nYs);
  Block vecM, subM, subX, subBX, subAX, subY, subBY, subAY;
  VES_ASSERT_GOOD(vecM.DuplicateShape(vecX));
  vecM.SetDims(layout.maxRows, layout.sumCols, layout.maxRows);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecM.Set2Zero());
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], nYs[j]));
    VES_ASSERT_GOOD(subBX.SubVector(vecBX, 0, dispX[j], vecBX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subY.SubVector(vecY, 0, dispY[j], vecY.nRows, nYs[j]));
    VES_ASSERT_GOOD(subM.InnerProduct(subBX, subY, false));
  }
  if (global) VES_ASSERT_GOOD(vecM.AllReduce(MPI_SUM, vecM.comm));

  for (std::size_t j = 0; j < nXs.size(); ++j) {
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], nYs[j]));
    VES_ASSERT_GOOD(subX.SubVector(vecX, 0, dispX[j], vecX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subBX.SubVector(vecBX, 0, dispX[j], vecBX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subAX.SubVector(vecAX, 0, dispX[j], vecAX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subY.SubVector(vecY, 0, dispY[j], vecY.nRows, nYs[j]));
    VES_ASSERT_GOOD(subBY.SubVector(vecBY, 0, dispY[j], vecBY.nRows, nYs[j]));
    VES_ASSERT_GOOD(subAY.SubVector(vecAY, 0, dispY[j], vecAY.nRows, nYs[j]));
    VES_ASSERT_GOOD(subY.Gemm(subX, subM, 'N', 'N', -1, 1));
    if (images.needB) VES_ASSERT_GOOD(subBY.Gemm(subBX, subM, 'N', 'N', -1, 1));
    if (images.needA) VES_ASSERT_GOOD(subAY.Gemm(subAX, subM, 'N', 'N', -1, 1));
  }
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

VES_INSTANTIATE(GramSchmidt);

} // namespace Ves
