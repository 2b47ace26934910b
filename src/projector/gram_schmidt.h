#ifndef VES_PROJECTOR_GRAM_SCHMIDT_H
#define VES_PROJECTOR_GRAM_SCHMIDT_H

#include "../data/vector_dense.h"
#include "../orthogonalizer/group_products.h"
#include "ortho_projector.h"

namespace Ves {

/// Block classical Gram-Schmidt: a pass computes M = (BX)^H Y once and then
///     Y := Y - X M,  BY := BY - (BX) M,  AY := AY - (AX) M.
template <typename Scalar>
class VES_EXPORT GramSchmidt : public VesOrthoProjector {
public:
  using Block = VectorDense<Scalar>;
  using Indices = std::vector<int>;

  KnownProducts<Scalar> knownOverlaps; ///< (BX)^H Y of the next pass, which uses them up

  GramSchmidt();

  VesReturnCode Run(const VesVectorBase& vecX, const VesVectorBase& vecBX, VesVectorBase& vecY,
                    VesVectorBase& vecBY, const VesMatrixBase& matB, bool global, int maxOrthoIter,
                    double threshold) override;
  VesReturnCode Run(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                    const VesVectorBase& vecAX, VesVectorBase& vecY, VesVectorBase& vecBY,
                    VesVectorBase& vecAY, const VesMatrixBase& matB, bool global, int maxOrthoIter,
                    double threshold) override;
  VesReturnCode RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX, VesVectorBase& vecY,
                         VesVectorBase& vecBY, const Indices& dispX, const Indices& nXs,
                         const Indices& dispY, const Indices& nYs, const VesMatrixBase& matB,
                         bool global, int maxOrthoIter, double threshold) override;
  VesReturnCode RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                         const VesVectorBase& vecAX, VesVectorBase& vecY, VesVectorBase& vecBY,
                         VesVectorBase& vecAY, const Indices& dispX, const Indices& nXs,
                         const Indices& dispY, const Indices& nYs, const VesMatrixBase& matB,
                         bool global, int maxOrthoIter, double threshold) override;

  /// The pass loops on typed blocks.
  virtual VesReturnCode Run4Dense(const Block& vecX, const Block& vecBX, const Block& vecAX,
                                  Block& vecY, Block& vecBY, Block& vecAY,
                                  const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                  double threshold);
  virtual VesReturnCode RunBatch4Dense(const Block& vecX, const Block& vecBX, const Block& vecAX,
                                       Block& vecY, Block& vecBY, Block& vecAY,
                                       const Indices& dispX, const Indices& nXs,
                                       const Indices& dispY, const Indices& nYs,
                                       const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                       double threshold);

  /// One pass over a block. \return 0
  virtual VesReturnCode GramSchm(const Block& vecX, const Block& vecBX, const Block& vecAX,
                                 Block& vecY, Block& vecBY, Block& vecAY, bool global);
  /// One pass over groups of columns, with one reduction for all. \return 0
  virtual VesReturnCode BatchGramSchm(const Block& vecX, const Block& vecBX, const Block& vecAX,
                                      Block& vecY, Block& vecBY, Block& vecAY, const Indices& dispX,
                                      const Indices& nXs, const Indices& dispY, const Indices& nYs,
                                      bool global);
};

VES_EXTERN_TEMPLATE(GramSchmidt);

} // namespace Ves

#endif
