#include "lobpcg.h"

#include <algorithm>
#include <limits>

namespace Ves {

template <typename Scalar>
VesReturnCode LOBPCG<Scalar>::SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                         const VesMatrixBase& matP, Block& vecQ,
                                         Block& vecW) const {
  InitParameters(vecQ, vecW, matB);
  if (const auto code = this->AllocateWorkspace(); code != VES_GOOD) return code;
  InitWorkspace(vecQ, vecW);
  RotateInitialGuess(matA, matB);
  ComputeInitialResidual(matA, matB);
  this->UpdateEigVals();
  Iterate(matA, matB, matP);
  this->ConfirmResult(matA, matB);
  if (nDeflated + nX < nBands) this->NarrowBands(workW, nDeflated + nX);
  FillOutput(vecQ, vecW);
  this->FreeWorkspace();
  return VES_GOOD;
}

template <typename Scalar>
std::unique_ptr<BlockSolver<LowType<Scalar>>> LOBPCG<Scalar>::LowTwin() const {
  return std::make_unique<LOBPCG<LowType<Scalar>>>();
}

template <typename Scalar>
void LOBPCG<Scalar>::Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
                             const VesMatrixBase& matP) const {
  iter = -1; // the start counts as no iteration
  this->Report();
  for (iter = 0; iter < iterLimit; ++iter) {
    if (info != 0 || check.IsOver()) return;
    if (nR < 1 && !ReplaceStrays()) return;
    this->AddResiduals(matP);
    this->OrthogonalizeResidual(matB, matP);
    if (info != 0) return; // the pairs of the last iteration are the last there are
    this->ApplyMatrixA(matA);
    this->WatchProgress(matA, matB);
    this->ComputeRayleighRitzMatrix();
    this->DiagonalizeRayleighRitzMatrix();
    if (info != 0) return;
    this->RotateEigVecs();
    const bool isRestarted = this->RestartUnlessSound(matA, matB);
    if (isRestarted) this->NarrowBands(workW, nDeflated + nX);
    if (info != 0) return;
    this->ComputeResidual();
    if (isRestarted) this->JudgeRestart();
    this->CheckConvergence(matA, matB);
    this->ComputeConjugateDirection();
    this->UpdateEigVecs();
    this->CheckLocking();
    this->UpdateEigVals();
    nXseek = nX;
    this->Report();
  }
}

/// Puts random columns in the place of strays; the restart that is due makes vectors of them.
template <typename Scalar>
bool LOBPCG<Scalar>::ReplaceStrays() const {
  const int count = this->DropStrays(nBands);
  if (count == 0) return false;
  nX = nXseek = count;
  VES_ASSERT_GOOD(Columns(workZ, nDeflated, nX).Set2Random(this->processRank + iter));
  std::fill_n(this->pairResiduals.begin() + nDeflated, nX,
              std::numeric_limits<double>::quiet_NaN());
  check.RequestRestart();
  return true;
}

template <typename Scalar>
void LOBPCG<Scalar>::InitParameters(const Block& vecQ, const Block&,
                                    const VesMatrixBase& matB) const {
  this->ReadProblem(vecQ, matB);
  this->ResetCounters();
  iter = 0;
  nX = nXseek = nV = nBands;
  this->InstallRunComponents(this->convergeDetectorType, this->orthogonalizerType);
}

template <typename Scalar>
void LOBPCG<Scalar>::InitWorkspace(const Block& vecQ, const Block&) const {
  Block vecX = Columns(workZ, 0, nBands);
  VES_ASSERT_GOOD(vecX.CopyData(vecQ));
  VES_ASSERT_GOOD(workW.Set2Val(MathConstants<Scalar>::INFTY));
}

/// Rayleigh-Ritz on the orthonormalized guess. When it fails, the guess stays as it is, with its
/// values unknown.
template <typename Scalar>
void LOBPCG<Scalar>::RotateInitialGuess(const VesMatrixBase& matA,
                                        const VesMatrixBase& matB) const {
  nBands = nX = nXseek = nV = this->OrthonormalizeGuess(this->Z(), matB, 0, nBands);
  this->V().RefreshA(matA);
  this->RayleighRitzOfBasis();
  if (info != 0) {
    VES_ASSERT_GOOD(workD.Set2Val(MathConstants<Scalar>::INFTY));
    return;
  }
  this->RotateEigVecs();
  this->UpdateEigVecs();
  this->freshFrom = 0;
}

/// R = AX - BX diag(D). A guess that passes the convergence test as it stands is the answer: to
/// iterate on its residuals would be to iterate on rounding errors.
template <typename Scalar>
void LOBPCG<Scalar>::ComputeInitialResidual(const VesMatrixBase& matA,
                                            const VesMatrixBase& matB) const {
  if (info != 0) return;
  this->ComputeResidual();
  this->CheckConvergence(matA, matB);
  if (nLeadingConv >= this->Goal(nBands)) return;
  nR = nBands;
  nLeadingConv = nConv = 0;
}

template <typename Scalar>
void LOBPCG<Scalar>::FillOutput(Block& vecQ, Block& vecW) const {
  // Where the guess had no full rank, nBands was narrowed: zero vectors stand for what is missing.
  Block vecMissing = Columns(workZ, nBands, vecQ.nCols - nBands);
  VES_ASSERT_GOOD(vecMissing.Set2Zero());
  nConv = this->HandBack(std::min(nConv, nBands), vecQ, vecW);
}

VES_INSTANTIATE(LOBPCG);

} // namespace Ves
