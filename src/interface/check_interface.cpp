#include "../data/vector_dense.h"
#include "operand_checks.h"
#include "scalar_dispatch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

using namespace Ves;

namespace {

/// The larger one; not a number counts as larger than all.
double Larger(double a, double b) {
  return std::isnan(a) || a > b ? a : b;
}

template <typename Scalar>
VesReturnCode LocalVerdict(const VesMatrixBase& A, const VesMatrixBase& B,
                           const VectorDense<Scalar>& X, const VectorDense<Scalar>& D) {
  if (!HaveStorage(X, D)) return VES_ERR_NULL_POINTER;
  if (LacksRoutine(A) || LacksRoutine(B)) return VES_ERR_NULL_POINTER;
  if (X.ld < X.nRows || D.ld < D.nRows) return VES_ERR_INVALID_VALUE;
  // Sizes are 32-bit, those of the Gram matrix too.
  const std::int64_t entries = (static_cast<std::int64_t>(X.nCols) + 1) * std::max(X.ld, X.nCols);
  if (entries > std::numeric_limits<int>::max()) return VES_ERR_INVALID_VALUE;
  return X.nCols == D.nRows && D.nCols == 1 ? VES_GOOD : VES_ERR_INCOMPATIBLE;
}

template <typename Scalar>
double LargestResidual(const VesMatrixBase& A, const VesMatrixBase& B, const VectorDense<Scalar>& X,
                       const VectorDense<Scalar>& D) {
  VectorDense<Scalar> R(X.comm, X.auxComm, X.nRows, X.nCols, X.ld);
  VectorDense<Scalar> norms(X.comm, X.auxComm, X.nCols, 1, X.nCols);
  VES_ASSERT_GOOD(R.AllocateMem());
  VES_ASSERT_GOOD(norms.AllocateMem());
  VES_ASSERT_GOOD(R.EigResidual(A, B, X, D));
  VES_ASSERT_GOOD(norms.Norm(R));
  double largest = 0.0;
  for (int j = 0; j < X.nCols; ++j)
    largest = Larger(largest, static_cast<double>(std::abs(norms(j))));
  return largest;
}

template <typename Scalar>
double LargestOrthoError(const VesMatrixBase& B, const VectorDense<Scalar>& X) {
  VectorDense<Scalar> BX(X.comm, X.auxComm, X.nRows, X.nCols, X.ld);
  VectorDense<Scalar> gram(X.comm, X.auxComm, X.nCols, X.nCols, X.nCols);
  VES_ASSERT_GOOD(BX.AllocateMem());
  VES_ASSERT_GOOD(gram.AllocateMem());
  VES_ASSERT_GOOD(B.IsPresent() ? B.Apply(X, BX) : BX.CopyData(X));
  VES_ASSERT_GOOD(gram.InnerProduct(X, BX));
  double largest = 0.0;
  for (int j = 0; j < X.nCols; ++j)
    for (int i = 0; i < X.nCols; ++i) {
      const Scalar expected = i == j ? MathConstants<Scalar>::ONE : MathConstants<Scalar>::ZERO;
      largest = Larger(largest, static_cast<double>(std::abs(gram(i, j) - expected)));
    }
  return largest;
}

} // namespace

VesReturnCode VesCheckEigenpairs(VesMatrix A, VesMatrix B, VesVector X, VesVector D,
                                 double* maxResidual, double* maxOrthoError) noexcept {
  if (A == nullptr || X == nullptr || D == nullptr) return VES_ERR_INVALID_VALUE;
  if (maxResidual == nullptr || maxOrthoError == nullptr) return VES_ERR_NULL_POINTER;
  const VesMatrixEmpty empty;
  const VesMatrixBase& matB = B != nullptr ? *B : static_cast<const VesMatrixBase&>(empty);
  return DispatchScalar(X->scalarType, VES_ERR_MISMATCH, [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    VesReturnCode verdict = VES_ERR_MISMATCH;
    const bool sameType = A->scalarType == X->scalarType && AllDense<Scalar>(*X, *D) &&
                          (!matB.IsPresent() || matB.scalarType == X->scalarType);
    if (sameType) verdict = LocalVerdict(*A, matB, AsDense<Scalar>(*X), AsDense<Scalar>(*D));
    verdict = AgreeOn(verdict, {X->nCols}, X->comm);
    if (verdict != VES_GOOD) return verdict;
    *maxResidual = LargestResidual(*A, matB, AsDense<Scalar>(*X), AsDense<Scalar>(*D));
    *maxOrthoError = LargestOrthoError(matB, AsDense<Scalar>(*X));
    return VES_GOOD;
  });
}
