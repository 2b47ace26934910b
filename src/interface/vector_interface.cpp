#include "../data/matrix_base.h"
#include "../data/vector_dense.h"
#include "operand_checks.h"
#include "scalar_dispatch.h"

#include <cstdint>
#include <limits>
#include <new>
#include <utility>

using namespace Ves;

namespace {

bool LacksStorage(const VesVectorBase& vec) {
  return vec.IsDataEmpty() && vec.nRows > 0 && vec.nCols > 0;
}

VesReturnCode CheckNorm(const VesVectorBase& x, const VesVectorBase& norms) {
  if (x.nCols != norms.nRows || norms.nCols != 1) return VES_ERR_INCOMPATIBLE;
  if (x.scalarType != norms.scalarType) return VES_ERR_UNSUPPORTED;
  if (LacksStorage(x) || LacksStorage(norms)) return VES_ERR_NULL_POINTER;
  if (LeadingDimension(norms) < norms.nRows) return VES_ERR_INVALID_VALUE;
  return HaveSameProcesses(x.comm, norms.comm) ? VES_GOOD : VES_ERR_MISMATCH;
}

/// The shapes first, then what the composite operation would meet as a failed assertion.
VesReturnCode CheckResidual(const VesMatrixBase& A, const VesMatrixBase& B, const VesVectorBase& X,
                            const VesVectorBase& D, const VesVectorBase& R) {
  if (!R.CompareDims(X) || D.nRows != X.nCols || D.nCols != 1) return VES_ERR_INCOMPATIBLE;
  if (A.scalarType != X.scalarType || D.scalarType != X.scalarType) return VES_ERR_MISMATCH;
  if (B.IsPresent() && B.scalarType != X.scalarType) return VES_ERR_MISMATCH;
  if (LacksStorage(X) || LacksStorage(D) || LacksStorage(R)) return VES_ERR_NULL_POINTER;
  if (LacksRoutine(A) || LacksRoutine(B)) return VES_ERR_NULL_POINTER;
  if (!HasRowsOf(A, X) || !HasRowsOf(B, X)) return VES_ERR_MISMATCH;
  for (const VesVectorBase* vec : {&X, &D, &R})
    if (LeadingDimension(*vec) < vec->nRows) return VES_ERR_INVALID_VALUE;
  const std::int64_t entries = static_cast<std::int64_t>(LeadingDimension(X)) * X.nCols;
  return entries > std::numeric_limits<int>::max() ? VES_ERR_INVALID_VALUE : VES_GOOD;
}

} // namespace

VesReturnCode VesVectorCreate(VesVector* out, VesScalarType scalarType,
                              VesVectorType vectorType) noexcept {
  if (out == nullptr) return VES_ERR_NULL_POINTER;
  const auto create = [&](auto tag) {
    if (vectorType != VES_VECTOR_DENSE) return VES_ERR_UNSUPPORTED;
    *out = new VectorDense<typename decltype(tag)::type>();
    return VES_GOOD;
  };
  const VesReturnCode code = DispatchScalar(scalarType, VES_ERR_MISMATCH, create);
  if (code == VES_ERR_MISMATCH) *out = nullptr;
  return code;
}

VesReturnCode VesVectorSetComm(VesVector vector, int slot, MPI_Comm comm) noexcept {
  if (vector == nullptr) return VES_ERR_NULL_POINTER;
  if (comm == MPI_COMM_NULL) return VES_ERR_INVALID_VALUE;
  if (slot != 0 && slot != 1) return VES_ERR_UNSUPPORTED;
  (slot == 0 ? vector->comm : vector->auxComm) = comm;
  return VES_GOOD;
}

VesReturnCode VesVectorSetDim(VesVector vector, int nRows, int nCols) noexcept {
  if (vector == nullptr) return VES_ERR_NULL_POINTER;
  if (nRows < 0 || nCols < 0) return VES_ERR_INVALID_VALUE;
  vector->nRows = nRows;
  vector->nCols = nCols;
  return VES_GOOD;
}

VesReturnCode VesVectorDenseSetValues(VesVector vector, void* values, int ld) noexcept {
  if (vector == nullptr || values == nullptr) return VES_ERR_NULL_POINTER;
  if (ld < 1) return VES_ERR_INVALID_VALUE;
  if (vector->storageType != VES_VECTOR_DENSE) return VES_ERR_INCOMPATIBLE;
  return DispatchScalar(vector->scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    auto& dense = static_cast<VectorDense<Scalar>&>(*vector);
    if (dense.GetValues() != values) dense.FreeMem(); // a replicated block may own its storage
    dense.SetValues(static_cast<Scalar*>(values));
    dense.SetLd(ld);
    return VES_GOOD;
  });
}

void* VesVectorDenseGetValues(VesVector vector) noexcept {
  if (vector == nullptr || vector->storageType != VES_VECTOR_DENSE) return nullptr;
  return DispatchScalar<void*>(vector->scalarType, nullptr, [&](auto tag) -> void* {
    return static_cast<VectorDense<typename decltype(tag)::type>&>(*vector).GetValues();
  });
}

VesReturnCode VesVectorReplicate(VesVector src, VesVector* out, bool allocate, bool copy) noexcept {
  if (src == nullptr || out == nullptr) return VES_ERR_NULL_POINTER;
  VesReturnCode code = VesVectorCreate(out, src->scalarType, src->storageType);
  if (code != VES_GOOD) return code;
  code = (*out)->DuplicateShape(*src);
  if (code != VES_GOOD || !allocate) return code;
  if (copy && LacksStorage(*src)) return VES_ERR_NULL_POINTER;
  if (LeadingDimension(*src) < src->nRows) // a shape that never got storage
    DispatchScalar(src->scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
      AsDense<typename decltype(tag)::type>(**out).SetLd(src->nRows);
      return VES_GOOD;
    });
  try {
    code = (*out)->AllocateMem();
  } catch (const std::bad_alloc&) {
    return VES_ERR_INVALID_VALUE;
  }
  if (code != VES_GOOD || !copy) return code;
  return (*out)->CopyData(*src);
}

VesReturnCode VesVectorNorm(VesVector x, VesVector norms) noexcept {
  if (x == nullptr || norms == nullptr) return VES_ERR_NULL_POINTER;
  const VesReturnCode verdict =
      AgreeOn(CheckNorm(*x, *norms), {x->nCols, LeadingDimension(*norms)}, x->comm);
  if (verdict != VES_GOOD || x->nCols == 0) return verdict; // no columns need no storage
  const MPI_Comm given = std::exchange(norms->comm, x->comm);
  const VesReturnCode code = norms->Norm(*x, true);
  norms->comm = given;
  return code;
}

VesReturnCode VesEigResidual(VesMatrix A, VesMatrix B, VesVector X, VesVector D,
                             VesVector R) noexcept {
  if (A == nullptr || X == nullptr || D == nullptr || R == nullptr) return VES_ERR_INVALID_VALUE;
  const VesMatrixBase& matB = OrAbsent(B);
  const VesReturnCode verdict = CheckResidual(*A, matB, *X, *D, *R);
  if (verdict != VES_GOOD) return verdict;
  try {
    return R->EigResidual(*A, matB, *X, *D);
  } catch (const std::bad_alloc&) {
    return VES_ERR_INVALID_VALUE;
  }
}

VesReturnCode VesVectorSetComm_f(VesVector vector, int slot, MPI_Fint comm) noexcept {
  return VesVectorSetComm(vector, slot, MPI_Comm_f2c(comm));
}

void VesVectorDestroy(VesVector vector) noexcept {
  delete vector;
}
