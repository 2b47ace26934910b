#include "gram_schmidt.h"

#include "../data/imaged.h"
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
      [&](bool) { return this->GramSchm(vecX, vecBX, vecAX, vecY, vecBY, vecAY, global); },
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
      [&](bool) {
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
  return BatchGramSchm(vecX, vecBX, vecAX, vecY, vecBY, vecAY, {0}, {vecX.nCols}, {0}, {vecY.nCols},
                       global);
}

template <typename Scalar>
VesReturnCode GramSchmidt<Scalar>::BatchGramSchm(const Block& vecX, const Block& vecBX,
                                                 const Block& vecAX, Block& vecY, Block& vecBY,
                                                 Block& vecAY, const Indices& dispX,
                                                 const Indices& nXs, const Indices& dispY,
                                                 const Indices& nYs, bool global) {
  const auto overlaps = TakeOrForm(knownOverlaps, vecBX, {dispX, nXs}, vecY, {dispY, nYs}, global);
  const Imaged<Scalar> basis(vecX, vecBX, vecAX), block(vecY, vecBY, vecAY);
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    const Block overlap = (*overlaps)[j];
    const Imaged<Scalar> from = basis.Columns(dispX[j], nXs[j]);
    block.Columns(dispY[j], nYs[j]).ForEachWith(from, [&](Block& y, const Block& x) {
      VES_ASSERT_GOOD(y.Gemm(x, overlap, 'N', 'N', -1, 1));
    });
  }
  return VES_GOOD;
}

VES_INSTANTIATE(GramSchmidt);

} // namespace Ves
