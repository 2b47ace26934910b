#ifndef VES_SOLVER_BLOCK_SOLVER_H
#define VES_SOLVER_BLOCK_SOLVER_H

#include "../data/vector_dense.h"
#include "../interface/solver_base.h"

#include <limits>

namespace Ves {

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

protected:
  BlockSolver();

  /// Takes the facts of a run from the caller's block and sets the run's tolerances.
  void ReadProblem(const Block& vecQ, const VesMatrixBase& matB) const;

  /// Both are dense blocks of the solver's scalar type.
  bool TakesBlocks(const VesVectorBase& vecQ, const VesVectorBase& vecW) const {
    return AllDense<Scalar>(vecQ, vecW);
  }

  /// Shape of a tall block of the given columns, and of a small matrix that every process holds.
  void ShapeTall(Block& block, int cols) const {
    block.SetShape(rowComm, secondComm, nPW, cols, ldQ);
  }
  void ShapeSmall(Block& block, int rows, int cols) const {
    block.SetShape(rowComm, secondComm, rows, cols, rows);
  }

  /// View of columns [first, first + count) of a tall block.
  Block Columns(const Block& block, int first, int count) const {
    return Block(block, 0, first, nPW, count);
  }

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
  void Orthonormalize(Block& vecX, Block& vecBX, const VesMatrixBase& matB, int& colRank,
                      bool global) const;
  void FillRandom(const Block& blockX, const Block& blockBX, const VesMatrixBase& matB, int first,
                  int count, int attempt) const;
  int LeadingOrthonormal(const Block& vecX, const Block& vecBX, double tolerance) const;
};

VES_EXTERN_TEMPLATE(BlockSolver);

} // namespace Ves

#endif
