#ifndef VES_SOLVER_LOBPCG_BATCH_H
#define VES_SOLVER_LOBPCG_BATCH_H

#include "lobpcg_steps.h"

#include <algorithm>

namespace Ves {

/// Locally optimal block preconditioned conjugate gradient on a moving batch. At most batchLimit
/// vectors are iterated at once. Converged ones are locked at the front, and when the batch has
/// fallen below half its size, it is refilled from the guess, whose columns are taken in order;
/// random columns make up for dependent ones. So the dense problems stay small however many pairs
/// are wanted, and the work grows with nBands times the batch, not with the square of nBands.
///
/// The pass with iter = -1 loads the first batch; the one with iter = iterLimit is the last and
/// only brings what remains of the guess into the result.
template <typename Scalar>
class VES_EXPORT LOBPCG_BATCH : public LobpcgSteps<Scalar> {
public:
  using Base = LobpcgSteps<Scalar>;
  using Base::check;
  using Base::Columns;
  using Base::info;
  using Base::iter;
  using Base::iterLimit;
  using Base::nBands;
  using Base::nConv;
  using Base::nDeflated;
  using Base::nLeadingConv;
  using Base::nLocked;
  using Base::nP;
  using Base::nR;
  using Base::nX;
  using Base::nXnxt;
  using Base::nXseek;
  using Base::workW;
  using Base::workZ;
  using typename Base::Block;

  LOBPCG_BATCH();

  VesReturnCode SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                           const VesMatrixBase& matP, Block& vecQ, Block& vecW) const override;
  std::unique_ptr<BlockSolver<LowType<Scalar>>> LowTwin() const override;

  std::array<int, 3> OwnSettings() const override { return {batchLimit, batchStart}; }

  int batchLimit = 256; ///< most vectors iterated at once, from the next run on
  int batchStart = 0;   ///< vectors iterated at once to begin with; 0: as many as may be

  mutable int nXseekMax = 0; ///< size of a full batch
  mutable int nRand = 0;     ///< random columns of the pass
  mutable int nAdded = 0;    ///< columns of the guess taken so far

private:
  using Base::Estimates;
  using Base::FirstNew;
  using Base::Z;

  void InitParameters(const Block& vecQ, const Block& vecW, const VesMatrixBase& matB) const;
  void FillOutput(Block& vecQ, Block& vecW) const;

  void Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB, const VesMatrixBase& matP,
               const Block& vecQ) const;
  bool DropStrays() const;
  void ExtendBasis(const VesMatrixBase& matA, const VesMatrixBase& matB, const VesMatrixBase& matP,
                   const Block& vecQ) const;
  void AddNewVectors(const Block& vecQ) const;
  void OrthogonalizeNewVectors(const VesMatrixBase& matB) const;
  void AddRandomVectors() const;
  void OrthogonalizeRandomVectors(const VesMatrixBase& matB) const;
  void CheckLocking() const;
  void RefillBatch() const;
  void FinishRun() const;

  int MostActive(int nCols) const override { return std::min(nCols, batchLimit); }
  void RetireBatch() const;

  mutable bool isLastPass = false; ///< the pass only completes the result
};

VES_EXTERN_TEMPLATE(LOBPCG_BATCH);

} // namespace Ves

#endif
