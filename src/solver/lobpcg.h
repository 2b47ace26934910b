#ifndef VES_SOLVER_LOBPCG_H
#define VES_SOLVER_LOBPCG_H

#include "lobpcg_steps.h"

namespace Ves {

/// Locally optimal block preconditioned conjugate gradient with locking: all wanted vectors are
/// iterated at once, from a Rayleigh-Ritz rotation of the guess, until all have converged. What is
/// left of them goes on behind those locked, so that P begins at column nBands of workZ.
template <typename Scalar>
class VES_EXPORT LOBPCG : public LobpcgSteps<Scalar> {
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
  using Base::nR;
  using Base::nV;
  using Base::nX;
  using Base::nXseek;
  using Base::workD;
  using Base::workW;
  using Base::workZ;
  using typename Base::Block;

  LOBPCG() = default;

  VesReturnCode SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                           const VesMatrixBase& matP, Block& vecQ, Block& vecW) const override;
  std::unique_ptr<BlockSolver<LowType<Scalar>>> LowTwin() const override;

private:
  void InitParameters(const Block& vecQ, const Block& vecW, const VesMatrixBase& matB) const;
  void InitWorkspace(const Block& vecQ, const Block& vecW) const;
  void FillOutput(Block& vecQ, Block& vecW) const;

  void RotateInitialGuess(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void ComputeInitialResidual(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  bool ReplaceStrays() const;
  void Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
               const VesMatrixBase& matP) const;
};

VES_EXTERN_TEMPLATE(LOBPCG);

} // namespace Ves

#endif
