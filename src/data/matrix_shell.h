#ifndef VES_DATA_MATRIX_SHELL_H
#define VES_DATA_MATRIX_SHELL_H

#include "matrix_base.h"
#include "vector_dense.h"

namespace Ves {

/// Matrix-free operator: hands the local rows of a block to a routine of the caller. Routine and
/// data belong to the caller.
template <typename Scalar>
class VES_EXPORT MatrixShell : public VesMatrixBase {
public:
  void* shellData = nullptr;
  VesShellMatVec shellMatVec = nullptr;

  MatrixShell();

  void SetShellData(void* data) { shellData = data; }
  void SetShellMatVec(VesShellMatVec matVec) { shellMatVec = matVec; }
  void* GetShellData() const { return shellData; }
  VesShellMatVec GetShellMatVec() const { return shellMatVec; }

  /// y = Op x. Without a routine, and on an empty block, succeeds and leaves y as it is; one that
  /// is called everywhere calls its routine on a block that lacks only rows.
  /// \return -1 scalar types, communicators or dimensions of x and y differ; -4 x or y is not a
  ///         dense block of the operator's scalar type; then as ApplyDense
  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override;

  /// \return -7 x or y has no values; -1 leading dimensions differ; 0 after calling the routine
  VesReturnCode ApplyDense(const VectorDense<Scalar>& x, VectorDense<Scalar>& y) const;

private:
  VesReturnCode CallWithoutRows(const VectorDense<Scalar>& x, const VectorDense<Scalar>& y) const;
};

VES_EXTERN_TEMPLATE(MatrixShell);

} // namespace Ves

#endif
