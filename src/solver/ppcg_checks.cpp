#include "ppcg.h"

#include <algorithm>

namespace Ves {

/// One pass over nearly dependent sub-blocks leaves X short of orthonormal, and all that follows
/// takes it for orthonormal. What X^H (B X) is good to where B is badly conditioned shows in the
/// run: a restart is made again only for an error twice that of the last one.
template <typename Scalar>
bool PPCG<Scalar>::RestartUnlessSound(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                      double limit) const {
  if (!check.IsOn()) return false;
  double orthoError = 0.0;
  const Pairs x = Z(0, nBands);
  VES_ASSERT_GOOD(x.X.CheckOrthogonality(x.BX, orthoError, true, true));
  return RestartIfAbove(limit, orthoError, matA, matB);
}

/// The error is that of process 0.
template <typename Scalar>
bool PPCG<Scalar>::RestartIfAbove(double limit, double orthoError, const VesMatrixBase& matA,
                                  const VesMatrixBase& matB) const {
  this->Replicate(orthoError);
  if (orthoError <= limit) return false;
  if (isGeneralized) soundError = std::min(2.0 * orthoError, Limit::unitNorm);
  Restart(matA, matB);
  return true;
}

/// All other pairs are locked, and vectors made of random columns take the place of strays.
template <typename Scalar>
bool PPCG<Scalar>::ReplaceStrays(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  const int count = check.MoveStraysLast(Block(workW, 0, 0, nBands, 1), Z(), nBands);
  if (count == 0) return false;
  nX = count;
  nDeflated = nBands - nX;
  VES_ASSERT_GOOD(Active().X.Set2Random(this->processRank + iter));
  Restart(matA, matB);
  ProjectActive();
  EstimateValues();
  return true;
}

/// Orthonormalizes the active X with all care, completes it where it has lost rank, makes its
/// images afresh and drops the old directions; the rest of the run makes more passes.
template <typename Scalar>
void PPCG<Scalar>::Restart(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  check.NoteRestart();
  areFresh = false;
  isIdle = true;
  nX = this->OrthonormalizeGuess(Z(), matB, nDeflated, nBands - nDeflated);
  nP = 0;
  this->NarrowBands(workW, nDeflated + nX);
  Active().RefreshA(matA);
}

template <typename Scalar>
void PPCG<Scalar>::WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  if (nX == 0) return;
  workX.SetDims(nPW, nX, ldQ);
  workR.SetDims(nPW, nX, ldQ);
  check.WatchProgress(matA, matB, Active(), nBands - nX, Estimates(), {workX, workR});
  // Of the residuals most depended on the others of their sub-block.
  isMergeDue = isMergeDue || (check.IsSlow() && 2 * nR < nOffered);
}

/// Before the last Rayleigh-Ritz step: an orthonormal block, and images that bear the claims out.
/// Where pairs are claimed and a tile has room for the whole space, the step is made over all of
/// it, so that no value below the claimed ones can be missing.
template <typename Scalar>
void PPCG<Scalar>::ConfirmBlock(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  nSpan = nBands;
  if (!check.IsOn() || info != 0) return;
  const bool wasIdle = isIdle; // no step lies between the last check and the count to come
  RestartUnlessSound(matA, matB, orthoTol); // what is handed back is held to the tolerance itself
  isIdle = wasIdle;
  RefreshImages(matA, matB);
  nSpan = nBands; // which a restart may have narrowed
  if (nConv == 0 || this->nRowsTotal <= nBands || this->nRowsTotal > 3LL * runBatch) return;
  const int nRest = static_cast<int>(this->nRowsTotal) - nBands;
  const Pairs rest = Z(nBands, nRest);
  VES_ASSERT_GOOD(rest.X.Set2Random(this->processRank));
  const int rank = this->OrthonormalizeGuess(Z(), matB, nBands, nRest);
  if (rank < nRest || !(this->OrthoError(Z(), nBands, nRest) <= StrictError())) return;
  nSpan = nBands + nRest;
  rest.RefreshA(matA);
}

/// Makes the images of all X afresh where the claims of convergence lie close to rounding errors.
template <typename Scalar>
bool PPCG<Scalar>::RefreshImages(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  const Pairs x = Z(0, nBands);
  if (!check.IsOn() || areFresh || !check.IsTight(x.BX, Block(workW, 0, 0, nBands, 1)))
    return false;
  x.Refresh(matA, matB);
  areFresh = true;
  return true;
}

/// Where all active pairs have passed the test, none is left to iterate.
template <typename Scalar>
void PPCG<Scalar>::Report() const {
  Base::Report(iter + 1, Block(workW, 0, 0, nBands, 1), nConv, nBands - nX, nX);
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
