#include "../data/matrix_shell.h"
#include "../data/sparse_rows.h"
#include "operand_checks.h"
#include "scalar_dispatch.h"

#include <functional>
#include <utility>

using namespace Ves;

namespace {

/// The routine of an operator that multiplies by its own entries.
template <typename Scalar, typename Number>
void MultiplyByEntries(void* entries, void* x, void* y, int, int nCols, int ld) {
  static_cast<const SparseRows<Scalar>*>(entries)->Multiply(static_cast<const Number*>(x),
                                                            static_cast<Number*>(y), nCols, ld);
}

template <typename Scalar, typename Number>
void UseEntries(MatrixShell<Number>& shell, SparseRows<Scalar>& entries) {
  shell.SetShellData(&entries);
  shell.SetShellMatVec(MultiplyByEntries<Scalar, Number>);
}

/// The matrix multiplies by these entries from now on, in single precision, too.
template <typename Scalar>
void Install(std::unique_ptr<SparseRows<Scalar>> entries, MatrixShell<Scalar>& matrix) {
  using Low = LowType<Scalar>;
  std::unique_ptr<MatrixShell<Low>> lowered;
  if constexpr (!std::is_same_v<Scalar, Low>) {
    lowered = std::make_unique<MatrixShell<Low>>();
    lowered->isCalledEverywhere = matrix.isCalledEverywhere;
    UseEntries(*lowered, *entries);
  }
  UseEntries(matrix, *entries);
  matrix.lowered = std::move(lowered);
  matrix.entries = std::move(entries);
}

/// x and y share storage on this process.
template <typename Scalar>
bool Overlap(const VectorDense<Scalar>& x, const VectorDense<Scalar>& y) {
  if (x.IsDataEmpty() || y.IsDataEmpty() || x.nRows == 0 || x.nCols == 0) return false;
  const std::less<const Scalar*> isBefore;
  const auto end = [](const auto& block) { return block.Column(block.nCols - 1) + block.nRows; };
  return isBefore(x.Column(0), end(y)) && isBefore(y.Column(0), end(x));
}

} // namespace

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
    using Scalar = typename decltype(tag)::type;
    auto& shell = static_cast<MatrixShell<Scalar>&>(*matrix);
    const auto* const low = static_cast<MatrixShell<LowType<Scalar>>*>(matrix->lowered.get());
    const bool isOfEntries = low != nullptr && low->GetShellData() == shell.GetShellData();
    if (matrix->entries && isOfEntries) matrix->lowered.reset();
    matrix->entries.reset();
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

VesReturnCode VesMatrixSetRows(VesMatrix matrix, MPI_Comm comm, int nRows, const long long* starts,
                               const long long* columns, const void* values) noexcept {
  if (matrix == nullptr) return VES_ERR_NULL_POINTER;
  if (matrix->matrixType != VES_MATRIX_SHELL) return VES_ERR_INCOMPATIBLE;
  if (comm == MPI_COMM_NULL) return VES_ERR_INVALID_VALUE;
  return DispatchScalar(matrix->scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    const GivenRows<Scalar> given{nRows, starts, columns, static_cast<const Scalar*>(values)};
    VesReturnCode code = VES_GOOD;
    auto entries = SparseRows<Scalar>::Create(comm, given, code);
    if (code == VES_GOOD) Install(std::move(entries), static_cast<MatrixShell<Scalar>&>(*matrix));
    return code;
  });
}

VesReturnCode VesMatrixSetRows_f(VesMatrix matrix, MPI_Fint comm, int nRows,
                                 const long long* starts, const long long* columns,
                                 const void* values) noexcept {
  return VesMatrixSetRows(matrix, MPI_Comm_f2c(comm), nRows, starts, columns, values);
}

VesReturnCode VesMatrixMultiply(VesMatrix matrix, VesVector X, VesVector Y) noexcept {
  if (matrix == nullptr || X == nullptr || Y == nullptr) return VES_ERR_NULL_POINTER;
  const bool isLow = matrix->lowered && matrix->lowered->scalarType == X->scalarType;
  const VesMatrixBase& op = isLow ? *matrix->lowered : *matrix;
  if (X->scalarType != op.scalarType || Y->scalarType != op.scalarType) return VES_ERR_MISMATCH;
  if (LacksRoutine(op)) return VES_ERR_NULL_POINTER;
  if (!HasRowsOf(*matrix, *X)) return VES_ERR_MISMATCH;
  if (X->nRows > 0 && LeadingDimension(*X) < X->nRows) return VES_ERR_INVALID_VALUE;
  const bool doOverlap = DispatchScalar(op.scalarType, false, [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    return X->nRows == Y->nRows && X->nCols == Y->nCols &&
           Overlap(AsDense<Scalar>(*X), AsDense<Scalar>(*Y));
  });
  return doOverlap ? VES_ERR_INVALID_VALUE : op.Apply(*X, *Y);
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
  if (matrix == nullptr || matrix->matrixType != VES_MATRIX_SHELL || matrix->entries)
    return nullptr;
  return DispatchScalar<void*>(matrix->scalarType, nullptr, [&](auto tag) -> void* {
    return static_cast<MatrixShell<typename decltype(tag)::type>&>(*matrix).GetShellData();
  });
}

void VesMatrixDestroy(VesMatrix matrix) noexcept {
  delete matrix;
}
