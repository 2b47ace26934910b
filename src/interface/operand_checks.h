#ifndef VES_INTERFACE_OPERAND_CHECKS_H
#define VES_INTERFACE_OPERAND_CHECKS_H

#include "../data/matrix_shell.h"
#include "../data/vector_dense.h"
#include "scalar_dispatch.h"

#include <initializer_list>
#include <vector>

namespace Ves {

/// A shell operator whose caller never gave it a routine: it would leave its output undefined.
inline bool LacksRoutine(const VesMatrixBase& op) {
  return DispatchScalar(op.scalarType, false, [&](auto tag) {
    const auto* shell = dynamic_cast<const MatrixShell<typename decltype(tag)::type>*>(&op);
    return shell != nullptr && shell->GetShellMatVec() == nullptr;
  });
}

/// Blocks of vectors and values have storage where they have entries on this process.
template <typename Scalar>
bool HaveStorage(const VectorDense<Scalar>& X, const VectorDense<Scalar>& D) {
  const bool needsX = X.nRows > 0 && X.nCols > 0;
  return !(needsX && X.IsDataEmpty()) && !(D.nRows > 0 && D.IsDataEmpty());
}

/// The worst verdict of all processes, or -5 where they do not agree on these numbers, so that none
/// starts what another has refused, or waits for an answer. Collective over comm.
inline VesReturnCode AgreeOn(VesReturnCode verdict, std::initializer_list<int> numbers,
                             MPI_Comm comm) {
  std::vector<int> maxima{-static_cast<int>(verdict)};
  for (const int number : numbers) {
    maxima.push_back(number);
    maxima.push_back(-number);
  }
  MPI_Allreduce(MPI_IN_PLACE, maxima.data(), static_cast<int>(maxima.size()), MPI_INT, MPI_MAX,
                comm);
  for (std::size_t i = 1; i < maxima.size() && maxima[0] == 0; i += 2)
    if (maxima[i] != -maxima[i + 1]) return VES_ERR_MISMATCH;
  return static_cast<VesReturnCode>(-maxima[0]);
}

} // namespace Ves

#endif
