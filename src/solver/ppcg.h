#ifndef VES_SOLVER_PPCG_H
#define VES_SOLVER_PPCG_H

#include "block_solver.h"

#include <vector>

namespace Ves {

/// Projected preconditioned conjugate gradient. The active vectors are cut into sub-blocks X_j of
/// at most nBatch columns; an iteration minimizes in each span [X_j P_j R_j] on its own,
///     [X_j P_j R_j]^H A [X_j P_j R_j] C = C diag(D),
///     X_j := [X_j P_j R_j] C_X,   P_j := [P_j R_j] C_PR,
/// and re-orthonormalizes the whole block. Only every rrPeriod-th iteration a Rayleigh-Ritz step
/// over the whole active block sorts the pairs and lets converged ones be locked for good.
/// Vecharynski, Yang, Pask, J. Comput. Phys. 290 (2015) 73.
///
/// Columns of workZ, and of its images workAZ and workBZ: X in [0, nBands), of which the locked
/// vectors are the first nDeflated and the active ones the last nX; P from nBands; R from 2 nBands.
/// P and R hold active columns only, packed from the start of their range.
template <typename Scalar>
class VES_EXPORT PPCG : public BlockSolver<Scalar> {
public:
  using Base = BlockSolver<Scalar>;
  using Base::check;
  using Base::Columns;
  using Base::info;
  using Base::isGeneralized;
  using Base::iter;
  using Base::iterLimit;
  using Base::ldQ;
  using Base::mu;
  using Base::nBands;
  using Base::nConv;
  using Base::nPW;
  using Base::orthoInnerTol;
  using Base::orthoTol;
  using Base::threshold;
  using typename Base::Block;
  using typename Base::Limit;
  using typename Base::Pairs;

  PPCG();

  VesReturnCode SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                           const VesMatrixBase& matP, Block& vecQ, Block& vecW) const override;
  std::unique_ptr<BlockSolver<LowType<Scalar>>> LowTwin() const override;

  WorkspacePlan<Scalar> Plan(int nRows, int ld, int nCols, bool generalized) const override;
  std::array<int, 3> OwnSettings() const override { return {softLockingType, nBatch, rrPeriod}; }

  int softLockingType = 0; ///< 0 none, 1 by the lock flags, 2 or more by the convergence flags
  mutable int nBatch = 64; ///< widest sub-block; shrinks to nBands and stays shrunk
  int rrPeriod = 5;        ///< iterations between full Rayleigh-Ritz steps; none when not positive

  mutable int nX = 0;             ///< active vectors
  mutable int nP = 0;             ///< conjugate directions
  mutable int nR = 0;             ///< active residuals
  mutable int nActive = 0;        ///< residuals of one sub-block that soft locking keeps
  mutable int nBlocks = 0;        ///< sub-blocks
  mutable int nDeflated = 0;      ///< vectors locked for good
  mutable int nConvActive = 0;    ///< leading converged pairs among the active ones
  mutable int nLocked = 0;        ///< leading pairs that pass the lock test
  mutable int nVmax = 0;          ///< side of the largest tile
  mutable bool isRotated = false; ///< the current iteration made the full Rayleigh-Ritz step
  mutable std::vector<int> nXs, nPs, nRs, nVs;  ///< widths of the sub-blocks and sides of tiles
  mutable std::vector<int> dispX, dispP, dispR; ///< first columns of the sub-blocks

  mutable Block workZ, workAZ, workBZ; ///< [X | P | R] and its images
  mutable Block workX;                 ///< scratch of the full rotation
  mutable Block workR;                 ///< residuals of the active pairs
  mutable Block workM;                 ///< X^H A X, then its eigenvectors
  mutable Block workT, workBT;         ///< one sub-block [X_j P_j R_j] side by side
  mutable Block workG;                 ///< the tiles of all sub-blocks, side by side
  mutable Block workD;                 ///< eigenvalues of the current small problem
  mutable Block workW;                 ///< eigenvalue estimates of all nBands vectors
  mutable Block idxsConv, idxsLock;    ///< flags of the detectors

  /// Cuts the active columns into sub-blocks of at most the run's width.
  void PartitionBlocks() const;

private:
  // Set-up and hand-back, in ppcg_workspace.cpp.
  void InitParameters(const Block& vecQ, const Block& vecW, const VesMatrixBase& matB) const;
  VesReturnCode AllocateWorkspace() const; ///< returns as AllocateOnAll
  void PlanSubspaces(WorkspacePlan<Scalar>& plan, int nCols, int width, bool generalized) const;
  VesReturnCode AllocateSubspaces(int width) const;
  void InitWorkspace(const Block& vecQ, const Block& vecW) const;
  void PostProcess(Block& vecQ, Block& vecW) const;
  void RecountConverged(const Block& coefficients, const Block& values) const;
  void FreeWorkspace() const;

  // What watches over a run, in ppcg_checks.cpp.
  void WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void Report() const;
  void ConfirmBlock(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  bool RefreshImages(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  bool RestartUnlessSound(const VesMatrixBase& matA, const VesMatrixBase& matB, double limit) const;
  bool RestartIfAbove(double limit, double orthoError, const VesMatrixBase& matA,
                      const VesMatrixBase& matB) const;
  double StrictError() const { return Limit::soundBlock * orthoTol; }
  bool ReplaceStrays(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void Restart(const VesMatrixBase& matA, const VesMatrixBase& matB) const;

  // The steps of an iteration, in their order; those that orthogonalize in
  // ppcg_orthogonalization.cpp, those on sub-blocks in ppcg_subspaces.cpp.
  void OrthogonalizeInitialGuess(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void Iterate(const VesMatrixBase& matA, const VesMatrixBase& matB,
               const VesMatrixBase& matP) const;
  void RayleighRitzRotation(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  double Asymmetry() const;
  void ProjectActive() const;
  double ProjectAndTest() const;
  void EstimateValues() const;
  void RotateActive() const;
  void ComputeResiduals() const;
  void RunConvergeDetector() const;
  void CheckConvergence(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void CheckLocking() const;
  void PreconditionedResiduals(const VesMatrixBase& matP) const;
  void ProjectDirections(const VesMatrixBase& matB, bool isPreconditioned) const;
  void ScaleResiduals(const std::vector<double>& norms) const;
  void SoftLocking() const;
  /// What the first steps of orthogonalization sum: of the P_j with themselves, of R with X.
  struct FirstProducts {
    KnownProducts<Scalar> ofP, ofR;
  };
  FirstProducts SumProducts(const VesMatrixBase& matB, bool isWatched) const;
  void OrthogonalizeConjugateDirections(const VesMatrixBase& matB,
                                        KnownProducts<Scalar> grams) const;
  void OrthogonalizeResiduals(const VesMatrixBase& matB, KnownProducts<Scalar> overlaps) const;
  void OrthonormalizeResidualBlocks(const VesMatrixBase& matB) const;
  void AssembleActiveResiduals(const VesMatrixBase& matA) const;
  void ComputeRayleighRitzMatrix() const;
  void SubspacesDiagonalization() const;
  void UpdateEigenVectors() const;
  void OrthogonalizeEigenVectors(const VesMatrixBase& matA, const VesMatrixBase& matB) const;
  void MergeBlocks() const;
  bool IsRotationDue() const { return iter > 0 && rrPeriod > 0 && iter % rrPeriod == 0; }

  /// workZ with its images: all of it, count columns from first on, the active ones of X.
  Pairs Z() const { return {workZ, isGeneralized ? workBZ : workZ, workAZ, isGeneralized}; }
  Pairs Z(int first, int count) const { return Z().Columns(first, count); }
  Pairs Active() const { return Z(nBands - nX, nX); }
  /// Eigenvalue estimates of the active pairs.
  Block Estimates() const { return Block(workW, nBands - nX, 0, nX, 1); }
  Block Tile(std::size_t j) const {
    return Block(workG, 0, static_cast<int>(j) * nVmax, nVs[j], nVs[j]);
  }
  /// Copies rows [first, first + rows) of X_j, P_j and R_j, of a block of the layout of workZ, side
  /// by side into the rows of workT from toRow on.
  void GatherSubspace(const Block& block, std::size_t j, int first, int rows, int toRow) const;

  void GatherDirections(const Block& from, Block& to) const;

  mutable int runBatch = 0;        ///< width of the sub-blocks in this run
  mutable int nSpan = 0;           ///< columns of workZ over which the last step is made
  mutable bool isIdle = false;     ///< nothing could change the values since the check before
  mutable bool areFresh = false;   ///< the images of X are those of the operators, or rotated once
  mutable bool isMergeDue = false; ///< sub-blocks depend on each other
  mutable int nOffered = 0;        ///< residuals of the iteration before dependent ones are dropped
  mutable double asymmetry = 0;    ///< of X^H A X that is the operator's own
  mutable double soundError = 0;   ///< orthogonality error of X that the next restart must exceed
  mutable int flagShift = 0;       ///< columns locked in this iteration, whose flags come first
};

VES_EXTERN_TEMPLATE(PPCG);

} // namespace Ves

#endif
