#include "lobpcg_steps.h"

#include <algorithm>
#include <vector>

namespace Ves {

template <typename Scalar>
void LobpcgSteps<Scalar>::ResetCounters() const {
  nX = nP = nR = nXnxt = nXseek = nV = 0;
  nDeflated = nLocked = nLeadingConv = 0;
  nConv = 0;
  nClaimable = freshFrom = nBands;
  isUncertain = false;
}

template <typename Scalar>
WorkspacePlan<Scalar> LobpcgSteps<Scalar>::Plan(int nRows, int ld, int nCols,
                                                bool generalized) const {
  const long long k = nCols, active = MostActive(nCols), nZ = k + 2 * active;
  const long long nVmax = std::max(3 * active, k);
  WorkspacePlan<Scalar> plan(nRows, ld);
  for (Block* const block : {&workZ, &workAZ})
    plan.AddTall(*block, nZ);
  for (Block* const block : {&workX, &workAX, &workR})
    plan.AddTall(*block, active);
  if (generalized) {
    plan.AddTall(workBZ, nZ);
    plan.AddTall(workBX, active);
  }
  plan.AddBand(workP, k);
  plan.AddSmall(workM, nVmax, nVmax);
  plan.AddSmall(workD, nVmax, 1);
  plan.AddSmall(workW, k, 1);
  for (Block* const flags : {&idxsConv, &idxsLock})
    plan.AddSmall(*flags, active, 1);
  plan.denseOrder = nVmax;
  plan.widestBlock = std::max(active, k - active); // the last pass may load the rest
  return plan;
}

template <typename Scalar>
VesReturnCode LobpcgSteps<Scalar>::AllocateWorkspace() const {
  nActiveMax = MostActive(nBands);
  return this->AllocateOnAll(Plan(nPW, ldQ, nBands, isGeneralized));
}

template <typename Scalar>
void LobpcgSteps<Scalar>::FreeWorkspace() const {
  Plan(nPW, ldQ, 1, isGeneralized).Free(); // whatever their shapes are by now
}

template <typename Scalar>
int LobpcgSteps<Scalar>::DropStrays(int most) const {
  const int count = MoveStraysLast(most);
  if (count == 0) return 0;
  nDeflated += nX - count;
  nConv = nDeflated;
  nX = nP = nR = nLeadingConv = nLocked = 0;
  return count;
}

template <typename Scalar>
int LobpcgSteps<Scalar>::MoveStraysLast(int most) const {
  const int nKnown = nDeflated + nX;
  if (info != 0 || nConv < nKnown) return 0;
  return check.MoveStraysLast(Block(workW, 0, 0, nKnown, 1), Z(), most);
}

template <typename Scalar>
void LobpcgSteps<Scalar>::ConfirmResult(const VesMatrixBase& matA,
                                        const VesMatrixBase& matB) const {
  nConv = std::min(nConv, nClaimable);
  const int nFixed = nConv < nDeflated + nX ? std::min(nDeflated, nClaimable) : 0;
  const std::vector<double> bounds =
      check.LockedBounds(Columns(workZ, 0, nFixed), Block(workW, 0, 0, nFixed, 1));
  ConfirmPairs(matA, matB, bounds);
  nConv = std::min(nConv, check.FindOvertaken(bounds, Block(workW, 0, 0, nDeflated + nX, 1)).below);
}

template <typename Scalar>
void LobpcgSteps<Scalar>::ConfirmPairs(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                       const std::vector<double>& bounds) const {
  const int nKnown = nDeflated + nX;
  check.FindCulprit(Columns(workZ, 0, nKnown));
  if (!check.IsOn() || info != 0 || nKnown == 0) return;
  const int nStrays = MoveStraysLast(nKnown);
  nConv = std::min(nConv, nKnown - nStrays);
  const Block values(workW, 0, 0, nKnown, 1);
  const bool isLoose = !(this->OrthoError(Z(), 0, nKnown) <= Limit::result);
  const bool isTight = check.IsTight(Z(0, nKnown).BX, values);
  const bool isHeldBack = isUncertain || (nDeflated > 0 && nConv < nKnown);
  if (!isLoose && !isTight && !isHeldBack) return;

  const int nStale = isLoose || nStrays > 0 ? nKnown : std::min(freshFrom, nKnown);
  nDeflated = 0;
  nX = nXseek = nV = isLoose ? this->OrthonormalizeGuess(Z(), matB, 0, nKnown) : nKnown;
  if (isLoose || isTight) Z(0, std::min(nStale, nX)).Refresh(matA, matB);
  if (isLoose || isHeldBack) RotateAll();
  nConv = std::min(nConv, check.FindOvertaken(bounds, values).locked);
  if (info == 0)
    RecountConverged();
  else
    nConv = 0; // nothing bears the claims out
  check.FindCulprit(Columns(workZ, 0, nX));
  nConv = std::min(nConv, nKnown - nStrays);
}

/// Rayleigh-Ritz over all pairs.
template <typename Scalar>
void LobpcgSteps<Scalar>::RotateAll() const {
  RayleighRitzOfBasis();
  if (info != 0) return;
  Block values(workW, 0, 0, nV, 1);
  if (this->ConvergeDetector->PassesOnValues())
    nConv = check.StandingClaims(values, std::min(nConv, nV), workD);
  VES_ASSERT_GOOD(values.CopyData(workD));
  V().Rotate(workM, workP);
}

/// By the residuals of images that were made afresh, as many pairs at a time as workX has room for.
/// A test of values has compared two iterations, which here cannot be done again.
template <typename Scalar>
void LobpcgSteps<Scalar>::RecountConverged() const {
  const int claimed = isUncertain ? 0 : nConv;
  if (!this->ConvergeDetector->PassesOnValues()) nConv = 0;
  if (!this->ConvergeDetector->ReadsResiduals()) return;
  int counted = 0;
  for (int first = 0, width = 0; first < nX; first += width) {
    width = std::min(nX - first, nActiveMax);
    const Block values(workW, first, 0, width, 1);
    for (Block* const column : {&workD, &idxsConv})
      column->SetDims(width, 1, width);
    VES_ASSERT_GOOD(workD.Set2Val(MathConstants<Scalar>::INFTY)); // so that only residuals count
    workX.SetDims(nPW, width, ldQ);
    VES_ASSERT_GOOD(workX.ScaleAdd(Z(first, width).AX, Z(first, width).BX, values, -1));
    const int found =
        check.CountConverged(workX, values, workD, idxsConv, std::clamp(claimed - first, 0, width));
    if (counted == first) counted += found;
    this->KeepResiduals(first);
  }
  nConv = std::max(nConv, counted);
}

template <typename Scalar>
int LobpcgSteps<Scalar>::HandBack(int nConverged, Block& vecQ, Block& vecW) const {
  const Block vecX = Columns(workZ, 0, vecQ.nCols);
  if (!this->IsAscending(workW)) return this->CopyAscending(vecX, workW, nConverged, vecQ, vecW);
  VES_ASSERT_GOOD(vecQ.CopyData(vecX));
  VES_ASSERT_GOOD(vecW.CopyData(workW));
  return nConverged;
}

VES_INSTANTIATE(LobpcgSteps);

} // namespace Ves
