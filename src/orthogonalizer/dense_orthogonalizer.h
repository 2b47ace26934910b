#ifndef VES_ORTHOGONALIZER_DENSE_ORTHOGONALIZER_H
#define VES_ORTHOGONALIZER_DENSE_ORTHOGONALIZER_H

#include "../data/vector_dense.h"
#include "group_products.h"
#include "orthogonalizer.h"

namespace Ves {

/// What the orthogonalizers of dense blocks share: the checks of the arguments and the way from
/// the forms without A-images to the forms with them.
template <typename Scalar>
class VES_EXPORT DenseOrthogonalizer : public VesOrthogonalizer {
public:
  KnownProducts<Scalar> knownGrams; ///< of the groups of the next pass, which uses them up

  DenseOrthogonalizer();

  VesReturnCode Run(VesVectorBase& vecX, VesVectorBase& vecBX, const VesMatrixBase& matB,
                    int& colRank, bool global, int maxOrthoIter, double threshold) override;
  VesReturnCode Run(VesVectorBase& vecX, VesVectorBase& vecBX, VesVectorBase& vecAX,
                    const VesMatrixBase& matB, int& colRank, bool global, int maxOrthoIter,
                    double threshold) override;
  VesReturnCode RunBatch(VesVectorBase& vecX, VesVectorBase& vecBX, const std::vector<int>& dispX,
                         std::vector<int>& nXs, const VesMatrixBase& matB, bool global,
                         int maxOrthoIter, double threshold) override;
  VesReturnCode RunBatch(VesVectorBase& vecX, VesVectorBase& vecBX, VesVectorBase& vecAX,
                         const std::vector<int>& dispX, std::vector<int>& nXs,
                         const VesMatrixBase& matB, bool global, int maxOrthoIter,
                         double threshold) override;

  /// The pass loops on typed blocks.
  virtual VesReturnCode Run4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                  VectorDense<Scalar>& vecAX, const VesMatrixBase& matB,
                                  int& colRank, bool global, int maxOrthoIter,
                                  double threshold) = 0;
  virtual VesReturnCode RunBatch4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                       VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                                       std::vector<int>& nXs, const VesMatrixBase& matB,
                                       bool global, int maxOrthoIter, double threshold) = 0;
};

VES_EXTERN_TEMPLATE(DenseOrthogonalizer);

} // namespace Ves

#endif
