#include "ppcg.h"

#include "../data/finite_entries.h"
#include "../detector/flag_pairs.h"
#include "../orthogonalizer/pass_loop.h"

#include <algorithm>
#include <limits>
#include <numeric>
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
    SumProducts(matB, isGeneralized || matP.IsPresent());
    if (info != 0) return;
    OrthogonalizeConjugateDirections(matB);
    OrthogonalizeResiduals(matB);
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
  if (!check.IsOn() || !IsRotationDue())
    ProjectActive();
  else if (RestartIfAbove(soundError, ProjectAndTest(), matA, matB))
    ProjectActive();
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
  VES_ASSERT_GOOD(workM.InnerProduct(Active().X, Active().AX, false));
  isRotated = false;
  const std::vector<int> first{0}, all{nBands};
  GroupProducts<Scalar> gram(x.X, {first, all}, x.BX, {first, all}, false);
  JointSum<Scalar> sum;
  sum.Add(workM);
  gram.AddTo(sum);
  sum.Reduce(workM.comm);
  return gram[0].OrthogonalityError(true);
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

/// P against all X, and R brought near to 1, with one sum for what both need.
template <typename Scalar>
void PPCG<Scalar>::ProjectDirections(const VesMatrixBase& matB, bool isPreconditioned) const {
  const Pairs x = Z(0, nBands), p = Z(nBands, nP);
  const Block vecR = Columns(workZ, 2 * nBands, nR);
  std::vector<double> norms = this->ConvergeDetector->residualNorms;
  const bool areKnown = !isPreconditioned && !norms.empty();
  JointSum<Scalar> sum;
  std::vector<Scalar> squares;
  if (!areKnown) {
    squares = vecR.LocalProducts(vecR);
    squares.pop_back();
    sum.Add(squares.data(), squares.size());
  }
  if (nP > 0) {
    this->Projector().knownOverlaps = std::make_unique<GroupProducts<Scalar>>(
        x.BX, Groups{{0}, {nBands}}, p.X, Groups{{0}, {nP}}, false);
    this->Projector().knownOverlaps->AddTo(sum);
  }
  if (!areKnown || nP > 0) sum.Reduce(workZ.comm);
  if (!areKnown) {
    norms.clear();
    for (const Scalar square : squares)
      norms.push_back(static_cast<double>(std::abs(std::sqrt(square))));
  }
  ScaleResiduals(norms);
  if (nP > 0)
    VES_ASSERT_GOOD(this->OrthoProjector->Run(x.X, x.BX, x.AX, p.X, p.BX, p.AX, matB, true,
                                              this->InnerPasses(), orthoInnerTol));
}

/// The orthogonalizers take columns that are small in absolute terms for dependent ones: a common
/// power of two brings R near to 1, or with the self-check one for each column, but for those that
/// are no more than rounding errors beside the largest, which keep their distance from it.
template <typename Scalar>
void PPCG<Scalar>::ScaleResiduals(const std::vector<double>& tested) const {
  constexpr int most = std::numeric_limits<RealType<Scalar>>::max_exponent - 2;
  if (nR == 0) return;
  const Block vecR = Columns(workZ, 2 * nBands, nR);
  std::vector<double> norms(tested.end() - nR, tested.end()); // without columns locked since
  this->Replicate(norms);
  const double largest = *std::max_element(norms.begin(), norms.end());
  if (!(largest > 0.0) || std::isinf(largest)) return;
  for (int j = 0; j < vecR.nCols; ++j) {
    const double norm = norms[static_cast<std::size_t>(j)];
    const bool isOwn = check.IsOn() && norm > Limit::generous * Limit::epsilon * largest;
    const double size = isOwn ? norm : largest;
    const int exponent = std::clamp(-std::ilogb(size), -most, most);
    Block column = Columns(vecR, j, 1);
    VES_ASSERT_GOOD(column.ScaleByVal(Scalar(std::ldexp(RealType<Scalar>(1), exponent))));
  }
}

/// The Gram matrices of the P_j and the products of X with R in one sum, and whether R is finite.
template <typename Scalar>
void PPCG<Scalar>::SumProducts(const VesMatrixBase& matB, bool isWatched) const {
  const Pairs x = Z(0, nBands), r = Z(2 * nBands, nR), z = Z();
  r.RefreshB(matB);
  JointSum<Scalar> sum;
  if (nP > 0) {
    this->Orthonormalizer().knownGrams = std::make_unique<GroupProducts<Scalar>>(
        z.X, Groups{dispP, nPs}, z.BX, Groups{dispP, nPs}, false);
    this->Orthonormalizer().knownGrams->AddTo(sum);
  }
  int notFinite = 0;
  Scalar count = isWatched && !this->HoldsFinite(r) ? MathConstants<Scalar>::ONE
                                                    : MathConstants<Scalar>::ZERO;
  if (nR > 0) {
    this->Projector().knownOverlaps = std::make_unique<GroupProducts<Scalar>>(
        x.BX, Groups{{0}, {nBands}}, r.X, Groups{{0}, {nR}}, false);
    this->Projector().knownOverlaps->AddTo(sum);
    sum.Add(&count, 1);
  }
  if (nP > 0 || nR > 0) sum.Reduce(workZ.comm);
  // A NaN or an infinity out of T or B must not pass for a direction without length.
  if (isWatched) {
    notFinite = count == MathConstants<Scalar>::ZERO ? 0 : 1;
    this->Replicate(notFinite);
    info = notFinite;
  }
}

/// Each P_j in itself; further passes bring it against X_j again.
template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeConjugateDirections(const VesMatrixBase& matB) const {
  if (nP == 0) return;
  const Pairs z = Z();
  std::vector<double> orthoErrors(nPs.size(), 0.0);
  std::vector<int> nPsTmp;
  RepeatPasses(
      this->Passes(), orthoTol, this->secondComm,
      [&](bool isFirst) {
        if (!isFirst)
          VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(z.X, z.BX, z.AX, z.X, z.BX, z.AX, dispX,
                                                         nXs, dispP, nPs, matB, true,
                                                         this->InnerPasses(), orthoInnerTol));
        nPsTmp = nPs;
        VES_ASSERT_GOOD(this->Orthogonalizer->RunBatch(z.X, z.BX, z.AX, dispP, nPsTmp, matB, true,
                                                       this->InnerPasses(), orthoInnerTol));
        return VES_GOOD;
      },
      [&] {
        VES_ASSERT_GOOD(
            z.BX.CheckBatchOrthogonality(z.X, dispX, nXs, dispP, nPsTmp, orthoErrors, false, true));
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
void PPCG<Scalar>::OrthogonalizeResiduals(const VesMatrixBase& matB) const {
  if (nR == 0) return;
  const Pairs x = Z(0, nBands), r = Z(2 * nBands, nR);
  nOffered = std::accumulate(nRs.begin(), nRs.end(), 0);
  VES_ASSERT_GOOD(this->OrthoProjector->Run(x.X, x.BX, r.X, r.BX, matB, true, this->InnerPasses(),
                                            orthoInnerTol));
  // Cancellation has amplified the errors of images that were only updated.
  if (check.IsCareful()) r.RefreshB(matB);
  // More directions than X and P_j leave room for would be made of rounding errors.
  for (std::size_t j = 0; j < nRs.size(); ++j)
    nRs[j] = static_cast<int>(std::clamp<long long>(this->nRowsTotal - nBands - nPs[j], 0, nRs[j]));
  OrthonormalizeResidualBlocks(matB);
}

/// Each R_j against P_j and in itself; further passes bring it against X_j again.
template <typename Scalar>
void PPCG<Scalar>::OrthonormalizeResidualBlocks(const VesMatrixBase& matB) const {
  const Pairs z = Z();
  std::vector<double> orthoErrors(nRs.size(), 0.0);
  std::vector<int> nRsTmp;
  RepeatPasses(
      this->Passes(), orthoTol, this->secondComm,
      [&](bool isFirst) {
        if (!isFirst)
          VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(z.X, z.BX, z.X, z.BX, dispX, nXs, dispR,
                                                         nRs, matB, true, this->InnerPasses(),
                                                         orthoInnerTol));
        VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(z.X, z.BX, z.X, z.BX, dispP, nPs, dispR, nRs,
                                                       matB, true, this->InnerPasses(),
                                                       orthoInnerTol));
        nRsTmp = nRs;
        VES_ASSERT_GOOD(this->Orthogonalizer->RunBatch(z.X, z.BX, dispR, nRsTmp, matB, true,
                                                       this->InnerPasses(), orthoInnerTol));
        return VES_GOOD;
      },
      [&] {
        VES_ASSERT_GOOD(
            z.BX.CheckBatchOrthogonality(z.X, dispX, nXs, dispR, nRsTmp, orthoErrors, false, true));
        const double errorX = LargestError(orthoErrors, nXs);
        VES_ASSERT_GOOD(
            z.BX.CheckBatchOrthogonality(z.X, dispP, nPs, dispR, nRsTmp, orthoErrors, false, true));
        return std::max(errorX, LargestError(orthoErrors, nPs));
      });
  nRs = nRsTmp;
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
