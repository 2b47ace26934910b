#include "matrix_shell.h"

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
  if (x.nCols == 0 || x.nRows == 0) return VES_GOOD;
  if (!IsDense<Scalar>(x) || !IsDense<Scalar>(y)) return VES_ERR_UNSUPPORTED;
  return ApplyDense(AsDense<Scalar>(x), AsDense<Scalar>(y));
}

template <typename Scalar>
VesReturnCode MatrixShell<Scalar>::ApplyDense(const VectorDense<Scalar>& x,
                                              VectorDense<Scalar>& y) const {
  if (x.IsDataEmpty() || y.IsDataEmpty()) return VES_ERR_NULL_POINTER;
  if (x.ld != y.ld) return VES_ERR_INVALID_VALUE;
  shellMatVec(shellData, x.values, y.values, x.nRows, x.nCols, x.ld);
  return VES_GOOD;
}

VES_INSTANTIATE(MatrixShell);

} // namespace Ves
