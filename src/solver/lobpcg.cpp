#include "lobpcg.h"

#include <algorithm>

namespace Ves {

template <typename Scalar>
VesReturnCode LOBPCG<Scalar>::Solve(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                    const VesMatrixBase& matP, VesVectorBase& vecQ,
                                    VesVectorBase& vecW) const {
  if (!this->TakesBlocks(vecQ, vecW)) return VES_ERR_UNSUPPORTED;
  return SolveDense(matA, matB, matP, AsDense<Scalar>(vecQ), AsDense<Scalar>(vecW));
}

template <typename Scalar>
VesReturnCode LOBPCG<Scalar>::SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                         const VesMatrixBase& matP, Block& vecQ,
                                         Block& vecW) const {
  const int givenOrthoIter = this->maxOrthoIter, givenInnerIter = this->maxOrthoInnerIter;
  InitParameters(vecQ, vecW, matB);
  AllocateWorkspace();
  InitWorkspace(vecQ, vecW);
  RotateInitialGuess(matA, matB);
  ComputeInitialResidual();
  UpdateEigVals();
  Iterate(matA, matB, matP);
  FillOutput(vecQ, vecW);
  FreeWorkspace();
  CollectInfo();
  this->maxOrthoIter = givenOrthoIter; // a restart raises them for the rest of its run
  this->maxOrthoInnerIter = givenInnerIter;
  return VES_GOOD;
}

template <typename Scalar>
void LOBPCG<Scalar>::Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
                             const VesMatrixBase& matP) const {
  for (iter = 0; iter < maxIter; ++iter) {
    if (nR < 1 || info != 0 || isStagnated) return;
    const int nUnconverged = nR;
    PreconditionedResidual(matP);
    OrthogonalizeResidual(matA, matB, matP);
    if (info == 0) {
      ComputeRayleighRitzMatrix();
      DiagonalizeRayleighRitzMatrix();
    }
    if (info == 0) {
      RotateEigVecs();
      RestartUnlessSound(matA, matB);
    }
    if (info != 0) { // the pairs of the last iteration are the last there are
      nR = std::min(nUnconverged, nBands);
      return;
    }
    ComputeResidual();
    JudgeRestart();
    CheckConvergence();
    ComputeConjugateDirection();
    UpdateEigVecs();
    CheckLocking();
    UpdateEigVals();
  }
}

/// Rayleigh-Ritz on the orthonormalized guess. When it fails, the guess stays as it is, with its
/// values unknown.
template <typename Scalar>
void LOBPCG<Scalar>::RotateInitialGuess(const VesMatrixBase& matA,
                                        const VesMatrixBase& matB) const {
  nBands = nX = nV = this->OrthonormalizeGuess(workZ, ImageBZ(), matB);
  Block vecX = Columns(workZ, 0, nBands), vecAX = Columns(workAZ, 0, nBands);
  VES_ASSERT_GOOD(matA.Apply(vecX, vecAX));
  workM.SetDims(nBands, nBands, nBands);
  workD.SetDims(nBands, 1, nBands);
  VES_ASSERT_GOOD(workM.InnerProduct(vecX, vecAX));
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(workM, workD, info));
  if (info != 0) {
    VES_ASSERT_GOOD(workD.Set2Val(MathConstants<Scalar>::INFTY));
    return;
  }
  const auto rotate = [&](const Block& whole, Block& rotated) {
    Block vec = Columns(whole, 0, nBands);
    rotated.SetDims(nPW, nBands, ldQ);
    VES_ASSERT_GOOD(rotated.Gemm(vec, workM));
    VES_ASSERT_GOOD(vec.CopyData(rotated));
  };
  rotate(workZ, workX);
  rotate(workAZ, workAX);
  if (isGeneralized) rotate(workBZ, workBX);
}

/// R = AX - BX diag(D). A guess that passes the convergence test as it stands is the answer: to
/// iterate on its residuals would be to iterate on rounding errors.
template <typename Scalar>
void LOBPCG<Scalar>::ComputeInitialResidual() const {
  nR = nBands;
  if (info != 0) return;
  workR.SetDims(nPW, nBands, ldQ);
  if (needResidualNorms)
    VES_ASSERT_GOOD(
        workR.ScaleAdd(Columns(workAZ, 0, nBands), Columns(ImageBZ(), 0, nBands), workD, -1));
  int dummy = 0;
  const Block vecD = Estimates(nX);
  idxsConv.SetDims(nBands, 1, nBands);
  VES_ASSERT_GOOD(
      this->ConvergeDetector->Run(workR, workD, vecD, threshold, idxsConv, dummy, nLeadingConv));
  if (nLeadingConv == nBands) nR = 0;
}

template <typename Scalar>
void LOBPCG<Scalar>::PreconditionedResidual(const VesMatrixBase& matP) const {
  Block vecR = Columns(workZ, FirstR(), nR);
  if (!needResidualNorms) {
    const Block vecAX4R = Columns(workAZ, nBands - nR, nR);
    const Block vecBX4R = Columns(ImageBZ(), nBands - nR, nR);
    workR.SetDims(nPW, nR, ldQ);
    VES_ASSERT_GOOD(workR.ScaleAdd(vecAX4R, vecBX4R, Estimates(nR), -1));
  }
  const Block vecTmp = Columns(workR, workR.nCols - nR, nR);
  if (matP.IsPresent())
    VES_ASSERT_GOOD(matP.Apply(vecTmp, vecR));
  else
    VES_ASSERT_GOOD(vecR.CopyData(vecTmp));
}

/// Makes [X P R] B-orthonormal: R against all X, locked ones included, and P, then in itself.
template <typename Scalar>
void LOBPCG<Scalar>::OrthogonalizeResidual(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                           const VesMatrixBase& matP) const {
  // More directions than X and P leave room for would be made of rounding errors.
  nR = static_cast<int>(std::clamp<long long>(this->nRowsTotal - FirstR(), 0, nR));
  const Block vecY = Columns(workZ, 0, FirstR()), vecBY = Columns(ImageBZ(), 0, FirstR());
  Block vecR = Columns(workZ, FirstR(), nR), vecBR = Columns(ImageBZ(), FirstR(), nR);
  if (isGeneralized) VES_ASSERT_GOOD(matB.Apply(vecR, vecBR));
  // A NaN or an infinity out of T or B must not pass for a direction without length.
  if ((isGeneralized || matP.IsPresent()) && !this->AllFinite(vecR, vecBR)) {
    info = 1;
    return;
  }
  this->ProjectAndOrthonormalize(vecY, vecBY, vecR, vecBR, matB, nR, true);
  Block vecAR = Columns(workAZ, FirstR(), nR);
  VES_ASSERT_GOOD(matA.Apply(vecR, vecAR));
}

/// Upper block triangle of [X P R]^H A [X P R]:
///     diag(D)  0        X^H A R
///              P^H A P  P^H A R
///                       R^H A R
/// The basis is B-orthonormal, so the projected problem is standard.
template <typename Scalar>
void LOBPCG<Scalar>::ComputeRayleighRitzMatrix() const {
  nV = nX + nP + nR;
  workM.SetDims(nV, nV, nV);
  VES_ASSERT_GOOD(workM.Set2Zero());
  Block workMX(workM, 0, 0, nX, nX), workMP(workM, nX, nX, nP, nP),
      workMR(workM, 0, nX + nP, nV, nR);
  const Block vecP = Columns(workZ, FirstP(), nP), vecAP = Columns(workAZ, FirstP(), nP);
  const Block vecXPR = Columns(workZ, FirstActive(), nV), vecAR = Columns(workAZ, FirstR(), nR);
  VES_ASSERT_GOOD(workMX.SetDiag(Estimates(nX)));
  // The reduction of the P block runs on into the first rows of the next column, which only the
  // product for the R block fills: this order.
  VES_ASSERT_GOOD(workMP.InnerProduct(vecP, vecAP, true));
  VES_ASSERT_GOOD(workMR.InnerProduct(vecXPR, vecAR, true));
}

template <typename Scalar>
void LOBPCG<Scalar>::DiagonalizeRayleighRitzMatrix() const {
  workD.SetDims(nV, 1, nV);
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(workM, workD, info));
  workD.SetDims(nX, 1, nX);
}

/// X' = [X P R] C_X and its images, beside the old ones that the new directions still need.
template <typename Scalar>
void LOBPCG<Scalar>::RotateEigVecs() const {
  const Block vecCX(workM, 0, 0, nV, nX);
  const auto rotate = [&](const Block& basis, Block& rotated) {
    rotated.SetDims(nPW, nX, ldQ);
    VES_ASSERT_GOOD(rotated.Gemm(Columns(basis, FirstActive(), nV), vecCX));
  };
  rotate(workZ, workX);
  rotate(workAZ, workAX);
  if (isGeneralized) rotate(workBZ, workBX);
}

/// The self-check. Where the basis [X P R] was not B-orthonormal, the new vectors have lost their
/// unit norm: then this iteration becomes one over the old X alone, with fresh images, and the rest
/// of the run makes more passes.
template <typename Scalar>
void LOBPCG<Scalar>::RestartUnlessSound(const VesMatrixBase& matA,
                                        const VesMatrixBase& matB) const {
  constexpr int carefulPasses = 3;
  isRestarted = this->selfCheck &&
                this->UnitNormError(workX, isGeneralized ? workBX : workX) > this->unitNormLimit;
  if (!isRestarted) return;
  this->maxOrthoIter = std::max(this->maxOrthoIter, carefulPasses);
  this->maxOrthoInnerIter = std::max(this->maxOrthoInnerIter, carefulPasses);

  const int rank = this->OrthonormalizeGuess(workZ, ImageBZ(), matB, FirstActive());
  this->NarrowBands(workW, FirstActive() + rank);
  nX = rank;
  nP = nR = 0;
  nV = nX;
  Block vecX = Columns(workZ, FirstActive(), nX), vecAX = Columns(workAZ, FirstActive(), nX);
  VES_ASSERT_GOOD(matA.Apply(vecX, vecAX));
  workM.SetDims(nV, nV, nV);
  VES_ASSERT_GOOD(workM.InnerProduct(vecX, vecAX));
  DiagonalizeRayleighRitzMatrix();
  if (info == 0) RotateEigVecs();
}

/// A restart that does not halve the residuals of the one before has met what rounding allows.
template <typename Scalar>
void LOBPCG<Scalar>::JudgeRestart() const {
  if (!isRestarted) return;
  if (!needResidualNorms)
    VES_ASSERT_GOOD(workR.ScaleAdd(workAX, isGeneralized ? workBX : workX, workD, -1));
  Block normR(this->rowComm, this->secondComm, nX, 1, nX);
  VES_ASSERT_GOOD(normR.AllocateMem());
  VES_ASSERT_GOOD(normR.Norm(workR));
  double residual = 0.0;
  for (int j = 0; j < nX; ++j)
    residual = std::max(residual, static_cast<double>(std::abs(normR(j))));
  this->Replicate(residual);
  isStagnated = nRestarts > 0 && residual > 0.5 * restartResidual;
  restartResidual = residual;
  ++nRestarts;
}

template <typename Scalar>
void LOBPCG<Scalar>::ComputeResidual() const {
  workR.SetDims(nPW, nX, ldQ);
  if (needResidualNorms)
    VES_ASSERT_GOOD(workR.ScaleAdd(workAX, isGeneralized ? workBX : workX, workD, -1));
}

template <typename Scalar>
void LOBPCG<Scalar>::CheckConvergence() const {
  int dummy = 0;
  const Block vecD = Estimates(nX);
  idxsConv.SetDims(nX, 1, nX);
  VES_ASSERT_GOOD(
      this->ConvergeDetector->Run(workR, workD, vecD, threshold, idxsConv, dummy, nLeadingConv));
  const int nUnconverged = nX - nLeadingConv;
  nP = std::min(nP + nR, nUnconverged);
  nR = nUnconverged;
}

/// P' = [X P R] C_P, where C_P is what the unconverged columns of C_X hold in [P R],
/// orthonormalized against C_X. So P' is B-orthonormal, B-orthogonal to X', and X'^H A P' = 0.
template <typename Scalar>
void LOBPCG<Scalar>::ComputeConjugateDirection() const {
  const Block vecCX(workM, 0, 0, nV, nX), vecUnconverged(workM, 0, nLeadingConv, nV, nP);
  Block vecCP(workM, 0, nX, nV, nP), rowsOfX(workM, 0, nX, nX, nP);
  VES_ASSERT_GOOD(vecCP.CopyData(vecUnconverged));
  VES_ASSERT_GOOD(rowsOfX.Set2Zero());
  const VesMatrixEmpty matNull;
  this->ProjectAndOrthonormalize(vecCX, vecCX, vecCP, vecCP, matNull, nP, false);

  const auto rotate = [&](const Block& basis) {
    Block vecP = Columns(basis, FirstP(), nP);
    workP.SetDims(nPW, nP, ldQ);
    VES_ASSERT_GOOD(workP.Gemm(Columns(basis, FirstActive(), nV), vecCP));
    VES_ASSERT_GOOD(vecP.CopyData(workP));
  };
  rotate(workZ);
  rotate(workAZ);
  if (isGeneralized) rotate(workBZ);
}

template <typename Scalar>
void LOBPCG<Scalar>::UpdateEigVecs() const {
  const auto update = [&](const Block& basis, const Block& rotated) {
    Block vecX = Columns(basis, FirstActive(), nX);
    VES_ASSERT_GOOD(vecX.CopyData(rotated));
  };
  update(workZ, workX);
  update(workAZ, workAX);
  if (isGeneralized) update(workBZ, workBX);
}

template <typename Scalar>
void LOBPCG<Scalar>::CheckLocking() const {
  int dummy = 0;
  const Block vecD = Estimates(nX);
  idxsLock.SetDims(nX, 1, nX);
  VES_ASSERT_GOOD(
      this->LockDetector->Run(workR, workD, vecD, threshold * mu, idxsLock, dummy, nLocked));
  nLockedTotal += nLocked;
}

/// Stores the new values of the pairs that were active in this iteration, then lets the active
/// window begin behind the vectors just locked.
template <typename Scalar>
void LOBPCG<Scalar>::UpdateEigVals() const {
  Block vecD = Estimates(nX);
  VES_ASSERT_GOOD(vecD.CopyData(workD));
  nX = nBands - nLockedTotal;
}

VES_INSTANTIATE(LOBPCG);

} // namespace Ves
