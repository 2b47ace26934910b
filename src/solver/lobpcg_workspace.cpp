#include "lobpcg.h"

namespace Ves {

template <typename Scalar>
void LOBPCG<Scalar>::InitParameters(const Block& vecQ, const Block&,
                                    const VesMatrixBase& matB) const {
  this->ReadProblem(vecQ, matB);
  iter = 0;
  nX = nV = nBands;
  nP = nR = 0;
  nLockedTotal = nLocked = nLeadingConv = nRestarts = 0;
  isRestarted = isStagnated = false;
  VES_ASSERT_GOOD(this->SetLockDetector(this->convergeDetectorType));
  VES_ASSERT_GOOD(this->SetRankRevealer(this->orthogonalizerType));
}

template <typename Scalar>
void LOBPCG<Scalar>::AllocateWorkspace() const {
  this->ShapeTall(workZ, 3 * nBands);
  VES_ASSERT_GOOD(workZ.AllocateMem());
  this->ShapeTall(workAZ, 3 * nBands);
  VES_ASSERT_GOOD(workAZ.AllocateMem());
  this->ShapeSmall(workW, nBands, 1);
  VES_ASSERT_GOOD(workW.AllocateMem());
  this->ShapeTall(workX, nBands);
  VES_ASSERT_GOOD(workX.AllocateMem());
  this->ShapeTall(workAX, nBands);
  VES_ASSERT_GOOD(workAX.AllocateMem());
  this->ShapeTall(workP, nBands);
  VES_ASSERT_GOOD(workP.AllocateMem());
  this->ShapeTall(workR, nBands);
  VES_ASSERT_GOOD(workR.AllocateMem());
  this->ShapeSmall(workM, 3 * nBands, 3 * nBands);
  VES_ASSERT_GOOD(workM.AllocateMem());
  this->ShapeSmall(workD, 3 * nBands, 1);
  VES_ASSERT_GOOD(workD.AllocateMem());
  this->ShapeSmall(idxsConv, nBands, 1);
  VES_ASSERT_GOOD(idxsConv.AllocateMem());
  this->ShapeSmall(idxsLock, nBands, 1);
  VES_ASSERT_GOOD(idxsLock.AllocateMem());
  if (!isGeneralized) return;
  this->ShapeTall(workBZ, 3 * nBands);
  VES_ASSERT_GOOD(workBZ.AllocateMem());
  this->ShapeTall(workBX, nBands);
  VES_ASSERT_GOOD(workBX.AllocateMem());
}

template <typename Scalar>
void LOBPCG<Scalar>::InitWorkspace(const Block& vecQ, const Block&) const {
  Block vecX = Columns(workZ, 0, nBands);
  VES_ASSERT_GOOD(vecX.CopyData(vecQ));
  VES_ASSERT_GOOD(workW.Set2Val(MathConstants<Scalar>::INFTY));
}

template <typename Scalar>
void LOBPCG<Scalar>::FillOutput(Block& vecQ, Block& vecW) const {
  // Where the guess had no full rank, nBands was narrowed: zero vectors stand for what is missing.
  Block vecX = Columns(workZ, 0, vecQ.nCols);
  Block vecMissing = Columns(workZ, nBands, vecQ.nCols - nBands);
  VES_ASSERT_GOOD(vecMissing.Set2Zero());
  if (this->IsAscending(workW)) {
    VES_ASSERT_GOOD(vecQ.CopyData(vecX));
    VES_ASSERT_GOOD(vecW.CopyData(workW));
  } else {
    nR = nBands - this->CopyAscending(vecX, workW, nBands - nR, vecQ, vecW);
  }
}

template <typename Scalar>
void LOBPCG<Scalar>::FreeWorkspace() const {
  for (Block* block : {&workZ, &workAZ, &workW, &workX, &workAX, &workP, &workR, &workM, &workD,
                       &idxsConv, &idxsLock, &workBZ, &workBX})
    VES_ASSERT_GOOD(block->FreeMem());
}

template <typename Scalar>
void LOBPCG<Scalar>::CollectInfo() const {
  nConv = nBands - nR;
}

VES_INSTANTIATE(LOBPCG);

} // namespace Ves
