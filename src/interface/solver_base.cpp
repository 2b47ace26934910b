#include "solver_base.h"

#include "../data/assertion.h"
#include "../detector/eigenvalues.h"
#include "../detector/relative_residuals.h"
#include "../detector/residuals.h"
#include "../detector/residuals_or_eigenvalues.h"
#include "../eigensolver/elpa_diag.h"
#include "../eigensolver/lapack_lowest_diag.h"
#include "../eigensolver/scalapack_diag.h"
#include "../orthogonalizer/cholesky_qr.h"
#include "../orthogonalizer/svd_qr.h"
#include "../projector/gram_schmidt.h"
#include "scalar_dispatch.h"

namespace {

using namespace Ves;

/// Puts a new component in the place of the old one and stores its kind; a kind that made nothing
/// is unknown and changes nothing.
template <typename Component, typename Type>
VesReturnCode Install(std::unique_ptr<Component>& slot, std::unique_ptr<Component> made,
                      Type& storedType, Type type) {
  if (!made) return VES_ERR_UNSUPPORTED;
  slot = std::move(made);
  storedType = type;
  return VES_GOOD;
}

template <typename Scalar>
std::unique_ptr<VesDenseEigenSolver> MakeDenseEigenSolver(VesDenseEigenSolverType type) {
  switch (type) {
  case VES_LAPACK_DIAG:
    return std::make_unique<LapackDiag<Scalar>>();
  case VES_SCALAPACK_DIAG:
    return std::make_unique<ScaLapackDiag<Scalar>>();
  case VES_LAPACK_LOWEST_DIAG:
    return std::make_unique<LapackLowestDiag<Scalar>>();
  case VES_ELPA_DIAG:
  case VES_ELPA_TWO_STAGE_DIAG:
#ifdef VES_HAS_ELPA
    return std::make_unique<ElpaDiag<Scalar>>(type);
#else
    break;
#endif
  }
  return nullptr;
}

template <typename Scalar>
std::unique_ptr<VesConvergeDetector> MakeDetector(VesConvergeDetectorType type) {
  switch (type) {
  case VES_RESIDUALS:
    return std::make_unique<Residuals<Scalar>>();
  case VES_RELATIVE_RESIDUALS:
    return std::make_unique<RelativeResiduals<Scalar>>();
  case VES_EIGENVALUES:
    return std::make_unique<Eigenvalues<Scalar>>();
  case VES_RESIDUALS_OR_EIGENVALUES:
    return std::make_unique<ResidualsOrEigenvalues<Scalar>>();
  }
  return nullptr;
}

template <typename Scalar>
std::unique_ptr<VesOrthogonalizer> MakeOrthogonalizer(VesOrthogonalizerType type) {
  switch (type) {
  case VES_CHOLESKY_QR:
    return std::make_unique<CholeskyQR<Scalar>>();
  case VES_SVD_QR:
    return std::make_unique<SvdQR<Scalar>>();
  }
  return nullptr;
}

template <typename Scalar>
std::unique_ptr<VesOrthoProjector> MakeOrthoProjector(VesOrthoProjectorType type) {
  if (type == VES_GRAM_SCHMIDT) return std::make_unique<GramSchmidt<Scalar>>();
  return nullptr;
}

} // namespace

VesSolverBase::~VesSolverBase() {
  DenseEigenSolver.reset();
  ConvergeDetector.reset();
  LockDetector.reset();
  Orthogonalizer.reset();
  OrthoProjector.reset();
  RankRevealer.reset();
}

void VesSolverBase::InstallComponents() const {
  VES_ASSERT_GOOD(this->SetDenseEigenSolver(this->denseEigenSolverType));
  VES_ASSERT_GOOD(this->SetConvergeDetector(this->convergeDetectorType));
  VES_ASSERT_GOOD(this->SetOrthogonalizer(this->orthogonalizerType));
  VES_ASSERT_GOOD(this->SetOrthoProjector(this->orthoProjectorType));
}

void VesSolverBase::TakeSettings(const VesSolverBase& other) {
  problemType = other.problemType;
  threshold = other.threshold;
  maxIter = other.maxIter;
  maxOrthoIter = other.maxOrthoIter;
  maxOrthoInnerIter = other.maxOrthoInnerIter;
  mu = other.mu;
  selfCheck = other.selfCheck;
  wantedPairs = other.wantedPairs;
  innerSteps = other.innerSteps;
  threads = other.threads;
  denseEigenSolverType = other.denseEigenSolverType;
  convergeDetectorType = other.convergeDetectorType;
  orthogonalizerType = other.orthogonalizerType;
  orthoProjectorType = other.orthoProjectorType;
  chosenLockDetector = other.chosenLockDetector;
  chosenRankRevealer = other.chosenRankRevealer;
  InstallComponents();
}

template <typename Scalar>
VesReturnCode VesSolverBase::CreateDenseEigenSolver(VesDenseEigenSolverType type) const {
  return Install(DenseEigenSolver, MakeDenseEigenSolver<Scalar>(type), denseEigenSolverType, type);
}

template <typename Scalar>
VesReturnCode VesSolverBase::CreateConvergeDetector(VesConvergeDetectorType type) const {
  const VesReturnCode code =
      Install(ConvergeDetector, MakeDetector<Scalar>(type), convergeDetectorType, type);
  needResidualNorms = needResidualNorms || (code == VES_GOOD && ConvergeDetector->ReadsResiduals());
  return code;
}

template <typename Scalar>
VesReturnCode VesSolverBase::CreateLockDetector(VesConvergeDetectorType type) const {
  const VesReturnCode code =
      Install(LockDetector, MakeDetector<Scalar>(type), lockDetectorType, type);
  needResidualNorms = needResidualNorms || (code == VES_GOOD && LockDetector->ReadsResiduals());
  return code;
}

VesReturnCode VesSolverBase::SetDenseEigenSolver(VesDenseEigenSolverType type) const {
  return DispatchScalar(scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    return CreateDenseEigenSolver<typename decltype(tag)::type>(type);
  });
}

VesReturnCode VesSolverBase::SetConvergeDetector(VesConvergeDetectorType type) const {
  return DispatchScalar(scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    return CreateConvergeDetector<typename decltype(tag)::type>(type);
  });
}

VesReturnCode VesSolverBase::SetLockDetector(VesConvergeDetectorType type) const {
  return DispatchScalar(scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    return CreateLockDetector<typename decltype(tag)::type>(type);
  });
}

VesReturnCode VesSolverBase::SetOrthogonalizer(VesOrthogonalizerType type) const {
  return DispatchScalar(scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    return Install(Orthogonalizer, MakeOrthogonalizer<typename decltype(tag)::type>(type),
                   orthogonalizerType, type);
  });
}

VesReturnCode VesSolverBase::SetOrthoProjector(VesOrthoProjectorType type) const {
  return DispatchScalar(scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    return Install(OrthoProjector, MakeOrthoProjector<typename decltype(tag)::type>(type),
                   orthoProjectorType, type);
  });
}

VesReturnCode VesSolverBase::SetRankRevealer(VesOrthogonalizerType type) const {
  return DispatchScalar(scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    return Install(RankRevealer, MakeOrthogonalizer<typename decltype(tag)::type>(type),
                   rankRevealerType, type);
  });
}
