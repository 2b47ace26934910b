#ifndef VES_ORTHOGONALIZER_CHOLESKY_QR_H
#define VES_ORTHOGONALIZER_CHOLESKY_QR_H

#include "../cholesky/cholesky_factorizer.h"
#include "dense_orthogonalizer.h"

#include <memory>

namespace Ves {

/// Cholesky QR: with the Gram matrix M = X^H (BX) = U^H U, a pass replaces
///     X := X U^-1,  BX := BX U^-1,  AX := AX U^-1.
/// One pass loses orthogonality with the square of the condition of X; a second restores it.
/// The rank is the order of the leading block of M that has a factor.
/// Yamamoto, Nakatsukasa, Yanagisawa, Fukaya, ETNA 44 (2015) 306.
template <typename Scalar>
class VES_EXPORT CholeskyQR : public DenseOrthogonalizer<Scalar> {
public:
  std::unique_ptr<VesCholeskyFactorizer> CholeskyFactorizer;

  CholeskyQR();

  VesReturnCode Run4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                          VectorDense<Scalar>& vecAX, const VesMatrixBase& matB, int& colRank,
                          bool global, int maxOrthoIter, double threshold) override;
  VesReturnCode RunBatch4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                               VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                               std::vector<int>& nXs, const VesMatrixBase& matB, bool global,
                               int maxOrthoIter, double threshold) override;

  /// One pass over a block. \return 0
  virtual VesReturnCode CholQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                               VectorDense<Scalar>& vecAX, int& colRank, bool global);
  /// One pass over groups of columns, with one reduction for all. \return 0
  virtual VesReturnCode BatchCholQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                    VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                                    std::vector<int>& nXs, bool global);

private:
  std::vector<int> Factorize(GroupProducts<Scalar>& grams, const std::vector<int>& widths);
};

VES_EXTERN_TEMPLATE(CholeskyQR);

} // namespace Ves

#endif
