#ifndef VES_SOLVER_BLOCK_SOLVER_H
#define VES_SOLVER_BLOCK_SOLVER_H

#include "../data/imaged.h"
#include "../data/panelled_operator.h"
#include "../data/replicate.h"
#include "../interface/solver_base.h"
#include "../orthogonalizer/dense_orthogonalizer.h"
#include "../projector/gram_schmidt.h"
#include "deflation.h"
#include "self_check.h"
#include "shared_images.h"
#include "workspace_plan.h"

#include <algorithm>
#include <vector>

namespace Ves {

template <typename Scalar>
class InnerSteps;
struct SpectralShift;
template <typename Scalar>
class LowLeg;

/// What the block solvers share: the facts of a run that come from the caller's blocks, the
/// orthonormalization of the initial guess, and the step that makes a block of new directions
/// B-orthonormal and B-orthogonal to a basis.
template <typename Scalar>
class VES_EXPORT BlockSolver : public VesSolverBase {
public:
  using Block = VectorDense<Scalar>;
  using Pairs = Imaged<Scalar>; ///< vectors with their images
  using Limit = Tolerances<Scalar>;

  mutable int nPW = 0;              ///< local rows of every tall block
  mutable int nBands = 0;           ///< wanted pairs; fewer when the guess has no such rank
  mutable int ldQ = 1;              ///< leading dimension of every tall block
  mutable long long nRowsTotal = 0; ///< dimensions of the space that is searched
  mutable int processRank = 0;      ///< rank in the communicator of the rows
  mutable int info = 0;             ///< outcome of the last dense eigendecomposition
  mutable int iterLimit = 0;        ///< of maxIter what earlier legs of the run have left
  mutable MPI_Comm rowComm = MPI_COMM_WORLD;
  mutable MPI_Comm secondComm = MPI_COMM_SELF;
  mutable double largestRitz = 0.0;   ///< largest modulus of a Ritz value met so far
  mutable double lowestRitz = 0.0;    ///< lowest Ritz value met so far, which none of A is above
  mutable double ritzSpread = 0.0;    ///< last distance of Ritz values near the wanted ones
  mutable int settledInnerSteps = -1; ///< of the last run; -1: it did not come to choose
  mutable std::vector<double> pairResiduals; ///< of the wanted pairs when last tested, or NaN
  mutable SelfCheck<Scalar> check;           ///< what watches over the run
  mutable Deflation<Scalar> outside;         ///< the space that the run leaves out
  mutable SharedImages<Scalar> shared;       ///< of A and B, where they share work

  /// A run, with operators that count, inside the bookkeeping that every solver needs: it leaves
  /// costs and reason.
  VesReturnCode Solve(const VesMatrixBase& matA, const VesMatrixBase& matB,
                      const VesMatrixBase& matP, VesVectorBase& vecQ,
                      VesVectorBase& vecW) const override;
  /// vecQ holds the guess on entry and the eigenvectors on return, vecW the eigenvalues.
  /// \return as AllocateOnAll
  virtual VesReturnCode SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                   const VesMatrixBase& matP, Block& vecQ, Block& vecW) const = 0;

  /// A solver of the same kind in single precision, with its own settings the same; null: a run
  /// cannot begin there.
  virtual std::unique_ptr<BlockSolver<LowType<Scalar>>> LowTwin() const { return nullptr; }

  /// The blocks of a run for so many local rows and pairs.
  virtual WorkspacePlan<Scalar> Plan(int nRows, int ld, int nCols, bool generalized) const = 0;
  /// Those blocks, and what is in use only for a while: the workspace of the largest
  /// eigendecomposition or that of the orthogonalizer, as they are chosen now.
  std::size_t Memory(int nRows, int nCols, bool generalized) const override;
  long long DenseOrder(int nCols) const override { return Plan(1, 1, nCols, false).denseOrder; }

protected:
  BlockSolver();

  bool UsesB(const VesMatrixBase& matB) const {
    return problemType == VES_PROBLEM_GENERALIZED && matB.IsPresent();
  }
  /// Leading pairs, of so many, whose convergence ends a run.
  int Goal(int nPairs) const {
    return wantedPairs > 0 && !earlier.wasCut ? std::min(wantedPairs, nPairs) : nPairs;
  }

  /// Takes the facts of a run from the caller's block, sets its tolerances, and forgets the run
  /// before.
  void ReadProblem(const Block& vecQ, const VesMatrixBase& matB) const;

  /// Installs lock detector and rank revealer: those the caller chose, or else these.
  void InstallRunComponents(VesConvergeDetectorType lock, VesOrthogonalizerType rank) const;

  /// Storage for the blocks of a run, before anything is computed: on all processes or on none.
  /// Collective over both communicators, with reductions that do not count as those of the run, and
  /// that tell how wide a block the operators may be given.
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

  /// Largest orthogonality error of count columns of a basis from first on, among themselves,
  /// against those before and what is deflated.
  double OrthoError(const Pairs& basis, int first, int count) const;
  /// Where the components take products that were summed for them along with others; null for a
  /// component that takes none.
  KnownProducts<Scalar>* PlaceOfGrams() const;
  KnownProducts<Scalar>* PlaceOfOverlaps() const;
  /// Passes around orthogonalizer and projector, and within them.
  int Passes() const { return RaisedPasses(maxOrthoIter); }
  int InnerPasses() const { return RaisedPasses(maxOrthoInnerIter); }
  /// What passes around them go on for.
  double PassTol() const { return check.IsCareful() ? Limit::carefulOrthogonalizer : orthoTol; }

  /// max_j |x_j^H B x_j - 1|: what a rotation by orthonormal coefficients lost because its basis
  /// was not B-orthonormal. Collective: one reduction of a number per column.
  double UnitNormError(const Pairs& pairs) const;
  /// The same by the squares of the norms.
  double UnitNormError(const std::vector<Scalar>& squares) const;

  /// \name Progress
  /// @{
  /// Takes over the norms of the last convergence test, which began at the given pair.
  void KeepResiduals(int first) const;
  /// Remembers the largest Ritz value, for what it says of the size of the operator.
  void NoteRitzValues(const Block& values) const;
  /// Ends the run where the wanted pairs have converged before the others; shows the monitor where
  /// it stands, and takes its answer. Collective when there is one.
  void Report(int iteration, const Block& estimates, int nConverged, int nLockedPairs,
              int nActivePairs) const;
  /// @}

  /// Gives up the pairs behind the first count: nBands falls, and their estimates become unknown.
  void NarrowBands(const Block& estimates, int count) const;

  /// Gives columns unit length in the B product; those without length become zero columns.
  void Normalize(const Pairs& c, bool global) const;
  /// The same unless a process holds a NaN or an infinity in them, with one reduction for both.
  /// Collective. \return none does
  bool NormalizeIfFinite(const Pairs& c) const;

  /// Makes the columns of C, which are of unit length, B-orthonormal and B-orthogonal to Y;
  /// dependent columns are dropped, C is narrowed to the rest. Images under A are not looked at.
  /// global is false for replicated coefficient blocks.
  void ProjectAndOrthonormalize(const Pairs& y, Pairs& c, const VesMatrixBase& matB,
                                bool global) const;

  /// The same where A and B share work: C is projected before its images are made, so that one call
  /// makes both for vectors that hardly change any more, and both are then kept in step. What is
  /// not finite sets info.
  void ProjectAndOrthonormalizeShared(const Pairs& y, Pairs& c, const VesMatrixBase& matB) const;

  /// The values ascend, but for rounding errors.
  bool IsAscending(const Block& values) const;

  /// Copies pairs in ascending order of their values. An exact vector in the guess is locked before
  /// the lower ones are found, so that the values of a run may come out of order; of the first
  /// nConverged pairs of the source then only those count that stand before any other.
  /// \return the number of leading converged pairs of the copy
  int CopyAscending(const Block& vectors, const Block& values, int nConverged, Block& toVectors,
                    Block& toValues) const;

  /// Values of process 0 for all, over both communicators. Collective.
  template <typename Value>
  void Replicate(Value& value) const {
    Ves::Replicate(&value, 1, rowComm, secondComm);
  }
  template <typename Value>
  void Replicate(std::vector<Value>& values) const {
    Ves::Replicate(values.data(), static_cast<int>(values.size()), rowComm, secondComm);
  }
  /// No process holds a NaN or an infinity in the vectors and their images under B. Collective.
  bool AllFinite(const Pairs& pairs) const;
  /// Nor does this one. Local.
  bool HoldsFinite(const Pairs& pairs) const;

private:
  friend class SelfCheck<Scalar>;

  /// Below the lowest value of the problem, as far as a run can tell: the closer, the fewer
  /// iterations.
  SpectralShift InnerShift() const;
  VesReturnCode BeginDeflation(const Block& vecQ, const VesMatrixBase& matB) const;
  void EndDeflation() const;
  VesReturnCode BeginInner(InnerSteps<Scalar>& inner, const Block& vecQ,
                           const VesMatrixBase& matB) const;
  VesReturnCode BeginLow(LowLeg<Scalar>& low, const VesMatrixBase& matA, const VesMatrixBase& matB,
                         const VesMatrixBase& matP, Block& vecQ) const;
  /// A run is one leg, or two where the wanted pairs had converged but not all were confirmed: the
  /// second goes on from the vectors until all pairs have, since only then what stands among them
  /// in error is taken out. \return as SolveDense of the first leg
  VesReturnCode SolveInLegs(const VesMatrixBase& matA, const VesMatrixBase& matB,
                            const VesMatrixBase& matP, Block& vecQ, Block& vecW) const;
  VesReturnCode SolveNothing() const; ///< a run for no pairs, which has nothing to wait for
  int Orthonormalize(const Pairs& pairs, const VesMatrixBase& matB, bool global) const;
  void FillRandom(const Pairs& pairs, const VesMatrixBase& matB, int attempt) const;
  int LeadingOrthonormal(const Pairs& pairs, double tolerance) const;
  int RaisedPasses(int limit) const {
    return check.IsCareful() ? std::max(limit, Limit::carefulPasses) : limit;
  }

  mutable const MeteredOperator* meteredA = nullptr; ///< of the run under way
  mutable ColumnPanels panels;                       ///< known once storage has been agreed on
  /// What earlier legs of the run under way have taken.
  struct Taken {
    int iterations = 0;
    long long columnsA = 0;
    bool isLast = false; ///< no further iterations are made
    bool wasCut = false; ///< wanted pairs had converged, but turned out not to be the lowest
  };
  mutable Taken earlier;
};

VES_EXTERN_TEMPLATE(BlockSolver);

} // namespace Ves

#endif
