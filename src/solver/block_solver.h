#ifndef VES_SOLVER_BLOCK_SOLVER_H
#define VES_SOLVER_BLOCK_SOLVER_H

#include "../data/vector_dense.h"
#include "../interface/solver_base.h"

#include <limits>
#include <vector>

namespace Ves {

class MeteredOperator;

/// What the block solvers share: the facts of a run that come from the caller's blocks, the
/// orthonormalization of the initial guess, and the step that makes a block of new directions
/// B-orthonormal and B-orthogonal to a basis.
template <typename Scalar>
class VES_EXPORT BlockSolver : public VesSolverBase {
public:
  using Block = VectorDense<Scalar>;

  mutable int nPW = 0;              ///< local rows of every tall block
  mutable int nBands = 0;           ///< wanted pairs; fewer when the guess has no such rank
  mutable int ldQ = 1;              ///< leading dimension of every tall block
  mutable long long nRowsTotal = 0; ///< rows of the distributed blocks on all processes
  mutable int processRank = 0;      ///< rank in the communicator of the rows
  mutable int info = 0;             ///< outcome of the last dense eigendecomposition
  mutable MPI_Comm rowComm = MPI_COMM_WORLD;
  mutable MPI_Comm secondComm = MPI_COMM_SELF;
  mutable bool isStagnated = false;          ///< rounding allows no further progress
  mutable bool isStopped = false;            ///< the monitor asked for the end
  mutable bool isBroken = false;             ///< B does not map finite columns to finite ones
  mutable bool isRestartDue = false;         ///< noise keeps a pair from the floor of rounding
  mutable bool isCareful = false;            ///< a restart has shown that more care is needed
  mutable double largestRitz = 0.0;          ///< largest modulus of a Ritz value met so far
  mutable std::vector<double> pairResiduals; ///< of the wanted pairs when last tested, or NaN

  /// A run, with operators that count, inside the bookkeeping that every solver needs: it leaves
  /// costs and reason, and the pass limits as the caller gave them, since a restart raises them for
  /// the rest of its run.
  VesReturnCode Solve(const VesMatrixBase& matA, const VesMatrixBase& matB,
                      const VesMatrixBase& matP, VesVectorBase& vecQ,
                      VesVectorBase& vecW) const override;
  /// vecQ holds the guess on entry and the eigenvectors on return, vecW the eigenvalues.
  /// \return as AllocateOnAll
  virtual VesReturnCode SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                   const VesMatrixBase& matP, Block& vecQ, Block& vecW) const = 0;

protected:
  BlockSolver();

  /// Takes the facts of a run from the caller's block, sets its tolerances, and forgets the run
  /// before.
  void ReadProblem(const Block& vecQ, const VesMatrixBase& matB) const;

  /// Installs lock detector and rank revealer: those the caller chose, or else these.
  void InstallRunComponents(VesConvergeDetectorType lock, VesOrthogonalizerType rank) const;

  /// Storage for the blocks of a run, before anything is computed: on all processes or on none.
  /// Collective over both communicators, with reductions that do not count as those of the run.
  /// \return -1 some process cannot have it, and none keeps any; 0
  VesReturnCode AllocateOnAll(const std::vector<Block*>& blocks) const;

  /// Shape of a tall block of the given columns, and of a small matrix that every process holds.
  void ShapeTall(Block& block, int cols) const {
    block.SetShape(rowComm, secondComm, nPW, cols, ldQ);
  }
  /// Scratch of Rotate for blocks of up to the given columns.
  void ShapeBand(Block& block, int cols) const {
    const int rows = RowsOfBand(nPW);
    block.SetShape(rowComm, secondComm, rows, cols, rows);
  }
  void ShapeSmall(Block& block, int rows, int cols) const {
    block.SetShape(rowComm, secondComm, rows, cols, rows);
  }

  /// View of columns [first, first + count) of a tall block.
  Block Columns(const Block& block, int first, int count) const {
    return Block(block, 0, first, nPW, count);
  }

  /// target := source C. The target may be columns of the source: bands of rows go through scratch,
  /// shaped by ShapeBand or a tall block, at least as wide as C, and stay in the cache on their way.
  void Rotate(const Block& source, const Block& coefficients, const Block& target,
              Block& scratch) const;
  static constexpr int bandRows = 1024;
  static int RowsOfBand(int nRows) { return nRows < bandRows ? nRows : bandRows; }

  /// B-orthonormalizes count columns of blockX from first on among themselves and against those
  /// before, with images in blockBX (the same block when B is the identity), completes them with
  /// random columns where they lack rank, and returns the rank reached; the columns behind it are
  /// without meaning.
  int OrthonormalizeGuess(const Block& blockX, const Block& blockBX, const VesMatrixBase& matB,
                          int first, int count) const;

  /// Largest orthogonality error of count columns from first on, among themselves and against those
  /// before.
  double OrthoError(const Block& blockX, const Block& blockBX, int first, int count) const;
  /// What one pass leaves of sound columns stays well below this error.
  double SoundOrthoError() const { return 0.25 * orthoTol; }

  /// max_j |x_j^H B x_j - 1|: what a rotation by orthonormal coefficients lost because its basis
  /// was not B-orthonormal. Collective: one reduction of a number per column.
  double UnitNormError(const Block& vecX, const Block& vecBX) const;
  /// A healthy basis stays orders of magnitude below, every breakdown seen exceeds it.
  static constexpr double unitNormLimit =
      std::numeric_limits<RealType<Scalar>>::digits > 30 ? 1e-7 : 3e-4;

  /// Bytes of tall blocks with the given columns in total, and of small matrices: one of the given
  /// entries beside what is in use only for a while, the workspace of an eigendecomposition of the
  /// given order or that of the orthogonalizer for a block of the given width.
  std::size_t Bytes(int nRows, std::size_t columns, std::size_t smallEntries, std::size_t evdOrder,
                    std::size_t widest) const;

  /// \name Progress
  /// @{
  /// Takes over the norms of the last convergence test, which began at the given pair.
  void KeepResiduals(int first) const;
  /// Remembers the largest Ritz value, for what it says of the size of the operator.
  void NoteRitzValues(const Block& values) const;
  /// Leading pairs that pass the convergence test on their final residuals. Of those claimed before,
  /// each counts that stays below twice the threshold: a last rotation mixes residuals of equal
  /// values, and images that were made afresh differ by rounding errors from those tested.
  int CountConverged(const Block& residuals, const Block& values, const Block& before, Block& flags,
                     int claimed) const;
  /// The test of convergence lets pairs pass whose values no longer change.
  bool TestsValues() const {
    return convergeDetectorType == VES_EIGENVALUES ||
           convergeDetectorType == VES_RESIDUALS_OR_EIGENVALUES;
  }
  /// Where nothing could change the values, their standing still says nothing: the estimates of
  /// pairs become unknown whose residuals are beyond rounding errors.
  void ForgetValues(const Block& residuals, const Block& vecBX, const Block& estimates) const;
  /// What is left of claims that rest on values after a rotation, which brings all pairs in order: the
  /// leading pairs whose values are those of the first claimed ones in before.
  int StandingClaims(const Block& before, int claimed, const Block& after) const;
  /// Shows the monitor where the run stands, and takes its answer. Collective when there is one.
  void Report(int iteration, const Block& estimates, int nConverged, int nLockedPairs,
              int nActivePairs) const;
  /// To be asked once an iteration. Where the count of converged pairs has not grown and the
  /// residual of the next pair has not halved for long, and the residuals of all active pairs have
  /// come close to what rounding allows, the run has stagnated; where noise keeps them above for
  /// long, a restart is due. X holds the active vectors, the
  /// pairs first, first + 1, ...; scratch are two blocks of at least one column.
  void WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB, const Block& vecX,
                     const Block& vecBX, int first, const Block& values, const Block& scratch,
                     const Block& scratchImage) const;
  /// The claims of convergence lie so close to rounding errors that images which were only updated
  /// cannot bear them out.
  bool IsTight(const Block& vecBX, const Block& values) const;
  /// Sizes of rounding errors in a residual, in units of largestRitz and the norm of B x.
  static constexpr double epsilon =
      static_cast<double>(std::numeric_limits<RealType<Scalar>>::epsilon());
  /// @}

  /// After a restart: more passes, and images of B made afresh between them, to the end of the run.
  void BeCareful() const;

  /// Gives up the pairs behind the first count: nBands falls, and their estimates become unknown.
  void NarrowBands(const Block& estimates, int count) const;

  /// Makes the count columns of C B-orthonormal and B-orthogonal to Y; dependent columns are
  /// dropped, C, BC and count narrowed to the rest. BY and BC are Y and C where B is the identity.
  /// global is false for replicated coefficient blocks.
  void ProjectAndOrthonormalize(const Block& vecY, const Block& vecBY, Block& vecC, Block& vecBC,
                                const VesMatrixBase& matB, int& count, bool global) const;

  /// The values ascend, but for rounding errors.
  bool IsAscending(const Block& values) const;

  /// Copies pairs in ascending order of their values. An exact vector in the guess is locked before
  /// the lower ones are found, so that the values of a run may come out of order; of the first
  /// nConverged pairs of the source then only those count that stand before any other.
  /// \return the number of leading converged pairs of the copy
  int CopyAscending(const Block& vectors, const Block& values, int nConverged, Block& toVectors,
                    Block& toValues) const;

  void Replicate(int& value) const;
  void Replicate(double& value) const;
  bool AllFinite(const Block& vecX, const Block& vecBX) const;

private:
  VesReturnCode SolveNothing() const; ///< a run for no pairs, which has nothing to wait for
  void Orthonormalize(Block& vecX, Block& vecBX, const VesMatrixBase& matB, int& colRank,
                      bool global) const;
  void FillRandom(const Block& blockX, const Block& blockBX, const VesMatrixBase& matB, int first,
                  int count, int attempt) const;
  int LeadingOrthonormal(const Block& vecX, const Block& vecBX, double tolerance) const;
  VesSolverReason FindReason(int wanted) const;
  double NormEstimate(const VesMatrixBase& op, const Block& scratch,
                      const Block& scratchImage) const;

  mutable const MeteredOperator* meteredA = nullptr; ///< of the run under way
  bool ResidualsBelow(const Block& vecX, int first, const Block& values, double normA,
                      double normB) const;

  /// What is remembered of a pair that does not converge.
  struct Watch {
    int nConv = 0;        ///< most pairs that have stood before it
    int tests = 0;        ///< since it became the next one, or has improved while close
    bool isClose = false; ///< to rounding errors: it is tested in every iteration
    bool hasRestarted = false;
    double best = std::numeric_limits<double>::infinity(); ///< residual at the last progress
    double normA = 0.0, normB = 0.0;                       ///< estimates, once close
  };
  mutable Watch watch;
};

VES_EXTERN_TEMPLATE(BlockSolver);

} // namespace Ves

#endif
