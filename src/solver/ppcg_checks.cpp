#include "ppcg.h"

#include <algorithm>

namespace Ves {

/// One pass over nearly dependent sub-blocks leaves X short of orthonormal, and all that follows
/// takes it for orthonormal.
template <typename Scalar>
bool PPCG<Scalar>::RestartUnlessSound(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  if (!this->selfCheck) return false;
  double orthoError = 0.0;
  const Block vecX = Columns(workZ, 0, nBands), vecBX = Columns(ImageBZ(), 0, nBands);
  VES_ASSERT_GOOD(vecX.CheckOrthogonality(vecBX, orthoError, true, true));
  this->Replicate(orthoError);
  if (orthoError <= 4.0 * orthoTol) return false;
  Restart(matA, matB);
  return true;
}

/// Orthonormalizes the active X with all care, completes it where it has lost rank, makes its
/// images afresh and drops the old directions; the rest of the run makes more passes.
template <typename Scalar>
void PPCG<Scalar>::Restart(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  this->BeCareful();
  this->isRestartDue = false;
  isIdle = true;
  nX = this->OrthonormalizeGuess(workZ, ImageBZ(), matB, nDeflated, nBands - nDeflated);
  nP = 0;
  this->NarrowBands(workW, nDeflated + nX);
  Block vecX = Active(workZ), vecAX = Active(workAZ);
  VES_ASSERT_GOOD(matA.Apply(vecX, vecAX));
  ++nRestarts;
}

template <typename Scalar>
void PPCG<Scalar>::WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  if (nX == 0) return;
  workX.SetDims(nPW, nX, ldQ);
  workR.SetDims(nPW, nX, ldQ);
  Base::WatchProgress(matA, matB, Active(workZ), Active(ImageBZ()), nBands - nX, Estimates(), workX,
                      workR);
}

/// Before the last Rayleigh-Ritz step: an orthonormal block, and images that bear the claims out.
template <typename Scalar>
void PPCG<Scalar>::ConfirmBlock(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  if (!this->selfCheck || info != 0) return;
  RestartUnlessSound(matA, matB);
  RefreshImages(matA, matB);
}

/// Makes the images of all X afresh where the claims of convergence lie close to rounding errors.
template <typename Scalar>
bool PPCG<Scalar>::RefreshImages(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
  const Block vecX = Columns(workZ, 0, nBands), values(workW, 0, 0, nBands, 1);
  Block vecAX = Columns(workAZ, 0, nBands), vecBX = Columns(ImageBZ(), 0, nBands);
  if (!this->selfCheck || !this->IsTight(vecBX, values)) return false;
  VES_ASSERT_GOOD(matA.Apply(vecX, vecAX));
  if (isGeneralized) VES_ASSERT_GOOD(matB.Apply(vecX, vecBX));
  return true;
}

/// Where all active pairs have passed the test, none is left to iterate.
template <typename Scalar>
void PPCG<Scalar>::Report() const {
  Base::Report(iter + 1, Block(workW, 0, 0, nBands, 1), nConv, nBands - nX, nX);
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
