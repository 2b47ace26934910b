#ifndef VES_INTERFACE_OPERAND_CHECKS_H
#define VES_INTERFACE_OPERAND_CHECKS_H

#include "../data/matrix_shell.h"
#include "../data/vector_dense.h"
#include "../parallel/agreement.h"
#include "scalar_dispatch.h"

namespace Ves {

/// A shell operator whose caller never gave it a routine: it would leave its output undefined.
inline bool LacksRoutine(const VesMatrixBase& op) {
  return DispatchScalar(op.scalarType, false, [&](auto tag) {
    const auto* shell = dynamic_cast<const MatrixShell<typename decltype(tag)::type>*>(&op);
    return shell != nullptr && shell->GetShellMatVec() == nullptr;
  });
}

/// How processes without rows take part in an operator: 0 there is none, 1 not, 2 they are called.
/// All processes must say the same.
inline int PartOf(const VesMatrixBase& op) {
  return op.IsPresent() ? 1 + (op.isCalledEverywhere ? 1 : 0) : 0;
}

/// The operator of a handle, or the placeholder of an absent one.
inline const VesMatrixBase& OrAbsent(VesMatrix matrix) {
  static const VesMatrixEmpty absent;
  return matrix != nullptr ? *matrix : static_cast<const VesMatrixBase&>(absent);
}

/// Blocks of vectors and values have storage where they have entries on this process.
template <typename Scalar>
bool HaveStorage(const VectorDense<Scalar>& X, const VectorDense<Scalar>& D) {
  const bool needsX = X.nRows > 0 && X.nCols > 0;
  return !(needsX && X.IsDataEmpty()) && !(D.nRows > 0 && D.IsDataEmpty());
}

} // namespace Ves

#endif
