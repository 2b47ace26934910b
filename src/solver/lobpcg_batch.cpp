#include "lobpcg_batch.h"

#include <algorithm>

namespace Ves {

template <typename Scalar>
LOBPCG_BATCH<Scalar>::LOBPCG_BATCH() {
  this->solverType = VES_LOBPCG_BATCH;
}

template <typename Scalar>
VesReturnCode LOBPCG_BATCH<Scalar>::SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                               const VesMatrixBase& matP, Block& vecQ,
                                               Block& vecW) const {
  InitParameters(vecQ, vecW, matB);
  if (const auto code = this->AllocateWorkspace(); code != VES_GOOD) return code;
  VES_ASSERT_GOOD(workW.Set2Val(MathConstants<Scalar>::INFTY));
  Iterate(matA, matB, matP, vecQ);
  this->ConfirmResult(matA, matB);
  FillOutput(vecQ, vecW);
  this->FreeWorkspace();
  return VES_GOOD;
}

template <typename Scalar>
std::unique_ptr<BlockSolver<LowType<Scalar>>> LOBPCG_BATCH<Scalar>::LowTwin() const {
  auto twin = std::make_unique<LOBPCG_BATCH<LowType<Scalar>>>();
  twin->batchLimit = batchLimit;
  twin->batchStart = batchStart;
  return twin;
}

/// Up to iterLimit + 2 passes.
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                   const VesMatrixBase& matP, const Block& vecQ) const {
  for (iter = -1; iter <= iterLimit; ++iter) {
    const bool isDone = nConv >= nBands || (nP == 0 && nR == 0 && nXnxt == 0);
    if (isDone && (check.IsStopped() || iter == iterLimit || !DropStrays())) return;
    isLastPass = isLastPass || iter == iterLimit;
    ExtendBasis(matA, matB, matP, vecQ);
    if (info != 0) return; // the pairs of the last pass are the last there are
    this->WatchProgress(matA, matB);
    this->ComputeRayleighRitzMatrix();
    this->DiagonalizeRayleighRitzMatrix();
    if (info != 0) return;
    if (isLastPass) {
      FinishRun();
      continue;
    }
    this->RotateEigVecs();
    const bool isRestarted = this->RestartUnlessSound(matA, matB);
    if (info != 0) return;
    this->ComputeResidual();
    if (isRestarted) this->JudgeRestart();
    this->CheckConvergence(matA, matB);
    this->ComputeConjugateDirection();
    this->UpdateEigVecs();
    CheckLocking();
    this->UpdateEigVals();
    this->Report();
    RefillBatch();
  }
}

/// Their places stay taken: random columns fill them.
template <typename Scalar>
bool LOBPCG_BATCH<Scalar>::DropStrays() const {
  const int nLost = nAdded - nDeflated - nX;
  const int count = Base::DropStrays(std::max(0, nXseekMax - nLost));
  VES_ASSERT_GOOD(Estimates(count).Set2Val(MathConstants<Scalar>::INFTY));
  return count > 0;
}

/// Adds R, the new columns of the guess and random columns in the place of lost ones to [X P].
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::ExtendBasis(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                       const VesMatrixBase& matP, const Block& vecQ) const {
  this->AddResiduals(matP);
  this->OrthogonalizeResidual(matB, matP);
  if (info != 0) return;
  AddNewVectors(vecQ);
  OrthogonalizeNewVectors(matB);
  AddRandomVectors();
  OrthogonalizeRandomVectors(matB);
  this->ApplyMatrixA(matA);
}

template <typename Scalar>
void LOBPCG_BATCH<Scalar>::AddNewVectors(const Block& vecQ) const {
  nXseek = nAdded + nXnxt - nDeflated;
  Block vecXnxt = Columns(workZ, FirstNew(), nXnxt);
  VES_ASSERT_GOOD(vecXnxt.CopyData(Columns(vecQ, nAdded, nXnxt)));
  nAdded += nXnxt;
}

template <typename Scalar>
void LOBPCG_BATCH<Scalar>::OrthogonalizeNewVectors(const VesMatrixBase& matB) const {
  nXnxt = this->RoomBehind(FirstNew(), nXnxt);
  Z(FirstNew(), nXnxt).RefreshB(matB);
  this->OrthogonalizeBehind(FirstNew(), nXnxt, matB);
}

template <typename Scalar>
void LOBPCG_BATCH<Scalar>::AddRandomVectors() const {
  const int first = FirstNew() + nXnxt;
  nRand = this->RoomBehind(first, nXseek - nX - nXnxt);
  const int seed = this->processRank + (iter + 2) * nRand + this->processRank / 2;
  Block vecRand = Columns(workZ, first, nRand);
  VES_ASSERT_GOOD(vecRand.Set2Random(seed));
}

/// From here on the random columns are new columns like the others. All of them are confirmed: a
/// dependent column may pass the rank test by a rounding error and is then anything but
/// orthonormal, and so may those that were made orthogonal to it.
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::OrthogonalizeRandomVectors(const VesMatrixBase& matB) const {
  const int first = FirstNew() + nXnxt;
  Z(first, nRand).RefreshB(matB);
  this->OrthogonalizeBehind(first, nRand, matB);
  nXnxt += nRand;
  const int places = this->RoomBehind(FirstNew(), nXseek - nX);
  if (places > 0 && (nXnxt < places || !(this->OrthoError(Z(), FirstNew(), nXnxt) <=
                                         Base::Limit::soundColumns * this->orthoTol)))
    nXnxt = this->OrthonormalizeGuess(Z(), matB, FirstNew(), places);
}

/// A batch in which nothing is left to iterate is locked whole.
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::CheckLocking() const {
  Base::CheckLocking();
  if (nR == 0) nLocked = nXseek;
}

/// Tops the batch up once less than half of it is left, or what is left comes no further, as a part
/// of a group of close values does; where it is full, it doubles then as far as there is room.
/// Places of columns that were lost to dependence stay taken: random columns fill them. Before the
/// last pass all that remains of the guess comes in.
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::RefillBatch() const {
  if (check.IsStagnated() && nAdded < nBands) RetireBatch();
  const int taken = nAdded - nDeflated;
  if (check.IsSlow() && taken == nXseekMax) nXseekMax = std::min(2 * nXseekMax, this->nActiveMax);
  const bool isRefilled = taken < nXseekMax / 2 || taken == 0 || check.IsSlow();
  nXnxt = isRefilled ? std::min(nBands - nAdded, nXseekMax - taken) : 0;
  if (iter != iterLimit - 1 && !check.IsOver()) return;
  isLastPass = true;
  nP = nR = 0;
  nXnxt = nBands - nAdded;
}

/// A batch that comes no further makes room for the pairs that were not tried yet.
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::RetireBatch() const {
  this->nClaimable = std::min(this->nClaimable, nConv);
  nDeflated += nX;
  nX = nP = nR = 0;
  check.GoOn();
  check.ForgetRestarts();
  this->isUncertain = true;
}

/// The last pass leaves X and its values, without directions. It mixed new columns into pairs that
/// had passed the test. X may be wider than the batch: it is rotated in place, as no direction
/// needs the old one.
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::FinishRun() const {
  if (check.IsOn()) this->nClaimable = std::min(this->nClaimable, nDeflated);
  nP = nR = nLeadingConv = nLocked = nXnxt = 0;
  this->freshFrom = nBands;
  const Block vecCX(this->workM, 0, 0, this->nV, nXseek);
  this->V().Rotate(vecCX, Z(nDeflated, nXseek), this->workP);
  this->UpdateEigVals();
  this->isUncertain = true;
}

template <typename Scalar>
void LOBPCG_BATCH<Scalar>::InitParameters(const Block& vecQ, const Block&,
                                          const VesMatrixBase& matB) const {
  this->ReadProblem(vecQ, matB);
  this->ResetCounters();
  nXseekMax = MostActive(nBands);
  if (batchStart > 0) nXseekMax = std::min(nXseekMax, batchStart);
  nXnxt = this->nV = nXseekMax; // the first pass loads a full batch
  nRand = nAdded = 0;
  isLastPass = false;
  this->InstallRunComponents(this->convergeDetectorType, this->orthogonalizerType);
}

/// Behind the pairs known there are zero vectors where the space holds no more; a run that broke
/// off leaves the caller's guess there.
template <typename Scalar>
void LOBPCG_BATCH<Scalar>::FillOutput(Block& vecQ, Block& vecW) const {
  const int nKnown = nDeflated + nX;
  Block vecRest = Columns(workZ, nKnown, nBands - nKnown);
  Block unknown(workW, nKnown, 0, nBands - nKnown, 1);
  VES_ASSERT_GOOD(unknown.Set2Val(MathConstants<Scalar>::INFTY));
  if (info == 0)
    VES_ASSERT_GOOD(vecRest.Set2Zero());
  else
    VES_ASSERT_GOOD(vecRest.CopyData(Columns(vecQ, nKnown, nBands - nKnown)));
  nConv = this->HandBack(std::min(nConv, nKnown), vecQ, vecW);
  iter = std::max(iter, 0);
}

VES_INSTANTIATE(LOBPCG_BATCH);

} // namespace Ves
