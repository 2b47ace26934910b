#include "ppcg.h"

#include <algorithm>

namespace Ves {

template <typename Scalar>
void PPCG<Scalar>::InitParameters(const Block& vecQ, const Block&,
                                  const VesMatrixBase& matB) const {
  this->ReadProblem(vecQ, matB);
  nBatch = std::max(std::min(nBands, nBatch), 1);
  iter = 0;
  nX = nR = nBands;
  nP = nDeflated = nConvActive = nLocked = flagShift = 0;
  nConv = 0;
  nBlocks = (nBands + nBatch - 1) / nBatch;
  isRotated = isIdle = areFresh = false;
  soundError = StrictError();
  asymmetry = Limit::unitNorm;
  isMergeDue = false;
  nOffered = nBands;
  this->InstallRunComponents(VES_RESIDUALS, VES_SVD_QR);
}

template <typename Scalar>
WorkspacePlan<Scalar> PPCG<Scalar>::Plan(int nRows, int ld, int nCols, bool generalized) const {
  const long long k = nCols;
  const int width = std::min(nCols, nBatch);
  WorkspacePlan<Scalar> plan(nRows, ld);
  if (nCols == 0) return plan; // no sub-blocks either
  for (Block* const block : {&workZ, &workAZ})
    plan.AddTall(*block, 3 * k);
  if (generalized) plan.AddTall(workBZ, 3 * k);
  for (Block* const block : {&workX, &workR})
    plan.AddTall(*block, k);
  plan.AddSmall(workM, k, k);
  for (Block* const column : {&workW, &idxsConv, &idxsLock})
    plan.AddSmall(*column, k, 1);
  PlanSubspaces(plan, nCols, width, generalized);
  plan.denseOrder = std::max(k, 3LL * width);
  plan.widestBlock = nCols;
  return plan;
}

/// The blocks that hold sub-blocks of the given width.
template <typename Scalar>
void PPCG<Scalar>::PlanSubspaces(WorkspacePlan<Scalar>& plan, int nCols, int width,
                                 bool generalized) const {
  const long long k = nCols, nT = 3LL * width, nTiles = (k + width - 1) / width;
  plan.AddTall(workT, nT);
  if (generalized) plan.AddTall(workBT, nT);
  plan.AddSmall(workG, nT, nT * nTiles);
  plan.AddSmall(workD, std::max(k, nT), 1);
}

template <typename Scalar>
VesReturnCode PPCG<Scalar>::AllocateWorkspace() const {
  runBatch = nBatch;
  return this->AllocateOnAll(Plan(nPW, ldQ, nBands, isGeneralized));
}

/// Replaces the sub-blocks by such of another width. \return as AllocateOnAll
template <typename Scalar>
VesReturnCode PPCG<Scalar>::AllocateSubspaces(int width) const {
  WorkspacePlan<Scalar> plan(nPW, ldQ);
  PlanSubspaces(plan, nBands, width, isGeneralized);
  runBatch = width;
  return this->AllocateOnAll(plan);
}

template <typename Scalar>
void PPCG<Scalar>::InitWorkspace(const Block& vecQ, const Block&) const {
  Block vecX = Columns(workZ, 0, nBands);
  VES_ASSERT_GOOD(vecX.CopyData(vecQ));
  VES_ASSERT_GOOD(workW.Set2Val(MathConstants<Scalar>::INFTY));
}

template <typename Scalar>
void PPCG<Scalar>::PartitionBlocks() const {
  const int n = nX;
  nBlocks = n < 1 ? 0 : (n - 1) / runBatch + 1;
  for (std::vector<int>* const list : {&nXs, &nPs, &nRs, &nVs, &dispX, &dispP, &dispR})
    list->assign(static_cast<std::size_t>(nBlocks), 0);
  for (int j = 0; j < nBlocks; ++j) {
    const auto at = static_cast<std::size_t>(j);
    const int first = j * runBatch, width = std::min(n - first, runBatch);
    nXs[at] = nRs[at] = width;
    nPs[at] = nP > 0 ? width : 0;
    dispX[at] = nDeflated + first;
    dispP[at] = nBands + first;
    dispR[at] = 2 * nBands + first;
  }
}

/// Rayleigh-Ritz over the whole block, locked vectors included, and over what ConfirmBlock has put
/// behind it. Where the guess had no full rank, nBands was narrowed, and zero vectors with infinite
/// values stand for what is missing.
template <typename Scalar>
void PPCG<Scalar>::PostProcess(Block& vecQ, Block& vecW) const {
  const Block vecX = Columns(workZ, 0, nBands), estimates(workW, 0, 0, nBands, 1);
  Block vecOut = Columns(vecQ, 0, nBands), vecValues(vecW, 0, 0, nBands, 1);
  Block& matrix = nSpan > nBands ? workG : workM; // a tile has room for the span
  matrix.SetDims(nSpan, nSpan, nSpan);
  workD.SetDims(nSpan, 1, nSpan);
  const Pairs span = Z(0, nSpan);
  VES_ASSERT_GOOD(matrix.InnerProduct(span.X, span.AX));
  int failed = 0; // beside info, which says how the iteration ended
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(matrix, workD, failed));
  VES_ASSERT_GOOD(vecQ.Set2Zero());
  VES_ASSERT_GOOD(vecW.Set2Val(MathConstants<Scalar>::INFTY));
  if (failed == 0) {
    const Block coefficients(matrix, 0, 0, nSpan, nBands), values(workD, 0, 0, nBands, 1);
    VES_ASSERT_GOOD(vecOut.Gemm(span.X, coefficients, 'N', 'N', 1, 0));
    VES_ASSERT_GOOD(vecValues.CopyData(values));
    const int nFixed = nConv < nBands && nSpan == nBands ? nDeflated : 0;
    const auto overtaken = check.FindOvertaken(
        check.LockedBounds(Columns(vecX, 0, nFixed), Block(estimates, 0, 0, nFixed, 1)), values);
    nConv = std::min(nConv, overtaken.locked);
    RecountConverged(coefficients, values);
    nConv = std::min(nConv, overtaken.below);
  } else { // the last pairs there are, which nothing bears out
    nConv = 0;
    info = failed;
    check.FindCulprit(vecX);
    VES_ASSERT_GOOD(vecOut.CopyData(vecX));
    VES_ASSERT_GOOD(vecValues.CopyData(estimates));
  }
}

/// The pairs of the last step are in order, those of the checks before it need not have been.
template <typename Scalar>
void PPCG<Scalar>::RecountConverged(const Block& coefficients, const Block& values) const {
  // A test of values has compared two iterations; when the last one failed there is none to
  // compare.
  const Block estimates(workW, 0, 0, nBands, 1);
  const VesConvergeDetector& test = *this->ConvergeDetector;
  if (!test.ReadsResiduals() || (test.PassesOnValues() && info != 0)) {
    nConv = nSpan > nBands ? nBands : check.StandingClaims(estimates, nConv, values);
    return;
  }
  const Pairs span = Z(0, nSpan);
  for (Block* const rotated : {&workR, &workX})
    rotated->SetDims(nPW, nBands, ldQ);
  VES_ASSERT_GOOD(workR.Gemm(span.AX, coefficients));
  VES_ASSERT_GOOD(workX.Gemm(span.BX, coefficients));
  VES_ASSERT_GOOD(workR.ScaleAdd(workR, workX, values, -1));
  if (isIdle && this->ConvergeDetector->PassesOnValues())
    check.ForgetValues(workR, workX, estimates);
  idxsConv.SetDims(nBands, 1, nBands);
  nConv = check.CountConverged(workR, values, estimates, idxsConv, nConv);
}

template <typename Scalar>
void PPCG<Scalar>::FreeWorkspace() const {
  Plan(nPW, ldQ, 1, isGeneralized).Free(); // whatever their shapes are by now
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
