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

/// Entries, where an operator is made of them, are distributed as the rows of a block: a product
/// would read beyond it, or wait for processes that do not take part.
inline bool HasRowsOf(const VesMatrixBase& op, const VesVectorBase& like) {
  return op.entries == nullptr || op.entries->Fits(like);
}

/// How processes take part in an operator: 0 there is none; by a routine those with rows alone, 1,
/// or all, 2; by entries 3 or 4. All processes must say the same.
inline int PartOf(const VesMatrixBase& op) {
  if (!op.IsPresent()) return 0;
  return 1 + (op.isCalledEverywhere ? 1 : 0) + (op.entries != nullptr ? 2 : 0);
}

/// The operator of a handle, or the placeholder of an absent one.
inline const VesMatrixBase& OrAbsent(VesMatrix matrix) {
  static const VesMatrixEmpty absent;
  return matrix != nullptr ? *matrix : static_cast<const VesMatrixBase&>(absent);
}

inline int LeadingDimension(const VesVectorBase& vec) {
  return DispatchScalar(vec.scalarType, 1,
                        [&](auto tag) { return AsDense<typename decltype(tag)::type>(vec).ld; });
}

/// Blocks of vectors and values have storage where they have entries on this process.
template <typename Scalar>
bool HaveStorage(const VectorDense<Scalar>& X, const VectorDense<Scalar>& D) {
  const bool needsX = X.nRows > 0 && X.nCols > 0;
  return !(needsX && X.IsDataEmpty()) && !(D.nRows > 0 && D.IsDataEmpty());
}

} // namespace Ves

#endif
