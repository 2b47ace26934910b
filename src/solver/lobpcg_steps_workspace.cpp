#include "lobpcg_steps.h"

#include <algorithm>

namespace Ves {

template <typename Scalar>
void LobpcgSteps<Scalar>::ResetCounters() const {
  nX = nP = nR = nXnxt = nXseek = nV = 0;
  nDeflated = nLocked = nLeadingConv = nRestarts = 0;
  nConv = 0;
  isRestarted = isStagnated = false;
}

template <typename Scalar>
void LobpcgSteps<Scalar>::AllocateWorkspace(int mostActive) const {
  const int nZ = nBands + 2 * mostActive, nVmax = std::max(3 * mostActive, nBands);
  this->ShapeTall(workZ, nZ);
  VES_ASSERT_GOOD(workZ.AllocateMem());
  this->ShapeTall(workAZ, nZ);
  VES_ASSERT_GOOD(workAZ.AllocateMem());
  this->ShapeSmall(workW, nBands, 1);
  VES_ASSERT_GOOD(workW.AllocateMem());
  this->ShapeTall(workX, nBands);
  VES_ASSERT_GOOD(workX.AllocateMem());
  this->ShapeTall(workAX, mostActive);
  VES_ASSERT_GOOD(workAX.AllocateMem());
  this->ShapeTall(workP, mostActive);
  VES_ASSERT_GOOD(workP.AllocateMem());
  this->ShapeTall(workR, mostActive);
  VES_ASSERT_GOOD(workR.AllocateMem());
  this->ShapeSmall(workM, nVmax, nVmax);
  VES_ASSERT_GOOD(workM.AllocateMem());
  this->ShapeSmall(workD, nVmax, 1);
  VES_ASSERT_GOOD(workD.AllocateMem());
  this->ShapeSmall(idxsConv, mostActive, 1);
  VES_ASSERT_GOOD(idxsConv.AllocateMem());
  this->ShapeSmall(idxsLock, mostActive, 1);
  VES_ASSERT_GOOD(idxsLock.AllocateMem());
  if (!isGeneralized) return;
  this->ShapeTall(workBZ, nZ);
  VES_ASSERT_GOOD(workBZ.AllocateMem());
  this->ShapeTall(workBX, mostActive);
  VES_ASSERT_GOOD(workBX.AllocateMem());
}

template <typename Scalar>
void LobpcgSteps<Scalar>::FreeWorkspace() const {
  for (Block* block : {&workZ, &workAZ, &workW, &workX, &workAX, &workP, &workR, &workM, &workD,
                       &idxsConv, &idxsLock, &workBZ, &workBX})
    VES_ASSERT_GOOD(block->FreeMem());
}

template <typename Scalar>
int LobpcgSteps<Scalar>::HandBack(int nConverged, Block& vecQ, Block& vecW) const {
  const Block vecX = Columns(workZ, 0, vecQ.nCols);
  if (!this->IsAscending(workW)) return this->CopyAscending(vecX, workW, nConverged, vecQ, vecW);
  VES_ASSERT_GOOD(vecQ.CopyData(vecX));
  VES_ASSERT_GOOD(vecW.CopyData(workW));
  return nConverged;
}

VES_INSTANTIATE(LobpcgSteps);

} // namespace Ves
