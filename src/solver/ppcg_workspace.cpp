#include "ppcg.h"

#include <algorithm>
#include <cmath>

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
  nIdle = 0;
  soundError = StrictError();
  asymmetry = this->unitNormLimit;
  isMergeDue = false;
  nOffered = nBands;
  this->InstallRunComponents(VES_RESIDUALS, VES_SVD_QR);
}

template <typename Scalar>
VesReturnCode PPCG<Scalar>::AllocateWorkspace() const {
  for (Block* const tall : {&workZ, &workAZ, &workBZ})
    this->ShapeTall(*tall, 3 * nBands);
  for (Block* const tall : {&workX, &workR})
    this->ShapeTall(*tall, nBands);
  this->ShapeSmall(workM, nBands, nBands);
  for (Block* const column : {&workW, &idxsConv, &idxsLock})
    this->ShapeSmall(*column, nBands, 1);
  std::vector<Block*> blocks = ShapeSubspaces(nBatch);
  blocks.insert(blocks.end(),
                {&workZ, &workAZ, &workX, &workR, &workM, &workW, &idxsConv, &idxsLock});
  if (isGeneralized) blocks.push_back(&workBZ);
  return this->AllocateOnAll(blocks);
}

/// The blocks that hold sub-blocks of the given width, which becomes that of the run.
template <typename Scalar>
auto PPCG<Scalar>::ShapeSubspaces(int width) const -> std::vector<Block*> {
  const int nT = 3 * width, most = (nBands + width - 1) / width;
  runBatch = width;
  for (Block* const tall : {&workT, &workBT})
    this->ShapeTall(*tall, nT);
  this->ShapeSmall(workG, nT, nT * most);
  this->ShapeSmall(workD, std::max(nBands, nT), 1);
  std::vector<Block*> blocks{&workT, &workG, &workD};
  if (isGeneralized) blocks.push_back(&workBT);
  return blocks;
}

template <typename Scalar>
VesSolverBase::RunSizes PPCG<Scalar>::LargestSizes(int nCols) const {
  const double k = nCols, width = std::max(std::min(nCols, nBatch), 1);
  const double nT = 3 * width, nTiles = std::ceil(k / width);
  return {3 * k, std::max(k * k, nT * nT * nTiles), std::max(k, nT)};
}

template <typename Scalar>
std::size_t PPCG<Scalar>::Memory(int nRows, int nCols, bool generalized) const {
  const auto k = static_cast<std::size_t>(nCols);
  const auto width = static_cast<std::size_t>(std::max(std::min(nCols, nBatch), 1));
  const std::size_t nT = 3 * width, nTiles = (k + width - 1) / width;
  const std::size_t columns = 8 * k + nT + 5; // five blocks, each with its slack
  const std::size_t columnsB = generalized ? 3 * k + nT + 2 : 0;
  return this->Bytes(nRows, columns + columnsB, k * k + nT * nT * nTiles, std::max(k, nT), k);
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
    const auto overtaken = this->FindOvertaken(
        this->LockedBounds(Columns(vecX, 0, nFixed), Block(estimates, 0, 0, nFixed, 1)), values);
    nConv = std::min(nConv, overtaken.locked);
    RecountConverged(coefficients, values);
    nConv = std::min(nConv, overtaken.below);
  } else { // the last pairs there are, which nothing bears out
    nConv = 0;
    info = failed;
    this->FindCulprit(vecX);
    VES_ASSERT_GOOD(vecOut.CopyData(vecX));
    VES_ASSERT_GOOD(vecValues.CopyData(estimates));
  }
}

/// The pairs of the last step are in order, those of the checks before it need not have been.
template <typename Scalar>
void PPCG<Scalar>::RecountConverged(const Block& coefficients, const Block& values) const {
  // A test of values has compared two iterations; when the last one failed there is none to compare.
  const Block estimates(workW, 0, 0, nBands, 1);
  const VesConvergeDetector& test = *this->ConvergeDetector;
  if (!test.ReadsResiduals() || (test.PassesOnValues() && info != 0)) {
    nConv = nSpan > nBands ? nBands : this->StandingClaims(estimates, nConv, values);
    return;
  }
  const Pairs span = Z(0, nSpan);
  for (Block* const rotated : {&workR, &workX})
    rotated->SetDims(nPW, nBands, ldQ);
  VES_ASSERT_GOOD(workR.Gemm(span.AX, coefficients));
  VES_ASSERT_GOOD(workX.Gemm(span.BX, coefficients));
  VES_ASSERT_GOOD(workR.ScaleAdd(workR, workX, values, -1));
  if (isIdle && this->ConvergeDetector->PassesOnValues())
    this->ForgetValues(workR, workX, estimates);
  idxsConv.SetDims(nBands, 1, nBands);
  nConv = this->CountConverged(workR, values, estimates, idxsConv, nConv);
}

template <typename Scalar>
void PPCG<Scalar>::FreeWorkspace() const {
  for (Block* const block : {&workZ, &workAZ, &workW, &workX, &workR, &workM, &workT, &workG,
                             &workD, &idxsConv, &idxsLock, &workBT, &workBZ})
    VES_ASSERT_GOOD(block->FreeMem());
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
