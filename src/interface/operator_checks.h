#ifndef VES_INTERFACE_OPERATOR_CHECKS_H
#define VES_INTERFACE_OPERATOR_CHECKS_H

#include "../data/matrix_shell.h"
#include "scalar_dispatch.h"

namespace Ves {

/// A shell operator whose caller never gave it a routine: it would leave its output undefined.
inline bool LacksRoutine(const VesMatrixBase& op) {
  return DispatchScalar(op.scalarType, false, [&](auto tag) {
    const auto* shell = dynamic_cast<const MatrixShell<typename decltype(tag)::type>*>(&op);
    return shell != nullptr && shell->GetShellMatVec() == nullptr;
  });
}

} // namespace Ves

#endif
