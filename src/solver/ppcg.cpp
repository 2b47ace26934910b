#include "ppcg.h"

#include "../data/finite_entries.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Ves {

template <typename Scalar>
PPCG<Scalar>::PPCG() {
  this->solverType = VES_PPCG;
}

template <typename Scalar>
VesReturnCode PPCG<Scalar>::SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                       const VesMatrixBase& matP, Block& vecQ, Block& vecW) const {
  const int givenBatch = nBatch;
  InitParameters(vecQ, vecW, matB);
  if (const VesReturnCode code = AllocateWorkspace(); code != VES_GOOD) {
    nBatch = givenBatch;
    return code;
  }
  InitWorkspace(vecQ, vecW);
  OrthogonalizeInitialGuess(matA, matB);
  Iterate(matA, matB, matP);
  check.FindCulprit(Columns(workZ, 0, nBands));
  ConfirmBlock(matA, matB);
  PostProcess(vecQ, vecW);
  FreeWorkspace();
  return VES_GOOD;
}

template <typename Scalar>
std::unique_ptr<BlockSolver<LowType<Scalar>>> PPCG<Scalar>::LowTwin() const {
  auto twin = std::make_unique<PPCG<LowType<Scalar>>>();
  twin->softLockingType = softLockingType;
  twin->nBatch = nBatch;
  twin->rrPeriod = rrPeriod;
  return twin;
}

template <typename Scalar>
void PPCG<Scalar>::Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
                           const VesMatrixBase& matP) const {
  iter = -1; // the start counts as no iteration
  Report();
  for (iter = 0; iter < iterLimit; ++iter) {
    if (nX < 1 || check.IsOver()) return;
    RayleighRitzRotation(matA, matB);
    if (info != 0) return; // X and its images are still those of the last iteration
    ComputeResiduals();
    CheckConvergence(matA, matB);
    if (info != 0) return;
    CheckLocking();
    PreconditionedResiduals(matP);
    PartitionBlocks();
    ProjectDirections(matB, matP.IsPresent());
    SoftLocking();
    FirstProducts products = SumProducts(matB, isGeneralized || matP.IsPresent());
    if (info != 0) return;
    OrthogonalizeConjugateDirections(matB, std::move(products.ofP));
    OrthogonalizeResiduals(matB, std::move(products.ofR));
    AssembleActiveResiduals(matA);
    WatchProgress(matA, matB);
    ComputeRayleighRitzMatrix();
    SubspacesDiagonalization();
    if (info != 0) return;
    UpdateEigenVectors();
    OrthogonalizeEigenVectors(matA, matB);
    Report();
  }
}

template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeInitialGuess(const VesMatrixBase& matA,
                                             const VesMatrixBase& matB) const {
  nBands = nX = nR = this->OrthonormalizeGuess(Z(), matB, 0, nBands);
  Active().RefreshA(matA);
}

/// M = X^H A X; in every rrPeriod-th iteration X is tested, and rotated to its eigenvectors.
template <typename Scalar>
void PPCG<Scalar>::RayleighRitzRotation(const VesMatrixBase& matA,
                                        const VesMatrixBase& matB) const {
  if (std::exchange(isMergeDue, false)) MergeBlocks();
  const bool isTested = check.IsOn() && IsRotationDue();
  if (!isTested || RestartIfAbove(soundError, ProjectAndTest(), matA, matB)) ProjectActive();
  if (Asymmetry() > asymmetry) {
    MergeBlocks();
    Restart(matA, matB);
    ProjectActive();
    asymmetry = std::max(asymmetry, 2 * Asymmetry());
  }
  if (IsRotationDue()) {
    RotateActive();
  } else {
    EstimateValues();
    info = LeadingFiniteOrder(workM, 'U', nX) < nX ? 1 : 0; // as the eigensolver would say
    this->Replicate(info);
  }
}

/// Nearly dependent sub-blocks stretch X and the errors of its images, which M then shows: it is no
/// longer Hermitian. What is left of that after a restart is the operator's own. \return the
/// largest difference of two entries over the largest value; infinity for others than numbers
template <typename Scalar>
double PPCG<Scalar>::Asymmetry() const {
  if (!check.IsOn()) return 0.0;
  double largest = this->largestRitz, difference = 0.0;
  for (int j = 0; j < nX; ++j)
    for (int i = 0; i <= j; ++i) {
      largest = std::max(largest, static_cast<double>(std::abs(workM(i, j))));
      difference =
          std::max(difference, static_cast<double>(std::abs(workM(i, j) - Conjugate(workM(j, i)))));
    }
  const bool isFinite = LeadingFiniteOrder(workM, 'U', nX) == nX;
  double share = difference > 0.0 ? difference / largest : 0.0;
  if (!isFinite || std::isnan(share)) share = std::numeric_limits<double>::infinity();
  this->Replicate(share);
  return share;
}

/// The diagonal of M; where values themselves are tested, its eigenvalues, which do not depend on
/// the basis that the orthogonalizer has chosen.
template <typename Scalar>
void PPCG<Scalar>::EstimateValues() const {
  if (this->ConvergeDetector->ReadsResiduals()) {
    VES_ASSERT_GOOD(workD.GetDiag(workM));
    return;
  }
  Block copy;
  this->ShapeSmall(copy, nX, nX);
  VES_ASSERT_GOOD(copy.AllocateMem());
  VES_ASSERT_GOOD(copy.CopyData(workM));
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(copy, workD, info));
}

template <typename Scalar>
void PPCG<Scalar>::ProjectActive() const {
  workM.SetDims(nX, nX, nX);
  workD.SetDims(nX, 1, nX);
  VES_ASSERT_GOOD(workM.InnerProduct(Active().X, Active().AX));
  isRotated = false;
}

/// M, and with it in one sum the orthogonality error of X.
template <typename Scalar>
double PPCG<Scalar>::ProjectAndTest() const {
  const Pairs x = Z(0, nBands);
  workM.SetDims(nX, nX, nX);
  workD.SetDims(nX, 1, nX);
  isRotated = false;
  Block both;
  this->ShapeSmall(both, nBands, nBands + nX);
  VES_ASSERT_GOOD(both.AllocateMem());
  VES_ASSERT_GOOD(both.Set2Zero());
  Block gram(both, 0, 0, nBands, nBands), projected(both, 0, nBands, nX, nX);
  VES_ASSERT_GOOD(gram.InnerProduct(x.X, x.BX, false));
  VES_ASSERT_GOOD(projected.InnerProduct(Active().X, Active().AX, false));
  VES_ASSERT_GOOD(both.AllReduce(MPI_SUM, both.comm));
  VES_ASSERT_GOOD(workM.CopyData(projected));
  return gram.OrthogonalityError(true);
}

template <typename Scalar>
void PPCG<Scalar>::RotateActive() const {
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(workM, workD, info));
  if (info != 0) return;
  isRotated = true;
  Active().Rotate(workM, workX);
}

/// R = AX - BX diag(D) after a rotation, R = AX - BX M otherwise.
template <typename Scalar>
void PPCG<Scalar>::ComputeResiduals() const {
  const Pairs active = Active();
  workR.SetDims(nPW, nX, ldQ);
  if (isRotated) {
    VES_ASSERT_GOOD(workR.ScaleAdd(active.AX, active.BX, workD, -1));
  } else {
    VES_ASSERT_GOOD(workR.CopyData(active.AX));
    VES_ASSERT_GOOD(workR.Gemm(active.BX, workM, 'N', 'N', MathConstants<int>::NEG_ONE,
                               MathConstants<int>::ONE));
  }
  nR = nX;
}

/// Only Ritz pairs of an orthonormal block end the run, on images that bear them out: where all
/// columns pass, a block that lost its orthonormality is restarted, one that was not rotated is,
/// and they are tested again.
template <typename Scalar>
void PPCG<Scalar>::CheckConvergence(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  RunConvergeDetector();
  if (nConvActive == nX) {
    if (RestartUnlessSound(matA, matB, StrictError()) || RefreshImages(matA, matB)) ProjectActive();
    if (!isRotated) {
      RotateActive();
      if (info != 0) return;
      ComputeResiduals();
      RunConvergeDetector();
    }
  }
  nConv = nDeflated + nConvActive;
  if (nConvActive < nX) return;
  Block vecD = Estimates();
  VES_ASSERT_GOOD(vecD.CopyData(workD));
  if (ReplaceStrays(matA, matB)) {
    ComputeResiduals();
    RunConvergeDetector();
    nConv = nDeflated + nConvActive;
  } else {
    nX = nP = nR = 0;
  }
}

template <typename Scalar>
void PPCG<Scalar>::RunConvergeDetector() const {
  int dummy = 0;
  const Block vecD = Estimates();
  if (isIdle && this->ConvergeDetector->PassesOnValues())
    check.ForgetValues(workR, Active().BX, vecD);
  idxsConv.SetDims(nX, 1, nX);
  VES_ASSERT_GOOD(
      this->ConvergeDetector->Run(workR, workD, vecD, threshold, idxsConv, dummy, nConvActive));
  this->KeepResiduals(nBands - nX);
}

/// Locks for good only in the iterations of a full Rayleigh-Ritz step, when the leading columns are
/// the lowest Ritz pairs.
template <typename Scalar>
void PPCG<Scalar>::CheckLocking() const {
  if (nX == 0) return;
  int dummy = 0;
  Block vecD = Estimates();
  idxsLock.SetDims(nX, 1, nX);
  this->LockDetector->knownNorms = this->ConvergeDetector->residualNorms;
  VES_ASSERT_GOOD(
      this->LockDetector->Run(workR, workD, vecD, threshold * mu, idxsLock, dummy, nLocked));
  // With another detector the test for locking may be the looser one.
  nLocked = std::min(nLocked, nConvActive);
  for (int j = 0; j < nX; ++j)
    if (std::abs(idxsConv(j)) < 1) idxsLock(j) = MathConstants<Scalar>::ZERO;
  const bool locks = isRotated && IsRotationDue();
  flagShift = locks ? nLocked : 0;
  if (locks) {
    nX -= nLocked;
    nR = nX;
    nDeflated += nLocked;
  }
  VES_ASSERT_GOOD(vecD.CopyData(workD));
}

template <typename Scalar>
void PPCG<Scalar>::PreconditionedResiduals(const VesMatrixBase& matP) const {
  if (nR == 0) return;
  Block vecR = Columns(workZ, 2 * nBands, nR);
  const Block vecTmpR = Columns(workR, workR.nCols - nR, nR);
  if (matP.IsPresent())
    VES_ASSERT_GOOD(matP.Apply(vecTmpR, vecR));
  else
    VES_ASSERT_GOOD(vecR.CopyData(vecTmpR));
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
