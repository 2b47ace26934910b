#ifndef VES_PROJECTOR_ORTHO_PROJECTOR_H
#define VES_PROJECTOR_ORTHO_PROJECTOR_H

#include "../data/matrix_base.h"
#include "../data/vector_base.h"

#include <vector>

namespace Ves {

/// Removes from a block Y its components along a B-orthonormal block X, Y := Y - X (X^H B Y), and
/// updates the images B Y and A Y with the same coefficients.
class VES_EXPORT VesOrthoProjector {
public:
  VesScalarType scalarType = VES_DOUBLE;

  virtual ~VesOrthoProjector() = default;

  /// \param vecX,vecBX,vecAX  n x k basis and its images, read only
  /// \param vecY,vecBY,vecAY  n x l block and its images; the same object stands for an image
  ///                          that is the block itself; the form without A-images leaves them alone
  /// \param matB              for implementations that apply B; the present one uses the images
  /// \param global            sums inner products over the communicator (distributed rows)
  /// \param maxOrthoIter      most passes; negative means 2
  /// \param threshold         coupling of B X and Y that ends the passes; negative means 2^-44
  /// Collective over vecX's communicators.
  /// \return 0 at once when k = 0; -5 not dense blocks of the scalar type; the last pass's result
  virtual VesReturnCode Run(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                            VesVectorBase& vecY, VesVectorBase& vecBY, const VesMatrixBase& matB,
                            bool global, int maxOrthoIter, double threshold) = 0;
  virtual VesReturnCode Run(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                            const VesVectorBase& vecAX, VesVectorBase& vecY, VesVectorBase& vecBY,
                            VesVectorBase& vecAY, const VesMatrixBase& matB, bool global,
                            int maxOrthoIter, double threshold) = 0;

  /// The same for independent groups: basis columns dispX[j], nXs[j] wide, against block columns
  /// dispY[j], nYs[j] wide. One reduction serves all groups.
  virtual VesReturnCode RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                                 VesVectorBase& vecY, VesVectorBase& vecBY,
                                 const std::vector<int>& dispX, const std::vector<int>& nXs,
                                 const std::vector<int>& dispY, const std::vector<int>& nYs,
                                 const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                 double threshold) = 0;
  virtual VesReturnCode RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                                 const VesVectorBase& vecAX, VesVectorBase& vecY,
                                 VesVectorBase& vecBY, VesVectorBase& vecAY,
                                 const std::vector<int>& dispX, const std::vector<int>& nXs,
                                 const std::vector<int>& dispY, const std::vector<int>& nYs,
                                 const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                 double threshold) = 0;
};

} // namespace Ves

#endif
