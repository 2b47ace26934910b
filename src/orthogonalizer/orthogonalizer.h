#ifndef VES_ORTHOGONALIZER_ORTHOGONALIZER_H
#define VES_ORTHOGONALIZER_ORTHOGONALIZER_H

#include "../data/matrix_base.h"
#include "../data/vector_base.h"

#include <vector>

namespace Ves {

/// Renders the columns of a block X B-orthonormal, X^H B X = I, updates its images B X and A X
/// alike, and reports how many leading columns survived.
class VES_EXPORT VesOrthogonalizer {
public:
  VesScalarType scalarType = VES_DOUBLE;

  virtual ~VesOrthogonalizer() = default;

  /// \param vecX          n x k block
  /// \param vecBX         its B-image; vecX itself where B is the identity
  /// \param vecAX         its A-image; the form without it leaves A-images alone
  /// \param matB          for implementations that apply B; the present ones use vecBX alone
  /// \param colRank       receives the number of leading columns that are orthonormal; those
  ///                      behind keep their contents; not written when k = 0
  /// \param global        sums inner products over the communicator (distributed rows)
  /// \param maxOrthoIter  most passes; negative means 2
  /// \param threshold     orthogonality error that ends the passes; negative means 2^-44
  /// Collective over vecX's communicators.
  /// \return 0 at once when k = 0; -5 not dense blocks of the scalar type; the last pass's result
  virtual VesReturnCode Run(VesVectorBase& vecX, VesVectorBase& vecBX, const VesMatrixBase& matB,
                            int& colRank, bool global, int maxOrthoIter, double threshold) = 0;
  virtual VesReturnCode Run(VesVectorBase& vecX, VesVectorBase& vecBX, VesVectorBase& vecAX,
                            const VesMatrixBase& matB, int& colRank, bool global, int maxOrthoIter,
                            double threshold) = 0;

  /// The same for independent groups of columns: group j starts at column dispX[j] and is nXs[j]
  /// wide; on return nXs[j] is its rank. One reduction serves all groups.
  virtual VesReturnCode RunBatch(VesVectorBase& vecX, VesVectorBase& vecBX,
                                 const std::vector<int>& dispX, std::vector<int>& nXs,
                                 const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                 double threshold) = 0;
  virtual VesReturnCode RunBatch(VesVectorBase& vecX, VesVectorBase& vecBX, VesVectorBase& vecAX,
                                 const std::vector<int>& dispX, std::vector<int>& nXs,
                                 const VesMatrixBase& matB, bool global, int maxOrthoIter,
                                 double threshold) = 0;
};

} // namespace Ves

#endif
