#ifndef VES_SOLVER_BLOCK_SOLVER_H
#define VES_SOLVER_BLOCK_SOLVER_H

#include "../data/imaged.h"
#include "../interface/solver_base.h"
#include "workspace_plan.h"

#include <cmath>
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
  using Pairs = Imaged<Scalar>; ///< vectors with their images

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
  mutable bool isBroken = false;             ///< an operator maps finite columns to others
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

  /// The blocks of a run for so many local rows and pairs.
  virtual WorkspacePlan<Scalar> Plan(int nRows, int ld, int nCols, bool generalized) const = 0;
  /// Those blocks, and what is in use only for a while: the workspace of the largest
  /// eigendecomposition or that of the orthogonalizer, as they are chosen now.
  std::size_t Memory(int nRows, int nCols, bool generalized) const override;
  VesSolverBase::RunSizes LargestSizes(int nCols) const override {
    return Plan(1, 1, nCols, false).LargestSizes();
  }

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
  VesReturnCode AllocateOnAll(const WorkspacePlan<Scalar>& plan) const;

  /// Shape of a matrix that every process holds whole.
  void ShapeSmall(Block& block, int rows, int cols) const {
    block.SetShape(rowComm, secondComm, rows, cols, rows);
  }

  /// View of columns [first, first + count) of a tall block.
  Block Columns(const Block& block, int first, int count) const {
    return Block(block, 0, first, nPW, count);
  }

  /// B-orthonormalizes count columns of a basis from first on among themselves and against those
  /// before, completes them with random columns where they lack rank, and returns the rank reached;
  /// the columns behind it are without meaning. Images under B are made and kept, those under A are
  /// not looked at.
  int OrthonormalizeGuess(const Pairs& basis, const VesMatrixBase& matB, int first,
                          int count) const;

  /// Largest orthogonality error of count columns of a basis from first on, among themselves and
  /// against those before.
  double OrthoError(const Pairs& basis, int first, int count) const;
  /// What one pass leaves of sound columns stays well below this error.
  double SoundOrthoError() const { return 0.25 * orthoTol; }

  /// max_j |x_j^H B x_j - 1|: what a rotation by orthonormal coefficients lost because its basis
  /// was not B-orthonormal. Collective: one reduction of a number per column.
  double UnitNormError(const Pairs& pairs) const;
  /// A healthy basis stays orders of magnitude below, every breakdown seen exceeds it.
  static constexpr double unitNormLimit =
      std::numeric_limits<RealType<Scalar>>::digits > 30 ? 1e-7 : 3e-4;

  /// \name Progress
  /// @{
  /// Where a run broke off on numbers that are not finite: an operator is to blame, unless X itself
  /// is not. Collective then.
  void FindCulprit(const Block& vecX) const;
  /// Takes over the norms of the last convergence test, which began at the given pair.
  void KeepResiduals(int first) const;
  /// Remembers the largest Ritz value, for what it says of the size of the operator.
  void NoteRitzValues(const Block& values) const;
  /// Leading pairs that pass the convergence test on their final residuals. Of those claimed before,
  /// each counts that stays below twice the threshold: a last rotation mixes residuals of equal
  /// values, and images that were made afresh differ by rounding errors from those tested.
  int CountConverged(const Block& residuals, const Block& values, const Block& before, Block& flags,
                     int claimed) const;
  /// Where nothing could change the values, their standing still says nothing: the estimates of
  /// pairs become unknown whose residuals are beyond rounding errors.
  void ForgetValues(const Block& residuals, const Block& vecBX, const Block& estimates) const;
  /// What is left of claims that rest on values after a rotation, which brings all pairs in order: the
  /// leading pairs whose values are those of the first claimed ones in before.
  int StandingClaims(const Block& before, int claimed, const Block& after) const;
  /// Shows the monitor where the run stands, and takes its answer. Collective when there is one.
  void Report(int iteration, const Block& estimates, int nConverged, int nLockedPairs,
              int nActivePairs) const;
  /// To be asked once an iteration. Where in 20 iterations no unconverged pair has halved its
  /// residual and all are close to what rounding allows, or none has improved by a tenth, a restart
  /// is due, once until one more converges. Where after it none improves, the operators are applied
  /// to the next pair. The run has stagnated if the images have drifted by half of its residual,
  /// which so is noise, and two more restarts did not help; or if nothing improves for 400
  /// iterations close to rounding, for 100 where a hundredth of so small a residual is noise. X
  /// holds the active vectors, the pairs first, first + 1, ...; scratch are two blocks of at least
  /// one column.
  /// \return 20 iterations have passed that lowered the residuals by less than a quarter in the mean
  bool WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB, const Pairs& active,
                     int first, const Block& values, const Block& scratch,
                     const Block& scratchImage) const;
  /// Residuals are tested so close to rounding errors that images which were only updated cannot
  /// bear claims out.
  bool IsTight(const Block& vecBX, const Block& values) const;
  double ClaimBound(Scalar value) const {
    return this->ConvergeDetector->ClaimBound(static_cast<double>(std::abs(value)), threshold);
  }
  /// Sizes of rounding errors in a residual, in units of largestRitz and the norm of B x.
  static constexpr double epsilon =
      static_cast<double>(std::numeric_limits<RealType<Scalar>>::epsilon());
  /// @}

  /// After a restart: more passes, and images of B made afresh between them, to the end of the run.
  void BeCareful() const;

  /// Gives up the pairs behind the first count: nBands falls, and their estimates become unknown.
  void NarrowBands(const Block& estimates, int count) const;

  /// Makes the columns of C B-orthonormal and B-orthogonal to Y; dependent columns are dropped, C
  /// is narrowed to the rest. Images under A are not looked at. global is false for replicated
  /// coefficient blocks.
  void ProjectAndOrthonormalize(const Pairs& y, Pairs& c, const VesMatrixBase& matB,
                                bool global) const;

  /// The values ascend, but for rounding errors.
  bool IsAscending(const Block& values) const;

  /// Copies pairs in ascending order of their values. An exact vector in the guess is locked before
  /// the lower ones are found, so that the values of a run may come out of order; of the first
  /// nConverged pairs of the source then only those count that stand before any other.
  /// \return the number of leading converged pairs of the copy
  int CopyAscending(const Block& vectors, const Block& values, int nConverged, Block& toVectors,
                    Block& toValues) const;

  /// In an unfinished run a locked pair that others have overtaken may stand in the place of one
  /// still on its way.
  struct Overtaken {
    int locked = std::numeric_limits<int>::max(); ///< pairs locked before the first such pair
    int below = std::numeric_limits<int>::max();  ///< values well below the lowest such pair
  };
  /// What is well below the value of each locked pair, taken before a last rotation mixes them, in
  /// the order of locking; nothing without the self-check. Collective.
  std::vector<double> LockedBounds(const Block& vectors, const Block& values) const;
  /// Finds the pairs below whose bound there are more values than pairs that were locked before them.
  /// Collective where there are bounds.
  Overtaken FindOvertaken(const std::vector<double>& bounds, const Block& values) const;

  /// For a run that ends with all pairs converged. The last one was found last, as the highest of
  /// those then active, and nothing below it is missing; but a wrong vector of the guess may have
  /// been locked before the lower ones were found and stand in the place of one. Brings the highest
  /// pairs above the last one, at most so many, behind it, with their values and the columns of
  /// the basis that holds them. Collective where values are out of order.
  /// \return their number
  int MoveStraysLast(const Block& values, const Pairs& basis, int most) const;

  void Replicate(int& value) const;
  void Replicate(double& value) const;
  void Replicate(std::vector<double>& values) const;
  void Replicate(std::vector<int>& values) const;
  bool AllFinite(const Pairs& pairs) const; ///< images under A are not looked at

private:
  void BroadcastToAll(void* values, std::size_t count, MPI_Datatype type) const;
  VesReturnCode SolveNothing() const; ///< a run for no pairs, which has nothing to wait for
  int Orthonormalize(const Pairs& pairs, const VesMatrixBase& matB, bool global) const;
  void FillRandom(const Pairs& pairs, const VesMatrixBase& matB, int attempt) const;
  int LeadingOrthonormal(const Pairs& pairs, double tolerance) const;
  VesSolverReason FindReason(int wanted) const;
  std::vector<double> Resolutions(const Block& vectors, const Block& values) const;
  void NoteImprovements(int last) const;
  bool IsSlow(int last) const;
  double ImageNoise(const VesMatrixBase& matA, const VesMatrixBase& matB, const Pairs& pair,
                    Scalar value, const Block& scratch, const Block& scratchImage) const;
  bool AreBelow(const Block& vecX, int first, const Block& values, double normA,
                double normB) const;

  mutable const MeteredOperator* meteredA = nullptr; ///< of the run under way
  mutable int nKept = 0; ///< leading pairs that were left when strays were taken out, in any order

  /// What is remembered while most pairs stay unconverged; forgotten when one more converges.
  struct Watch {
    int nConv = 0;                    ///< most pairs that have stood before
    int last = 0;                     ///< pairs known before
    int tests = 0;                    ///< iterations
    int gain = 0;                     ///< in this window a pair has improved (1) or halved (2)
    int idleWindows = 0;              ///< windows in a row without improvement
    int nRestarts = 0;                ///< on account of noise
    double meanLog = HUGE_VAL;        ///< mean logarithm of the residuals one window before
    std::vector<double> best, halved; ///< residuals, the largest first, at their last gains
  };
  mutable Watch watch;
};

VES_EXTERN_TEMPLATE(BlockSolver);

} // namespace Ves

#endif
