#include "../data/panelled_operator.h"
#include "operand_checks.h"
#include "scalar_dispatch.h"

#include <algorithm>
#include <cmath>
#include <new>

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
  if (!HasRowsOf(A, X) || !HasRowsOf(B, X)) return VES_ERR_MISMATCH;
  if (X.ld < X.nRows || D.ld < D.nRows) return VES_ERR_INVALID_VALUE;
  return X.nCols == D.nRows && D.nCols == 1 ? VES_GOOD : VES_ERR_INCOMPATIBLE;
}

/// The pairs that are looked at, and what it takes to do so.
template <typename Scalar>
struct PairCheck {
  const VectorDense<Scalar>&X, &D;
  ColumnPanels panels;
  const PanelledOperator<Scalar> A, B;
  VectorDense<Scalar> AX{X.comm, X.auxComm, X.nRows, X.nCols, X.ld};
  VectorDense<Scalar> imageB{X.comm, X.auxComm, X.nRows, X.nCols, X.ld}; ///< storage only with a B
  VectorDense<Scalar> norms{X.comm, X.auxComm, X.nCols, 1, X.nCols};
  VectorDense<Scalar> gram{X.comm, X.auxComm, X.nCols, X.nCols, X.nCols};

  PairCheck(const VesMatrixBase& matA, const VesMatrixBase& matB, const VectorDense<Scalar>& vecX,
            const VectorDense<Scalar>& vecD)
      : X(vecX), D(vecD), A(matA, panels), B(matB, panels) {}

  /// All processes, one reduction. \return -1 some process cannot have the storage; 0
  VesReturnCode Begin() {
    int largestLd = X.ld;
    const VesReturnCode verdict = AgreeOnLargest(Allocate(), largestLd, X.comm);
    panels = ColumnPanels::Of(largestLd);
    return verdict;
  }
  VesReturnCode Allocate() {
    try {
      for (VectorDense<Scalar>* const block : {&AX, &norms, &gram})
        VES_ASSERT_GOOD(block->AllocateMem());
      if (B.IsPresent()) VES_ASSERT_GOOD(imageB.AllocateMem());
    } catch (const std::bad_alloc&) {
      return VES_ERR_INVALID_VALUE;
    }
    return VES_GOOD;
  }

  const VectorDense<Scalar>& BX() const { return B.IsPresent() ? imageB : X; }

  double LargestResidual() {
    VES_ASSERT_GOOD(A.Apply(X, AX));
    VES_ASSERT_GOOD(B.Apply(X, imageB));
    VES_ASSERT_GOOD(AX.ScaleAdd(AX, BX(), D, -1));
    VES_ASSERT_GOOD(norms.Norm(AX));
    double largest = 0.0;
    for (int j = 0; j < X.nCols; ++j)
      largest = Larger(largest, static_cast<double>(std::abs(norms(j))));
    return largest;
  }

  double LargestOrthoError() {
    VES_ASSERT_GOOD(gram.InnerProduct(X, BX()));
    double largest = 0.0;
    for (int j = 0; j < X.nCols; ++j)
      for (int i = 0; i < X.nCols; ++i) {
        const Scalar expected = i == j ? MathConstants<Scalar>::ONE : MathConstants<Scalar>::ZERO;
        largest = Larger(largest, static_cast<double>(std::abs(gram(i, j) - expected)));
      }
    return largest;
  }
};

} // namespace

VesReturnCode VesCheckEigenpairs(VesMatrix A, VesMatrix B, VesVector X, VesVector D,
                                 double* maxResidual, double* maxOrthoError) noexcept {
  if (A == nullptr || X == nullptr || D == nullptr) return VES_ERR_INVALID_VALUE;
  if (maxResidual == nullptr || maxOrthoError == nullptr) return VES_ERR_NULL_POINTER;
  const VesMatrixBase& matB = OrAbsent(B);
  return DispatchScalar(X->scalarType, VES_ERR_MISMATCH, [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    VesReturnCode verdict = VES_ERR_MISMATCH;
    const bool sameType = A->scalarType == X->scalarType && AllDense<Scalar>(*X, *D) &&
                          (!matB.IsPresent() || matB.scalarType == X->scalarType);
    if (sameType) verdict = LocalVerdict(*A, matB, AsDense<Scalar>(*X), AsDense<Scalar>(*D));
    verdict = AgreeOn(verdict, {X->nCols, PartOf(*A), PartOf(matB)}, X->comm);
    if (verdict != VES_GOOD) return verdict;
    PairCheck<Scalar> check(*A, matB, AsDense<Scalar>(*X), AsDense<Scalar>(*D));
    verdict = check.Begin();
    if (verdict != VES_GOOD) return verdict;
    *maxResidual = check.LargestResidual();
    *maxOrthoError = check.LargestOrthoError();
    return VES_GOOD;
  });
}
