#include "../data/matrix_shell.h"
#include "scalar_dispatch.h"

#include <utility>

using namespace Ves;

VesReturnCode VesMatrixCreate(VesMatrix* out, VesScalarType scalarType,
                              VesMatrixType matrixType) noexcept {
  if (out == nullptr) return VES_ERR_NULL_POINTER;
  const auto create = [&](auto tag) {
    if (matrixType != VES_MATRIX_SHELL) return VES_ERR_UNSUPPORTED;
    *out = new MatrixShell<typename decltype(tag)::type>();
    return VES_GOOD;
  };
  const VesReturnCode code = DispatchScalar(scalarType, VES_ERR_MISMATCH, create);
  if (code == VES_ERR_MISMATCH) *out = nullptr;
  return code;
}

VesReturnCode VesMatrixSetDim(VesMatrix matrix, int nRows, int nCols) noexcept {
  if (matrix == nullptr) return VES_ERR_NULL_POINTER;
  if (nRows < 0 || nCols < 0) return VES_ERR_INVALID_VALUE;
  matrix->nRows = nRows;
  matrix->nCols = nCols;
  return VES_GOOD;
}

VesReturnCode VesMatrixSetShellMatVec(VesMatrix matrix, void* userData,
                                      VesShellMatVec matVec) noexcept {
  if (matrix == nullptr) return VES_ERR_NULL_POINTER;
  if (matrix->matrixType != VES_MATRIX_SHELL) return VES_ERR_INCOMPATIBLE;
  return DispatchScalar(matrix->scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    auto& shell = static_cast<MatrixShell<typename decltype(tag)::type>&>(*matrix);
    shell.SetShellData(userData);
    shell.SetShellMatVec(matVec);
    return VES_GOOD;
  });
}

VesReturnCode VesMatrixSetShellMatVecLow(VesMatrix matrix, void* userData,
                                         VesShellMatVec matVec) noexcept {
  if (matrix == nullptr) return VES_ERR_NULL_POINTER;
  if (matrix->matrixType != VES_MATRIX_SHELL) return VES_ERR_INCOMPATIBLE;
  return DispatchScalar(matrix->scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    using Low = LowType<Scalar>;
    if (std::is_same_v<Scalar, Low>) return VES_ERR_UNSUPPORTED;
    std::unique_ptr<MatrixShell<Low>> lowered;
    if (matVec != nullptr) {
      lowered = std::make_unique<MatrixShell<Low>>();
      lowered->SetShellData(userData);
      lowered->SetShellMatVec(matVec);
      lowered->isCalledEverywhere = matrix->isCalledEverywhere;
    }
    matrix->lowered = std::move(lowered);
    return VES_GOOD;
  });
}

VesReturnCode VesMatrixSetShellPair(VesMatrix A, VesMatrix B, void* userData,
                                    VesShellPair routine) noexcept {
  if (A == nullptr || B == nullptr) return VES_ERR_NULL_POINTER;
  if (A->matrixType != VES_MATRIX_SHELL || B->matrixType != VES_MATRIX_SHELL)
    return VES_ERR_INCOMPATIBLE;
  if (A->scalarType != B->scalarType) return VES_ERR_MISMATCH;
  if (A == B) return VES_ERR_INVALID_VALUE;
  std::shared_ptr<const VesMatrixBase::SharedRoutine> shared;
  if (routine != nullptr)
    shared = std::make_shared<const VesMatrixBase::SharedRoutine>(
        VesMatrixBase::SharedRoutine{A, B, userData, routine});
  A->shared = B->shared = std::move(shared);
  return VES_GOOD;
}

VesReturnCode VesMatrixSetCalledEverywhere(VesMatrix matrix, bool isOn) noexcept {
  if (matrix == nullptr) return VES_ERR_NULL_POINTER;
  if (matrix->matrixType != VES_MATRIX_SHELL) return VES_ERR_INCOMPATIBLE;
  matrix->isCalledEverywhere = isOn;
  if (matrix->lowered) matrix->lowered->isCalledEverywhere = isOn;
  return VES_GOOD;
}

void* VesMatrixGetShellUserData(VesMatrix matrix) noexcept {
  if (matrix == nullptr || matrix->matrixType != VES_MATRIX_SHELL) return nullptr;
  return DispatchScalar<void*>(matrix->scalarType, nullptr, [&](auto tag) -> void* {
    return static_cast<MatrixShell<typename decltype(tag)::type>&>(*matrix).GetShellData();
  });
}

void VesMatrixDestroy(VesMatrix matrix) noexcept {
  delete matrix;
}
