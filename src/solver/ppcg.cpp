#include "ppcg.h"

#include "../data/finite_entries.h"
#include "../detector/flag_pairs.h"
#include "../orthogonalizer/pass_loop.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace Ves {

namespace {

int SumOf(const std::vector<int>& widths) {
  return std::accumulate(widths.begin(), widths.end(), 0);
}

} // namespace

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
  ConfirmBlock(matA, matB);
  PostProcess(vecQ, vecW);
  FreeWorkspace();
  return VES_GOOD;
}

template <typename Scalar>
void PPCG<Scalar>::Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
                           const VesMatrixBase& matP) const {
  iter = -1; // the start counts as no iteration
  Report();
  for (iter = 0; iter < maxIter; ++iter) {
    if (nX < 1 || this->isStagnated || this->isStopped) return;
    if (IsRotationDue()) RestartUnlessSound(matA, matB);
    RayleighRitzRotation();
    if (info != 0) return; // X and its images are still those of the last iteration
    ComputeResiduals();
    CheckConvergence(matA, matB);
    if (info != 0) return;
    CheckLocking();
    PreconditionedResiduals(matP);
    PartitionBlocks();
    OrthogonalizeConjugateDirections(matB);
    SoftLocking();
    OrthogonalizeResiduals(matB, matP);
    if (info != 0) return;
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
  nBands = nX = nR = this->OrthonormalizeGuess(workZ, ImageBZ(), matB, 0, nBands);
  Block vecX = Columns(workZ, 0, nBands), vecAX = Columns(workAZ, 0, nBands);
  VES_ASSERT_GOOD(matA.Apply(vecX, vecAX));
}

/// M = X^H A X; in every rrPeriod-th iteration X is rotated to its eigenvectors.
template <typename Scalar>
void PPCG<Scalar>::RayleighRitzRotation() const {
  ProjectActive();
  if (IsRotationDue()) {
    RotateActive();
  } else {
    EstimateValues();
    info = LeadingFiniteOrder(workM, 'U', nX) < nX ? 1 : 0; // as the eigensolver would say
    this->Replicate(info);
  }
}

/// The diagonal of M; where values themselves are tested, its eigenvalues, which do not depend on the
/// basis that the orthogonalizer has chosen.
template <typename Scalar>
void PPCG<Scalar>::EstimateValues() const {
  if (this->convergeDetectorType != VES_EIGENVALUES) {
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
  VES_ASSERT_GOOD(workM.InnerProduct(Active(workZ), Active(workAZ)));
  isRotated = false;
}

template <typename Scalar>
void PPCG<Scalar>::RotateActive() const {
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(workM, workD, info));
  if (info != 0) return;
  isRotated = true;
  const auto rotate = [&](const Block& basis) {
    this->Rotate(Active(basis), workM, Active(basis), workX);
  };
  rotate(workZ);
  rotate(workAZ);
  if (isGeneralized) rotate(workBZ);
}

/// R = AX - BX diag(D) after a rotation, R = AX - BX M otherwise.
template <typename Scalar>
void PPCG<Scalar>::ComputeResiduals() const {
  const Block vecAX = Active(workAZ), vecBX = Active(ImageBZ());
  workR.SetDims(nPW, nX, ldQ);
  if (isRotated) {
    workR.ScaleAdd(vecAX, vecBX, workD, -1);
  } else {
    VES_ASSERT_GOOD(workR.CopyData(vecAX));
    VES_ASSERT_GOOD(
        workR.Gemm(vecBX, workM, 'N', 'N', MathConstants<int>::NEG_ONE, MathConstants<int>::ONE));
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
    if (RestartUnlessSound(matA, matB) || RefreshImages(matA, matB)) ProjectActive();
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
  nX = nP = nR = 0;
}

template <typename Scalar>
void PPCG<Scalar>::RunConvergeDetector() const {
  int dummy = 0;
  const Block vecD = Estimates();
  if (isIdle && this->TestsValues()) this->ForgetValues(workR, Active(ImageBZ()), vecD);
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
  VES_ASSERT_GOOD(
      this->LockDetector->Run(workR, workD, vecD, threshold * mu, idxsLock, dummy, nLocked));
  // With another detector the test for locking may be the looser one.
  nLocked = std::min(nLocked, nConvActive);
  for (int j = 0; j < nX; ++j)
    if (std::abs(idxsConv(j)) < 1) idxsLock(j) = MathConstants<Scalar>::ZERO;
  const bool locks = IsRotationDue();
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

/// P against all X, then each P_j in itself; further passes bring P_j against X_j again.
template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeConjugateDirections(const VesMatrixBase& matB) const {
  if (nP == 0) return;
  const Block vecX = Columns(workZ, 0, nBands), vecAX = Columns(workAZ, 0, nBands),
              vecBX = Columns(ImageBZ(), 0, nBands);
  Block vecP = Columns(workZ, nBands, nP), vecAP = Columns(workAZ, nBands, nP),
        vecBP = Columns(ImageBZ(), nBands, nP);
  VES_ASSERT_GOOD(this->OrthoProjector->Run(vecX, vecBX, vecAX, vecP, vecBP, vecAP, matB, true,
                                            maxOrthoInnerIter, orthoInnerTol));

  Block vecZ = Columns(workZ, 0, 3 * nBands), vecAZ = Columns(workAZ, 0, 3 * nBands),
        vecBZ = Columns(ImageBZ(), 0, 3 * nBands);
  std::vector<double> orthoErrors(nPs.size(), 0.0);
  std::vector<int> nPsTmp;
  bool isFirst = true;
  RepeatPasses(
      maxOrthoIter, orthoTol, this->secondComm,
      [&] {
        if (!isFirst)
          VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(vecZ, vecBZ, vecAZ, vecZ, vecBZ, vecAZ,
                                                         dispX, nXs, dispP, nPs, matB, true,
                                                         maxOrthoInnerIter, orthoInnerTol));
        isFirst = false;
        nPsTmp = nPs;
        VES_ASSERT_GOOD(this->Orthogonalizer->RunBatch(vecZ, vecBZ, vecAZ, dispP, nPsTmp, matB,
                                                       true, maxOrthoInnerIter, orthoInnerTol));
        return VES_GOOD;
      },
      [&] {
        VES_ASSERT_GOOD(vecBZ.CheckBatchOrthogonality(vecZ, dispX, nXs, dispP, nPsTmp, orthoErrors,
                                                      false, true));
        return LargestError(orthoErrors, nXs);
      });
  nPs = nPsTmp;
}

/// Gathers the residuals that are still to be iterated at the front of each sub-block. Flags stand
/// at the row of the column they were made for: those of columns locked since come first. The
/// B-images are formed afterwards.
template <typename Scalar>
void PPCG<Scalar>::SoftLocking() const {
  if (nR == 0 || softLockingType < 1) return;
  const Block& flags = softLockingType == 1 ? idxsLock : idxsConv;
  for (std::size_t j = 0; j < nRs.size(); ++j) {
    const Block idxsBatch(flags, flagShift + static_cast<int>(j) * runBatch, 0, nRs[j], 1);
    Block vecR = Columns(workZ, dispR[j], nRs[j]);
    VES_ASSERT_GOOD(vecR.PermuteCols(idxsBatch, 1, nActive));
    nRs[j] = nActive;
  }
}

/// R against all X, then each R_j against P_j and in itself; further passes bring R_j against X_j
/// again.
template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeResiduals(const VesMatrixBase& matB,
                                          const VesMatrixBase& matP) const {
  if (nR == 0) return;
  const Block vecX = Columns(workZ, 0, nBands), vecBX = Columns(ImageBZ(), 0, nBands);
  Block vecR = Columns(workZ, 2 * nBands, nR), vecBR = Columns(ImageBZ(), 2 * nBands, nR);
  if (isGeneralized) VES_ASSERT_GOOD(matB.Apply(vecR, vecBR));
  // A NaN or an infinity out of T or B must not pass for a direction without length.
  if ((isGeneralized || matP.IsPresent()) && !this->AllFinite(vecR, vecBR)) {
    info = 1;
    return;
  }
  NormalizeScale(vecR, vecBR, matP.IsPresent());
  VES_ASSERT_GOOD(this->OrthoProjector->Run(vecX, vecBX, vecR, vecBR, matB, true, maxOrthoInnerIter,
                                            orthoInnerTol));
  // Cancellation has amplified the errors of images that were only updated.
  if (isGeneralized && this->isCareful) VES_ASSERT_GOOD(matB.Apply(vecR, vecBR));
  // More directions than X and P_j leave room for would be made of rounding errors.
  for (std::size_t j = 0; j < nRs.size(); ++j)
    nRs[j] = static_cast<int>(std::clamp<long long>(this->nRowsTotal - nBands - nPs[j], 0, nRs[j]));
  OrthonormalizeResidualBlocks(matB);
}

/// The orthogonalizers take columns that are small in absolute terms for dependent ones: a common
/// power of two brings R near to 1, whatever the scale of A and T.
template <typename Scalar>
void PPCG<Scalar>::NormalizeScale(Block& vecR, Block& vecBR, bool isPreconditioned) const {
  const std::vector<double>& tested = this->ConvergeDetector->residualNorms;
  const std::vector<double> norms = isPreconditioned || tested.empty() ? ColumnNorms(vecR) : tested;
  double largest = *std::max_element(norms.begin(), norms.end());
  this->Replicate(largest);
  if (!(largest > 0.0)) return;
  const Scalar factor(std::ldexp(RealType<Scalar>(1), -std::ilogb(largest)));
  VES_ASSERT_GOOD(vecR.ScaleByVal(factor));
  if (isGeneralized) VES_ASSERT_GOOD(vecBR.ScaleByVal(factor));
}

/// Each R_j against P_j and in itself; further passes bring it against X_j again.
template <typename Scalar>
void PPCG<Scalar>::OrthonormalizeResidualBlocks(const VesMatrixBase& matB) const {
  Block vecZ = Columns(workZ, 0, 3 * nBands), vecBZ = Columns(ImageBZ(), 0, 3 * nBands);
  std::vector<double> orthoErrors(nRs.size(), 0.0);
  std::vector<int> nRsTmp;
  bool isFirst = true;
  RepeatPasses(
      maxOrthoIter, orthoTol, this->secondComm,
      [&] {
        if (!isFirst)
          VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(vecZ, vecBZ, vecZ, vecBZ, dispX, nXs,
                                                         dispR, nRs, matB, true, maxOrthoInnerIter,
                                                         orthoInnerTol));
        isFirst = false;
        VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(vecZ, vecBZ, vecZ, vecBZ, dispP, nPs, dispR,
                                                       nRs, matB, true, maxOrthoInnerIter,
                                                       orthoInnerTol));
        nRsTmp = nRs;
        VES_ASSERT_GOOD(this->Orthogonalizer->RunBatch(vecZ, vecBZ, dispR, nRsTmp, matB, true,
                                                       maxOrthoInnerIter, orthoInnerTol));
        return VES_GOOD;
      },
      [&] {
        VES_ASSERT_GOOD(vecBZ.CheckBatchOrthogonality(vecZ, dispX, nXs, dispR, nRsTmp, orthoErrors,
                                                      false, true));
        const double errorX = LargestError(orthoErrors, nXs);
        VES_ASSERT_GOOD(vecBZ.CheckBatchOrthogonality(vecZ, dispP, nPs, dispR, nRsTmp, orthoErrors,
                                                      false, true));
        return std::max(errorX, LargestError(orthoErrors, nPs));
      });
  nRs = nRsTmp;
}

/// Packs the residuals of all sub-blocks without gaps and applies A to them.
template <typename Scalar>
void PPCG<Scalar>::AssembleActiveResiduals(const VesMatrixBase& matA) const {
  if (nR == 0) return;
  const auto move = [&](const Block& basis, Block& scratch, int from, int to, int count) {
    Block vecTmp = Columns(scratch, 0, count), vecY = Columns(basis, to, count);
    VES_ASSERT_GOOD(vecTmp.CopyData(Columns(basis, from, count)));
    VES_ASSERT_GOOD(vecY.CopyData(vecTmp));
  };
  int disp = 2 * nBands;
  for (std::size_t j = 0; j < nRs.size(); ++j) {
    nVs[j] = nXs[j] + nPs[j] + nRs[j];
    if (dispR[j] != disp) {
      move(workZ, workT, dispR[j], disp, nRs[j]);
      if (isGeneralized) move(workBZ, workBT, dispR[j], disp, nRs[j]);
      dispR[j] = disp;
    }
    disp += nRs[j];
  }
  nR = SumOf(nRs);
  // No direction for longer than it takes to lock exact vectors, whose residuals of zero make their
  // sub-blocks lose all rank: nothing can change X any more.
  isIdle = nR == 0 && SumOf(nPs) == 0;
  nIdle = isIdle ? nIdle + 1 : 0;
  this->isStagnated = nIdle > std::max(rrPeriod, 1);
  const Block vecR = Columns(workZ, 2 * nBands, nR);
  Block vecAR = Columns(workAZ, 2 * nBands, nR);
  VES_ASSERT_GOOD(matA.Apply(vecR, vecAR));
}

template <typename Scalar>
void PPCG<Scalar>::GatherSubspace(const Block& block, std::size_t j, int first, int rows) const {
  const auto place = [&](int to, int from, int count) {
    Block part(workT, 0, to, rows, count);
    VES_ASSERT_GOOD(part.CopyData(Block(block, first, from, rows, count)));
  };
  place(0, dispX[j], nXs[j]);
  place(nXs[j], dispP[j], nPs[j]);
  place(nXs[j] + nPs[j], dispR[j], nRs[j]);
}

/// Upper block triangles of G_j = [X_j P_j R_j]^H A [X_j P_j R_j], summed in one reduction for all.
/// Each basis is B-orthonormal, so the small problems are standard.
template <typename Scalar>
void PPCG<Scalar>::ComputeRayleighRitzMatrix() const {
  nVmax = nVs.empty() ? 0 : *std::max_element(nVs.begin(), nVs.end());
  workG.SetDims(nVmax, nVmax * nBlocks, nVmax);
  VES_ASSERT_GOOD(workG.Set2Zero());
  for (std::size_t j = 0; j < nVs.size(); ++j) {
    GatherSubspace(workZ, j, 0, nPW);
    const Block tile = Tile(j);
    const auto product = [&](int first, int count, int dispA) {
      Block part(tile, 0, first, first + count, count);
      const Block images = Columns(workAZ, dispA, count);
      VES_ASSERT_GOOD(part.InnerProduct(Columns(workT, 0, first + count), images, false));
    };
    product(0, nXs[j], dispX[j]);
    product(nXs[j], nPs[j], dispP[j]);
    product(nXs[j] + nPs[j], nRs[j], dispR[j]);
  }
  workG.AllReduce(MPI_SUM, workG.comm);
}

template <typename Scalar>
void PPCG<Scalar>::SubspacesDiagonalization() const {
  for (std::size_t j = 0; j < nVs.size(); ++j) {
    Block vecG = Tile(j);
    workD.SetDims(nVs[j], 1, nVs[j]);
    VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(vecG, workD, info));
    if (info != 0) return;
    this->NoteRitzValues(workD);
  }
}

/// X_j := [X_j P_j R_j] C_X and P_j := [P_j R_j] C_PR, where C_X are the lowest eigenvectors of the
/// tile and C_PR their rows of P and R; likewise the images.
template <typename Scalar>
void PPCG<Scalar>::UpdateEigenVectors() const {
  for (std::size_t j = 0; j < nVs.size(); ++j) {
    const int nRest = nVs[j] - nXs[j];
    const Block tile = Tile(j);
    const Block vecCX(tile, 0, 0, nVs[j], nXs[j]);
    Block vecCP;
    this->ShapeSmall(vecCP, nRest, nXs[j]);
    VES_ASSERT_GOOD(vecCP.AllocateMem());
    GatherDirections(Block(tile, nXs[j], 0, nRest, nXs[j]), vecCP);
    const auto update = [&](const Block& basis) {
      for (int first = 0; first < nPW; first += Base::bandRows) {
        const int rows = std::min(Base::bandRows, nPW - first);
        GatherSubspace(basis, j, first, rows);
        Block vecX(basis, first, dispX[j], rows, nXs[j]),
            vecP(basis, first, dispP[j], rows, nXs[j]);
        VES_ASSERT_GOOD(vecX.Gemm(Block(workT, 0, 0, rows, nVs[j]), vecCX));
        VES_ASSERT_GOOD(vecP.Gemm(Block(workT, 0, nXs[j], rows, nRest), vecCP));
      }
    };
    update(workZ);
    update(workAZ);
    if (isGeneralized) update(workBZ);
  }
  nP = SumOf(nXs);
}

/// Orthonormalizes the coefficients of new directions (Gram-Schmidt, each vector twice), so that
/// small steps do not pass for dependent ones, nor dependent ones for directions: those of columns
/// without a residual of their own lie in the span of the others. What is no more than a rounding
/// error becomes zero behind the rest, since its images are wrong by as much.
template <typename Scalar>
void PPCG<Scalar>::GatherDirections(const Block& from, Block& to) const {
  using Real = RealType<Scalar>;
  const Real smallest = 4000 * std::numeric_limits<Real>::epsilon();
  const int n = from.nRows, one = MathConstants<int>::ONE;
  VES_ASSERT_GOOD(to.Set2Zero());
  for (int j = 0, kept = 0; j < from.nCols && kept < n; ++j) {
    Scalar* const v = &to(0, kept);
    MathKernel<Scalar>::Copy(&n, &from(0, j), &one, v, &one);
    for (int i = 0; i < 2 * kept; ++i) {
      const Scalar* const q = &to(0, i % kept);
      const Scalar overlap = MathKernel<Scalar>::Dot(&n, q, &one, v, &one);
      for (int r = 0; r < n; ++r)
        v[r] -= overlap * q[r];
    }
    const Real norm = std::sqrt(std::real(MathKernel<Scalar>::Dot(&n, v, &one, v, &one)));
    const bool isDirection = norm > smallest;
    const Scalar factor = isDirection ? Scalar(1 / norm) : MathConstants<Scalar>::ZERO;
    MathKernel<Scalar>::Scal(&n, &factor, v, &one);
    kept += isDirection ? 1 : 0;
  }
}

/// The sub-blocks were updated on their own: X is B-orthonormalized as a whole, with its images.
/// Where a basis [X_j P_j R_j] was not B-orthonormal, vectors have lost their unit norm, and to
/// stretch them would spoil their images.
template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeEigenVectors(const VesMatrixBase& matA,
                                             const VesMatrixBase& matB) const {
  if (nX == 0) return;
  Block vecX = Active(workZ), vecAX = Active(workAZ), vecBX = Active(ImageBZ());
  if (this->isRestartDue ||
      (this->selfCheck && this->UnitNormError(vecX, vecBX) > this->unitNormLimit))
    return Restart(matA, matB);
  int colRank = 0;
  const VesReturnCode code = VES_ASSERT_GOOD_OR(
      VES_ERR_INCOMPATIBLE, this->Orthogonalizer->Run(vecX, vecBX, vecAX, matB, colRank, true,
                                                      maxOrthoInnerIter, orthoInnerTol));
  if (code != VES_GOOD || colRank < nX) Restart(matA, matB);
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
