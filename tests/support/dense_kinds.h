// The dense eigensolvers that are built in beside plain LAPACK.
#ifndef VES_TESTS_SUPPORT_DENSE_KINDS_H
#define VES_TESTS_SUPPORT_DENSE_KINDS_H

#include "eigensolver/scalapack_diag.h"
#include "interface/solver_base.h"
#ifdef VES_HAS_ELPA
#include "eigensolver/elpa_diag.h"
#endif

#include <vector>

namespace VesTest {

#ifdef VES_HAS_ELPA
inline const std::vector<VesDenseEigenSolverType> otherKinds = {
    VES_SCALAPACK_DIAG, VES_LAPACK_LOWEST_DIAG, VES_ELPA_DIAG, VES_ELPA_TWO_STAGE_DIAG};
inline const std::vector<double> kindsNotBuilt = {};
#else
inline const std::vector<VesDenseEigenSolverType> otherKinds = {VES_SCALAPACK_DIAG,
                                                                VES_LAPACK_LOWEST_DIAG};
inline const std::vector<double> kindsNotBuilt = {VES_ELPA_DIAG, VES_ELPA_TWO_STAGE_DIAG};
#endif

/// Problems of this order and above are dealt out, where the eigensolver does that.
template <typename Scalar>
void DistributeFrom(Ves::VesDenseEigenSolver& solver, int order) {
  if (auto* grid = dynamic_cast<Ves::ScaLapackDiag<Scalar>*>(&solver)) grid->threshold = order;
#ifdef VES_HAS_ELPA
  if (auto* elpa = dynamic_cast<Ves::ElpaDiag<Scalar>*>(&solver)) elpa->threshold = order;
#endif
}

} // namespace VesTest

#endif
