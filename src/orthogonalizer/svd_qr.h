#ifndef VES_ORTHOGONALIZER_SVD_QR_H
#define VES_ORTHOGONALIZER_SVD_QR_H

#include "../data/imaged.h"
#include "../eigensolver/dense_eigensolver.h"
#include "dense_orthogonalizer.h"

#include <memory>

namespace Ves {

/// SVD QR: with the Gram matrix M = X^H (BX) = V diag(lambda) V^H, lambda descending, a pass
/// replaces
///     X := X V diag(lambda)^-1/2,  BX and AX alike,
/// over the columns whose singular value lambda^1/2 exceeds singularFloor. It tolerates nearly
/// dependent columns, and mixes all columns of X.
/// Stathopoulos, Wu, SIAM J. Sci. Comput. 23 (2002) 2165.
template <typename Scalar>
class VES_EXPORT SvdQR : public DenseOrthogonalizer<Scalar> {
public:
  /// Singular values up to this are dropped: an absolute bound, the same in all types.
  static constexpr double singularFloor = 0x1p-51;

  std::unique_ptr<VesDenseEigenSolver> DenseEigenSolver;

  SvdQR();

  VesReturnCode Run4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                          VectorDense<Scalar>& vecAX, const VesMatrixBase& matB, int& colRank,
                          bool global, int maxOrthoIter, double threshold) override;
  VesReturnCode RunBatch4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                               VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                               std::vector<int>& nXs, const VesMatrixBase& matB, bool global,
                               int maxOrthoIter, double threshold) override;

  /// One pass over a block. \return -6 the eigendecomposition failed, with colRank 0; 0
  virtual VesReturnCode SvQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                             VectorDense<Scalar>& vecAX, int& colRank, bool global);
  /// One pass over groups of columns, with one reduction for all. A group whose
  /// eigendecomposition fails gets rank 0. \return 0
  virtual VesReturnCode BatchSvQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                  VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                                  std::vector<int>& nXs, bool global);

private:
  bool RunGroups(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX, VectorDense<Scalar>& vecAX,
                 const std::vector<int>& dispX, std::vector<int>& nXs, bool global);
  int TransformGroup(const Imaged<Scalar>& group, VectorDense<Scalar> gram);
};

VES_EXTERN_TEMPLATE(SvdQR);

} // namespace Ves

#endif
