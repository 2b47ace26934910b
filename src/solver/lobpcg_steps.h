#ifndef VES_SOLVER_LOBPCG_STEPS_H
#define VES_SOLVER_LOBPCG_STEPS_H

#include "block_solver.h"

namespace Ves {

/// What the two locally optimal solvers share. An iteration minimizes the Rayleigh quotient over
/// span [X P R N] of the active Ritz vectors X, their last directions P, the preconditioned
/// residuals R = T (A X - B X diag(D)) and columns N that are new in this iteration, if any:
///     [X P R N]^H A [X P R N] C = C diag(D),   X := [X P R N] C_X,   P := [X P R N] C_P,
/// where the basis is B-orthonormal, C_X are the nXseek lowest eigenvectors, and C_P is the part of
/// the unconverged columns of C_X in [P R], orthonormalized against C_X.
/// Knyazev, SIAM J. Sci. Comput. 23 (2001) 517; basis as in Duersch, Shao, Yang, Gu, SIAM J. Sci.
/// Comput. 40 (2018) C655.
///
/// Columns of workZ, and of its images workAZ and workBZ, from the left: nDeflated locked vectors,
/// X (nX), P (nP), R (nR), N (nXnxt). The last nV = nX + nP + nR + nXnxt are the basis.
template <typename Scalar>
class VES_EXPORT LobpcgSteps : public BlockSolver<Scalar> {
public:
  using Base = BlockSolver<Scalar>;
  using Base::check;
  using Base::Columns;
  using Base::info;
  using Base::isGeneralized;
  using Base::iter;
  using Base::ldQ;
  using Base::mu;
  using Base::nBands;
  using Base::nConv;
  using Base::needResidualNorms;
  using Base::nPW;
  using Base::threshold;
  using typename Base::Block;
  using typename Base::Limit;
  using typename Base::Pairs;

  mutable int nX = 0;           ///< active Ritz vectors
  mutable int nP = 0;           ///< conjugate directions
  mutable int nR = 0;           ///< residuals; before an iteration the unconverged pairs
  mutable int nXnxt = 0;        ///< columns that are new in the iteration
  mutable int nImaged = 0;      ///< of R, those whose images under A were made with those under B
  mutable int nXseek = 0;       ///< Ritz vectors that the iteration keeps
  mutable int nV = 0;           ///< order of the Rayleigh-Ritz problem
  mutable int nDeflated = 0;    ///< vectors locked for good
  mutable int nLocked = 0;      ///< leading pairs locked at the last check
  mutable int nLeadingConv = 0; ///< leading converged pairs among those kept
  mutable int nClaimable = 0;   ///< pairs that can be said to have converged
  mutable int nActiveMax = 0;   ///< Ritz vectors that there is room for
  mutable int freshFrom = 0;    ///< first column whose images come from the operators
  mutable bool isUncertain = false; ///< converged pairs are to be counted anew at the end

  mutable Block workZ, workAZ, workBZ; ///< locked vectors and basis, and their images
  mutable Block workX, workAX, workBX; ///< new Ritz vectors and their images
  mutable Block workP;                 ///< scratch for a band of rows of what is rotated in place
  mutable Block workR;                 ///< residuals of the Ritz vectors kept
  mutable Block workM;                 ///< Rayleigh-Ritz matrix, then its eigenvectors
  mutable Block workD;                 ///< Ritz values of the current problem
  mutable Block workW;                 ///< eigenvalue estimates of all nBands vectors
  mutable Block idxsConv, idxsLock;    ///< flags of the detectors

  WorkspacePlan<Scalar> Plan(int nRows, int ld, int nCols, bool generalized) const override;

protected:
  // Set-up and hand-back, in lobpcg_steps_workspace.cpp.

  /// Counters of a run that has neither vectors nor directions yet.
  void ResetCounters() const;
  /// Most Ritz vectors that a run for so many pairs keeps active.
  virtual int MostActive(int nCols) const { return nCols; }
  VesReturnCode AllocateWorkspace() const; ///< returns as AllocateOnAll
  void FreeWorkspace() const;
  /// Makes sure of the leading pairs, as many as are known, before they are handed back. Where they
  /// have lost their orthonormality, or claim residuals close to rounding errors, their images are
  /// made afresh, they are orthonormalized and rotated, and the converged ones counted again. What
  /// was locked early and keeps others from converging is rotated with them, too.
  void ConfirmResult(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  /// At the end of a run of which all pairs converged, the self-check takes out those that may
  /// stand in the place of others, at most so many: what is left is locked. \return their number
  int DropStrays(int most) const;
  /// Copies nBands pairs in ascending order and returns how many of the nConverged leading ones
  /// still stand before all others.
  int HandBack(int nConverged, Block& vecQ, Block& vecW) const;

  // Steps of an iteration.

  void AddResiduals(const VesMatrixBase& matP) const;
  /// R against all columns before it, then in itself. Output of T or B that is not finite sets
  /// info.
  void OrthogonalizeResidual(const VesMatrixBase& matB, const VesMatrixBase& matP) const;
  void OrthogonalizeShared(const VesMatrixBase& matB) const;
  /// B-orthonormalizes the count columns of workZ from first on, whose images under B are in place,
  /// against all before and in themselves; count becomes the rank.
  void OrthogonalizeBehind(int first, int& count, const VesMatrixBase& matB) const;
  /// The same for columns of unit length.
  void OrthonormalizeBehind(int first, int& count, const VesMatrixBase& matB) const;
  void ApplyMatrixA(const VesMatrixBase& matA) const;
  void ComputeRayleighRitzMatrix() const;
  void DiagonalizeRayleighRitzMatrix() const;
  void RayleighRitzOfBasis() const;
  void RotateEigVecs() const;
  /// \return the rotation was discarded
  bool RestartUnlessSound(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void ComputeResidual() const;
  void JudgeRestart() const;
  void CheckConvergence(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void ComputeConjugateDirection() const;
  void UpdateEigVecs() const;
  void CheckLocking() const;
  void UpdateEigVals() const;
  void WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void Report() const;

  // First columns of the parts of workZ.
  int FirstP() const { return nDeflated + nX; }
  int FirstR() const { return FirstP() + nP; }
  int FirstNew() const { return FirstR() + nR; }

  /// Columns of workZ with their images: all, and count from first on.
  Pairs Z() const { return {workZ, isGeneralized ? workBZ : workZ, workAZ, isGeneralized}; }
  Pairs Z(int first, int count) const { return Z().Columns(first, count); }
  /// The basis [X P R N] of the iteration.
  Pairs V() const { return Z(nDeflated, nV); }
  /// The new Ritz vectors, beside the old basis.
  Pairs NewX() const { return {workX, isGeneralized ? workBX : workX, workAX, isGeneralized}; }
  /// Eigenvalue estimates of the first count active pairs.
  Block Estimates(int count) const { return Block(workW, nDeflated, 0, count, 1); }
  /// More columns than those before them leave room for would be made of rounding errors.
  int RoomBehind(int first, int wanted) const;

private:
  void MoveNewBehindX() const;
  void SettleCutCluster(int nVectors) const;
  void FormResidual() const;
  void ForgetIdleValues() const;
  void RunConvergeDetector() const;
  void ConfirmPairs(const VesMatrixBase& matA, const VesMatrixBase& matB,
                    const std::vector<double>& bounds) const;
  void RotateAll() const;
  void RecountConverged() const;
  int MoveStraysLast(int most) const;
};

VES_EXTERN_TEMPLATE(LobpcgSteps);

} // namespace Ves

#endif
