#ifndef VES_SOLVER_LOBPCG_H
#define VES_SOLVER_LOBPCG_H

#include "block_solver.h"

namespace Ves {

/// Locally optimal block preconditioned conjugate gradient with locking. An iteration minimizes
/// the Rayleigh quotient over span [X P R] of the active Ritz vectors X, their last directions P
/// and the preconditioned residuals R = T (A X - B X diag(D)):
///     [X P R]^H A [X P R] C = C diag(D),   X := [X P R] C_X,   P := [X P R] C_P,
/// where the basis is B-orthonormal and C_P is the part of the unconverged columns of C_X in
/// [P R], orthonormalized against C_X.
/// Knyazev, SIAM J. Sci. Comput. 23 (2001) 517; basis as in Duersch, Shao, Yang, Gu, SIAM J. Sci.
/// Comput. 40 (2018) C655.
///
/// Columns of workZ, and of its images workAZ and workBZ: X in [0, nBands), of which the locked
/// vectors are the first and the active ones the last nX; P in nP columns from nBands; R in nR
/// columns behind P. Active X, P and R are one range of nV columns.
template <typename Scalar>
class VES_EXPORT LOBPCG : public BlockSolver<Scalar> {
public:
  using Base = BlockSolver<Scalar>;
  using Base::Columns;
  using Base::info;
  using Base::isGeneralized;
  using Base::iter;
  using Base::ldQ;
  using Base::maxIter;
  using Base::mu;
  using Base::nBands;
  using Base::nConv;
  using Base::needResidualNorms;
  using Base::nPW;
  using Base::threshold;
  using typename Base::Block;

  LOBPCG() = default;

  VesReturnCode Solve(const VesMatrixBase& matA, const VesMatrixBase& matB,
                      const VesMatrixBase& matP, VesVectorBase& vecQ,
                      VesVectorBase& vecW) const override;
  /// vecQ holds the guess on entry and the eigenvectors on return, vecW the eigenvalues.
  VesReturnCode SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                           const VesMatrixBase& matP, Block& vecQ, Block& vecW) const;

  mutable int nX = 0;                 ///< active Ritz vectors
  mutable int nP = 0;                 ///< conjugate directions
  mutable int nR = 0;                 ///< residuals; before an iteration the unconverged pairs
  mutable int nV = 0;                 ///< order of the Rayleigh-Ritz problem
  mutable int nLockedTotal = 0;       ///< vectors frozen for good
  mutable int nLocked = 0;            ///< the lock detector's count at one check
  mutable int nLeadingConv = 0;       ///< leading converged pairs of the active set
  mutable int nRestarts = 0;          ///< rotations of this run that the self-check discarded
  mutable double restartResidual = 0; ///< largest residual norm after the last restart
  mutable bool isRestarted = false;   ///< this iteration discarded its rotation
  mutable bool isStagnated = false;   ///< restarts have ceased to help

  mutable Block workZ, workAZ, workBZ; ///< [X | P | R] and its images
  mutable Block workX, workAX, workBX; ///< new Ritz vectors and their images
  mutable Block workP;                 ///< scratch for new directions and their images
  mutable Block workR;                 ///< residuals of the active pairs
  mutable Block workM;                 ///< Rayleigh-Ritz matrix, then its eigenvectors
  mutable Block workD;                 ///< Ritz values of the current problem
  mutable Block workW;                 ///< eigenvalue estimates of all nBands vectors
  mutable Block idxsConv, idxsLock;    ///< flags of the detectors

private:
  // Set-up and hand-back, in lobpcg_workspace.cpp.
  void InitParameters(const Block& vecQ, const Block& vecW, const VesMatrixBase& matB) const;
  void AllocateWorkspace() const;
  void InitWorkspace(const Block& vecQ, const Block& vecW) const;
  void FillOutput(Block& vecQ, Block& vecW) const;
  void FreeWorkspace() const;
  void CollectInfo() const;

  // The start.
  void RotateInitialGuess(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void ComputeInitialResidual() const;

  // The steps of an iteration, in their order.
  void Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
               const VesMatrixBase& matP) const;
  void PreconditionedResidual(const VesMatrixBase& matP) const;
  void OrthogonalizeResidual(const VesMatrixBase& matA, const VesMatrixBase& matB,
                             const VesMatrixBase& matP) const;
  void ComputeRayleighRitzMatrix() const;
  void DiagonalizeRayleighRitzMatrix() const;
  void RotateEigVecs() const;
  void RestartUnlessSound(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void ComputeResidual() const;
  void JudgeRestart() const;
  void CheckConvergence() const;
  void ComputeConjugateDirection() const;
  void UpdateEigVecs() const;
  void CheckLocking() const;
  void UpdateEigVals() const;

  // First columns of the parts of workZ.
  int FirstActive() const { return nBands - nX; }
  int FirstP() const { return nBands; }
  int FirstR() const { return nBands + nP; }
  /// The block that holds B Z: Z itself where B is the identity.
  const Block& ImageBZ() const { return isGeneralized ? workBZ : workZ; }
  /// Eigenvalue estimates of the last count pairs.
  Block Estimates(int count) const { return Block(workW, nBands - count, 0, count, 1); }
};

VES_EXTERN_TEMPLATE(LOBPCG);

} // namespace Ves

#endif
