#include "../data/matrix_base.h"
#include "../data/vector_dense.h"
#include "operand_checks.h"
#include "scalar_dispatch.h"

#include <cstdint>
#include <limits>
#include <new>

using namespace Ves;

namespace {

bool LacksStorage(const VesVectorBase& vec) {
  return vec.IsDataEmpty() && vec.nRows > 0 && vec.nCols > 0;
}

int LeadingDimension(const VesVectorBase& vec) {
  return DispatchScalar(vec.scalarType, 1,
                        [&](auto tag) { return AsDense<typename decltype(tag)::type>(vec).ld; });
}

/// The worst verdict of the processes of comm, so that none waits for one that refused.
VesReturnCode AgreeOn(VesReturnCode verdict, MPI_Comm comm) {
  int worst = verdict;
  MPI_Allreduce(MPI_IN_PLACE, &worst, 1, MPI_INT, MPI_MIN, comm);
  return static_cast<VesReturnCode>(worst);
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
  VesReturnCode verdict = VES_GOOD;
  if (LacksStorage(*x) || LacksStorage(*norms))
    verdict = VES_ERR_NULL_POINTER;
  else if (x->nCols != norms->nRows || norms->nCols != 1)
    verdict = VES_ERR_INCOMPATIBLE;
  else if (x->scalarType != norms->scalarType)
    verdict = VES_ERR_UNSUPPORTED;
  else if (LeadingDimension(*norms) < norms->nRows)
    verdict = VES_ERR_INVALID_VALUE;
  verdict = AgreeOn(verdict, norms->comm);
  return verdict == VES_GOOD ? norms->Norm(*x, true) : verdict;
}

VesReturnCode VesEigResidual(VesMatrix A, VesMatrix B, VesVector X, VesVector D,
                             VesVector R) noexcept {
  if (A == nullptr || X == nullptr || D == nullptr || R == nullptr) return VES_ERR_INVALID_VALUE;
  const VesMatrixEmpty empty;
  const VesMatrixBase& matB = B != nullptr ? *B : static_cast<const VesMatrixBase&>(empty);
  // What the composite operation would otherwise meet as a failed assertion.
  for (const VesScalarType scalarType : {A->scalarType, D->scalarType, R->scalarType,
                                         matB.IsPresent() ? matB.scalarType : X->scalarType})
    if (scalarType != X->scalarType) return VES_ERR_MISMATCH;
  if (LacksStorage(*X) || LacksStorage(*D) || LacksStorage(*R)) return VES_ERR_NULL_POINTER;
  if (LacksRoutine(*A) || LacksRoutine(matB)) return VES_ERR_NULL_POINTER;
  for (const VesVectorBase* vec : {X, D, R})
    if (LeadingDimension(*vec) < vec->nRows) return VES_ERR_INVALID_VALUE;
  if (static_cast<std::int64_t>(LeadingDimension(*X)) * X->nCols > std::numeric_limits<int>::max())
    return VES_ERR_INVALID_VALUE;
  return R->EigResidual(*A, matB, *X, *D);
}

VesReturnCode VesVectorSetComm_f(VesVector vector, int slot, MPI_Fint comm) noexcept {
  return VesVectorSetComm(vector, slot, MPI_Comm_f2c(comm));
}

void VesVectorDestroy(VesVector vector) noexcept {
  delete vector;
}
