#include "lobpcg_steps.h"

#include "../detector/flag_pairs.h"

#include <algorithm>

namespace Ves {

/// R = T (AX - BX diag(D)) of the pairs behind the leading converged ones.
template <typename Scalar>
void LobpcgSteps<Scalar>::AddResiduals(const VesMatrixBase& matP) const {
  Block vecR = Columns(workZ, FirstR(), nR);
  if (!needResidualNorms) { // nobody has formed them yet
    const int first = nDeflated + nLeadingConv - nLocked;
    const Pairs open = Z(first, nR);
    workR.SetDims(nPW, nR, ldQ);
    VES_ASSERT_GOOD(workR.ScaleAdd(open.AX, open.BX, Block(workW, first, 0, nR, 1), -1));
  }
  const Block vecTmp = Columns(workR, workR.nCols - nR, nR);
  if (matP.IsPresent())
    VES_ASSERT_GOOD(matP.Apply(vecTmp, vecR));
  else
    VES_ASSERT_GOOD(vecR.CopyData(vecTmp));
}

template <typename Scalar>
int LobpcgSteps<Scalar>::RoomBehind(int first, int wanted) const {
  return static_cast<int>(std::clamp<long long>(this->nRowsTotal - first, 0, wanted));
}

template <typename Scalar>
void LobpcgSteps<Scalar>::OrthogonalizeResidual(const VesMatrixBase& matB,
                                                const VesMatrixBase& matP) const {
  nR = RoomBehind(FirstR(), nR);
  nImaged = 0;
  const Pairs residuals = Z(FirstR(), nR);
  if (this->shared.IsPresent() && !check.IsCareful()) return OrthogonalizeShared(matB);
  residuals.RefreshB(matB);
  // A NaN or an infinity out of T or B must not pass for a direction without length.
  if (!isGeneralized && !matP.IsPresent())
    OrthogonalizeBehind(FirstR(), nR, matB);
  else if (this->NormalizeIfFinite(residuals))
    OrthonormalizeBehind(FirstR(), nR, matB);
  else
    info = 1;
}

template <typename Scalar>
void LobpcgSteps<Scalar>::OrthogonalizeBehind(int first, int& count,
                                              const VesMatrixBase& matB) const {
  if (count == 0) return;
  this->Normalize(Z(first, count), true);
  OrthonormalizeBehind(first, count, matB);
}

template <typename Scalar>
void LobpcgSteps<Scalar>::OrthonormalizeBehind(int first, int& count,
                                               const VesMatrixBase& matB) const {
  if (count == 0) return;
  const Pairs before = Z(0, first);
  Pairs columns = Z(first, count);
  this->ProjectAndOrthonormalize(before, columns, matB, true);
  if (isGeneralized && check.IsCareful()) {
    // Cancellation has amplified the errors of images that were only updated.
    columns.RefreshB(matB);
    this->Normalize(columns, true);
    this->ProjectAndOrthonormalize(before, columns, matB, true);
  }
  count = columns.Count();
}

/// Residuals come out with both images.
template <typename Scalar>
void LobpcgSteps<Scalar>::OrthogonalizeShared(const VesMatrixBase& matB) const {
  if (nR == 0) return;
  Pairs residuals = Z(FirstR(), nR);
  this->ProjectAndOrthonormalizeShared(Z(0, FirstR()), residuals, matB);
  nR = nImaged = residuals.Count();
}

/// A on the residuals and the new columns together, but for those whose images are at hand.
template <typename Scalar>
void LobpcgSteps<Scalar>::ApplyMatrixA(const VesMatrixBase& matA) const {
  Z(FirstR() + nImaged, nR + nXnxt - nImaged).RefreshA(matA);
}

/// Upper block triangle of V^H A V, where V = [X P Y] and Y = [R N]:
///     diag(D)  0        X^H A Y
///              P^H A P  P^H A Y
///                       Y^H A Y
/// The basis is B-orthonormal, so the projected problem is standard.
template <typename Scalar>
void LobpcgSteps<Scalar>::ComputeRayleighRitzMatrix() const {
  const int nY = nR + nXnxt;
  nV = nX + nP + nY;
  workM.SetDims(nV, nV, nV);
  VES_ASSERT_GOOD(workM.Set2Zero());
  Block workMX(workM, 0, 0, nX, nX), workMP(workM, nX, nX, nP, nP),
      workMY(workM, 0, nX + nP, nV, nY);
  const Pairs p = Z(FirstP(), nP), y = Z(FirstR(), nY);
  VES_ASSERT_GOOD(workMX.SetDiag(Estimates(nX)));
  VES_ASSERT_GOOD(workMP.InnerProduct(p.X, p.AX, false));
  VES_ASSERT_GOOD(workMY.InnerProduct(V().X, y.AX, false));
  VES_ASSERT_GOOD(Block(workM, 0, nX, nV, nP + nY).AllReduce(MPI_SUM, workM.comm));
}

template <typename Scalar>
void LobpcgSteps<Scalar>::DiagonalizeRayleighRitzMatrix() const {
  workD.SetDims(nV, 1, nV);
  nXseek = std::min(nXseek, nV);
  int nVectors = nXseek;
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunLowestEvd(workM, workD, nVectors, info));
  if (info == 0) this->NoteRitzValues(workD);
  if (info == 0) SettleCutCluster(nVectors);
  workD.SetDims(nXseek, 1, nXseek);
}

/// Where equal Ritz values stand on both sides of the cut behind the nXseek-th, any of their
/// vectors minimize the Rayleigh quotient, and rounding would choose: those are taken that lie
/// closest to the old X and the new columns. Others may be far from converged, as their error shows
/// in the value only by its square. workM holds nVectors of them.
template <typename Scalar>
void LobpcgSteps<Scalar>::SettleCutCluster(int nVectors) const {
  constexpr double rounding = Limit::equalValues * Limit::epsilon, unnoticed = 0.1;
  if (!check.IsOn() || nX == 0 || nXseek == nV) return;
  const Block values(workD, 0, 0, nV, 1);
  // Mixed values must not show in residuals that are tested.
  const double tolerance =
      std::min(rounding * this->largestRitz, unnoticed * mu * check.ClaimBound(values(nXseek - 1)));
  const auto isEqual = [&](int j) {
    return static_cast<double>(std::abs(values(j) - values(nXseek - 1))) <= tolerance;
  };
  int first = nXseek - 1, last = nXseek;
  while (first > 0 && isEqual(first - 1))
    --first;
  while (last < nVectors && isEqual(last))
    ++last;
  const int n = last - first;
  if (last == nXseek) return;

  Block weights, order, mixed, vecC(workM, 0, first, nV, n);
  this->ShapeSmall(weights, n, n);
  this->ShapeSmall(order, n, 1);
  this->ShapeSmall(mixed, nV, n);
  for (Block* const block : {&weights, &order, &mixed})
    VES_ASSERT_GOOD(block->AllocateMem());
  const Block rowsX(workM, 0, first, nX, n), rowsN(workM, nV - nXnxt, first, nXnxt, n);
  VES_ASSERT_GOOD(weights.Gemm(rowsX, rowsX, 'C', 'N', -1, 0)); // the heaviest first
  VES_ASSERT_GOOD(weights.Gemm(rowsN, rowsN, 'C', 'N', -1, 1));
  int failed = 0;
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(weights, order, failed));
  if (failed != 0) return;
  VES_ASSERT_GOOD(mixed.Gemm(vecC, weights));
  VES_ASSERT_GOOD(vecC.CopyData(mixed));
}

/// X' = V C_X, beside the old basis that the new directions still need.
template <typename Scalar>
void LobpcgSteps<Scalar>::RotateEigVecs() const {
  for (Block* const block : {&workX, &workAX, &workBX})
    block->SetDims(nPW, nXseek, ldQ);
  V().Multiply(Block(workM, 0, 0, nV, nXseek), NewX());
  freshFrom = nBands;
}

/// Where the basis was not B-orthonormal, the new vectors have lost their unit norm: then this
/// iteration becomes one over the old X and the new columns alone, with fresh images.
template <typename Scalar>
bool LobpcgSteps<Scalar>::RestartUnlessSound(const VesMatrixBase& matA,
                                             const VesMatrixBase& matB) const {
  const bool isAsked = check.TakeRequest();
  if (!check.IsOn()) return false;
  if (!isAsked && this->UnitNormError(NewX()) <= Limit::unitNorm) return false;
  check.NoteRestart();
  MoveNewBehindX();
  nX = this->OrthonormalizeGuess(Z(), matB, nDeflated, nX + nXnxt);
  nP = nR = nXnxt = 0;
  nV = nX;
  V().RefreshA(matA);
  RayleighRitzOfBasis();
  if (info == 0) RotateEigVecs();
  return true;
}

/// Values and coefficients over a basis whose images are all at hand.
template <typename Scalar>
void LobpcgSteps<Scalar>::RayleighRitzOfBasis() const {
  workM.SetDims(nV, nV, nV);
  VES_ASSERT_GOOD(workM.InnerProduct(V().X, V().AX));
  DiagonalizeRayleighRitzMatrix();
}

template <typename Scalar>
void LobpcgSteps<Scalar>::MoveNewBehindX() const {
  for (int j = 0; j < nXnxt; ++j) { // from the left: the places may overlap
    Block to = Columns(workZ, FirstP() + j, 1);
    VES_ASSERT_GOOD(to.CopyData(Columns(workZ, FirstNew() + j, 1)));
  }
}

/// By the largest residual that is left after it.
template <typename Scalar>
void LobpcgSteps<Scalar>::JudgeRestart() const {
  if (!needResidualNorms) FormResidual();
  double residual = 0.0;
  for (const double norm : ColumnNorms(workR))
    residual = std::max(residual, norm);
  this->Replicate(residual);
  check.JudgeRestart(residual);
}

template <typename Scalar>
void LobpcgSteps<Scalar>::ComputeResidual() const {
  workR.SetDims(nPW, nXseek, ldQ);
  if (needResidualNorms) FormResidual();
}

/// R = AX' - BX' diag(D).
template <typename Scalar>
void LobpcgSteps<Scalar>::FormResidual() const {
  workR.SetDims(nPW, nXseek, ldQ);
  VES_ASSERT_GOOD(workR.ScaleAdd(NewX().AX, NewX().BX, workD, -1));
}

/// A step over the old X alone, after a restart or with no direction to go, leaves the values where
/// they were.
template <typename Scalar>
void LobpcgSteps<Scalar>::ForgetIdleValues() const {
  if (nV != nX || !this->ConvergeDetector->PassesOnValues()) return;
  if (!needResidualNorms) FormResidual();
  check.ForgetValues(workR, NewX().BX, Estimates(nXseek));
}

/// Before the last pairs are believed where rounding errors are near, their images are made afresh.
template <typename Scalar>
void LobpcgSteps<Scalar>::CheckConvergence(const VesMatrixBase& matA,
                                           const VesMatrixBase& matB) const {
  ForgetIdleValues();
  RunConvergeDetector();
  if (nLeadingConv == nXseek && check.IsOn() && freshFrom > nDeflated &&
      check.IsTight(NewX().BX, workD)) {
    NewX().Refresh(matA, matB);
    freshFrom = nDeflated;
    ComputeResidual();
    RunConvergeDetector();
  }
  nConv = nDeflated + nLeadingConv;
  nR = nXseek - nLeadingConv;
  nP = std::min(nV - nXseek, nR);
}

template <typename Scalar>
void LobpcgSteps<Scalar>::RunConvergeDetector() const {
  int dummy = 0;
  const Block vecD = Estimates(nXseek);
  idxsConv.SetDims(nXseek, 1, nXseek);
  VES_ASSERT_GOOD(
      this->ConvergeDetector->Run(workR, workD, vecD, threshold, idxsConv, dummy, nLeadingConv));
  this->KeepResiduals(nDeflated);
}

/// P' = V C_P, where C_P is what the unconverged columns of C_X hold in [P R], orthonormalized
/// against C_X. So P' is B-orthonormal, B-orthogonal to X', and X'^H A P' = 0.
template <typename Scalar>
void LobpcgSteps<Scalar>::ComputeConjugateDirection() const {
  const Block vecCX(workM, 0, 0, nV, nXseek), vecUnconverged(workM, 0, nLeadingConv, nV, nP);
  Block vecCP(workM, 0, nXseek, nV, nP);
  Block rowsOfX(workM, 0, nXseek, nX, nP), rowsOfNew(workM, nV - nXnxt, nXseek, nXnxt, nP);
  VES_ASSERT_GOOD(vecCP.CopyData(vecUnconverged));
  VES_ASSERT_GOOD(rowsOfX.Set2Zero());
  VES_ASSERT_GOOD(rowsOfNew.Set2Zero());
  Pairs directions(vecCP, vecCP);
  this->Normalize(directions, false);
  this->ProjectAndOrthonormalize({vecCX, vecCX}, directions, VesMatrixEmpty(), false);
  nP = directions.Count();
  V().Rotate(directions.X, Z(nDeflated + nXseek, nP), workP);
}

template <typename Scalar>
void LobpcgSteps<Scalar>::UpdateEigVecs() const {
  NewX().CopyTo(Z(nDeflated, nXseek));
}

template <typename Scalar>
void LobpcgSteps<Scalar>::CheckLocking() const {
  int dummy = 0;
  const Block vecD = Estimates(nXseek);
  idxsLock.SetDims(nXseek, 1, nXseek);
  this->LockDetector->knownNorms = this->ConvergeDetector->residualNorms;
  VES_ASSERT_GOOD(
      this->LockDetector->Run(workR, workD, vecD, threshold * mu, idxsLock, dummy, nLocked));
  // With another detector the test for locking may be the looser one.
  nLocked = std::min(nLocked, nLeadingConv);
}

/// Stores the new values of the pairs kept in this iteration, then lets the active window begin
/// behind those just locked.
template <typename Scalar>
void LobpcgSteps<Scalar>::UpdateEigVals() const {
  Block vecD = Estimates(nXseek);
  VES_ASSERT_GOOD(vecD.CopyData(workD));
  nDeflated += nLocked;
  nX = nXseek - nLocked;
}

template <typename Scalar>
void LobpcgSteps<Scalar>::WatchProgress(const VesMatrixBase& matA,
                                        const VesMatrixBase& matB) const {
  workX.SetDims(nPW, 1, ldQ);
  workAX.SetDims(nPW, 1, ldQ);
  check.WatchProgress(matA, matB, Z(nDeflated, nX), nDeflated, Estimates(nX), {workX, workAX});
  check.NoteDirections(nP + nR + nXnxt, 1);
}

template <typename Scalar>
void LobpcgSteps<Scalar>::Report() const {
  Base::Report(iter + 1, Block(workW, 0, 0, nBands, 1), std::min(nConv, nClaimable), nDeflated, nX);
}

VES_INSTANTIATE(LobpcgSteps);

} // namespace Ves
