#include "../data/matrix_base.h"
#include "../solver/short_lanczos.h"
#include "operand_checks.h"

#include <new>

using namespace Ves;

VesReturnCode VesMatrixEstimateSpectrum(VesMatrix A, VesVector like, double* norm,
                                        double* lowest) noexcept {
  if (A == nullptr || like == nullptr || norm == nullptr) return VES_ERR_NULL_POINTER;
  return DispatchScalar(A->scalarType, VES_ERR_MISMATCH, [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    VesReturnCode verdict = VES_GOOD;
    if (!IsDense<Scalar>(*like) || !HasRowsOf(*A, *like))
      verdict = VES_ERR_MISMATCH;
    else if (LacksRoutine(*A))
      verdict = VES_ERR_NULL_POINTER;
    verdict = AgreeOn(verdict, {PartOf(*A)}, like->comm);
    if (verdict != VES_GOOD) return verdict;
    ShortLanczos<Scalar> lanczos;
    WorkspacePlan<Scalar> plan(like->nRows, like->nRows);
    lanczos.AddTo(plan, false);
    try {
      plan.Shape(like->comm, like->auxComm);
      plan.Allocate();
    } catch (const std::bad_alloc&) {
      verdict = VES_ERR_INVALID_VALUE;
    }
    verdict = AgreeOn(verdict, {}, like->comm);
    if (verdict != VES_GOOD) return verdict;
    const Spectrum found = lanczos.Run(*A, VesMatrixEmpty());
    *norm = found.norm;
    if (lowest != nullptr) *lowest = found.lowest;
    return VES_GOOD;
  });
}
