#include "matrix_shell.h"

#include "../parallel/thread_team.h"

namespace Ves {

template <typename Scalar>
MatrixShell<Scalar>::MatrixShell() {
  MathKernel<Scalar>::SetScalarType(scalarType);
  matrixType = VES_MATRIX_SHELL;
}

template <typename Scalar>
VesReturnCode MatrixShell<Scalar>::Apply(const VesVectorBase& x, VesVectorBase& y) const {
  if (!x.CompareDims(y)) return VES_ERR_INVALID_VALUE;
  if (shellMatVec == nullptr) return VES_GOOD;
  if (x.nCols == 0 || (x.nRows == 0 && !isCalledEverywhere)) return VES_GOOD;
  if (!IsDense<Scalar>(x) || !IsDense<Scalar>(y)) return VES_ERR_UNSUPPORTED;
  if (x.nRows == 0) return CallWithoutRows(AsDense<Scalar>(x), AsDense<Scalar>(y));
  return ApplyDense(AsDense<Scalar>(x), AsDense<Scalar>(y));
}

template <typename Scalar>
VesReturnCode MatrixShell<Scalar>::ApplyDense(const VectorDense<Scalar>& x,
                                              VectorDense<Scalar>& y) const {
  if (x.IsDataEmpty() || y.IsDataEmpty()) return VES_ERR_NULL_POINTER;
  if (x.ld != y.ld) return VES_ERR_INVALID_VALUE;
  const ThreadTeam::Rest rest;
  shellMatVec(shellData, x.values, y.values, x.nRows, x.nCols, x.ld);
  return VES_GOOD;
}

/// Blocks without rows need neither storage nor the same leading dimension.
template <typename Scalar>
VesReturnCode MatrixShell<Scalar>::CallWithoutRows(const VectorDense<Scalar>& x,
                                                   const VectorDense<Scalar>& y) const {
  const ThreadTeam::Rest rest;
  shellMatVec(shellData, x.values, y.values, 0, x.nCols, x.ld);
  return VES_GOOD;
}

VES_INSTANTIATE(MatrixShell);

} // namespace Ves
