#include "block_solver.h"

#include "../data/finite_entries.h"
#include "../data/metered_operator.h"
#include "../orthogonalizer/pass_loop.h"
#include "../parallel/agreement.h"
#include "../parallel/blacs_wrapper.h"
#include "../parallel/mpi_wrapper.h"
#include "../parallel/run_meter.h"

#include <algorithm>
#include <limits>
#include <new>
#include <vector>

namespace Ves {

template <typename Scalar>
BlockSolver<Scalar>::BlockSolver() {
  MathKernel<Scalar>::SetScalarType(scalarType);
  InstallComponents();
}

template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::Solve(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                         const VesMatrixBase& matP, VesVectorBase& vecQ,
                                         VesVectorBase& vecW) const {
  if (!AllDense<Scalar>(vecQ, vecW)) return VES_ERR_UNSUPPORTED;
  if (vecQ.nCols == 0) return SolveNothing();
  const RunMeter meter;
  const double start = MPI_Wtime();
  const int givenOrthoIter = maxOrthoIter, givenInnerIter = maxOrthoInnerIter;
  const int givenIter = iter, givenConv = nConv;
  const MeteredOperator a(matA), b(matB), t(matP);
  meteredA = &a;
  const VesReturnCode code = SolveDense(a, b, t, AsDense<Scalar>(vecQ), AsDense<Scalar>(vecW));
  meteredA = nullptr;
  maxOrthoIter = givenOrthoIter;
  maxOrthoInnerIter = givenInnerIter;
  if (code != VES_GOOD) { // what is known of the run before stays
    iter = givenIter;
    nConv = givenConv;
    return code;
  }
  stats = {};
  stats.columnsA = a.columns;
  stats.columnsB = b.columns;
  stats.columnsT = t.columns;
  stats.reductions = meter.reductions;
  stats.bytesReduced = meter.bytesReduced;
  stats.secondsOperators = a.seconds + b.seconds + t.seconds;
  stats.secondsDense = meter.secondsDense;
  stats.secondsTotal = MPI_Wtime() - start;
  reason = FindReason(vecQ.nCols);
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::SolveNothing() const {
  iter = nConv = 0;
  stats = {};
  reason = VES_REASON_CONVERGED;
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::AllocateOnAll(const WorkspacePlan<Scalar>& plan) const {
  plan.Shape(rowComm, secondComm);
  VesReturnCode verdict = VES_GOOD;
  try {
    plan.Allocate();
  } catch (const std::bad_alloc&) {
    verdict = VES_ERR_INVALID_VALUE;
  }
  for (const MPI_Comm comm : {rowComm, secondComm})
    verdict = AgreeOn(verdict, {}, comm);
  if (verdict != VES_GOOD) plan.Free();
  return verdict;
}

/// An eigendecomposition keeps two squares of its order beside the matrix, and two more on the
/// process grid. SVD QR takes a tall scratch block and the Gram matrix.
template <typename Scalar>
std::size_t BlockSolver<Scalar>::Memory(int nRows, int nCols, bool generalized) const {
  const WorkspacePlan<Scalar> plan = Plan(nRows, nRows, nCols, generalized);
  const auto order = static_cast<std::size_t>(plan.denseOrder),
             widest = static_cast<std::size_t>(plan.widestBlock);
  const bool usesGrid = denseEigenSolverType == VES_SCALAPACK_DIAG && plan.denseOrder >= gridFrom;
  const std::size_t decomposition = (usesGrid ? 4 : 2) * order * order;
  const std::size_t scratch =
      static_cast<std::size_t>(std::max(nRows, 1)) * (widest + 1) + widest * widest;
  return plan.Bytes() +
         sizeof(Scalar) * std::max(decomposition, orthogonalizerType == VES_SVD_QR ? scratch : 0);
}

template <typename Scalar>
void BlockSolver<Scalar>::ReadProblem(const Block& vecQ, const VesMatrixBase& matB) const {
  nPW = vecQ.nRows;
  nBands = vecQ.nCols;
  ldQ = vecQ.ld;
  rowComm = vecQ.comm;
  secondComm = vecQ.auxComm;
  MPI_Comm_rank(rowComm, &processRank);
  nRowsTotal = nPW;
  ReduceInPlace(&nRowsTotal, 1, MPI_LONG_LONG, MPI_SUM, rowComm);
  isGeneralized = problemType == VES_PROBLEM_GENERALIZED && matB.IsPresent();
  orthoTol = 256.0 * static_cast<double>(std::numeric_limits<RealType<Scalar>>::epsilon());
  orthoInnerTol = orthoTol;
  info = 0;
  isStagnated = isStopped = isBroken = isRestartDue = isCareful = false;
  largestRitz = 0.0;
  pairResiduals.assign(static_cast<std::size_t>(nBands), std::nan(""));
  watch = Watch();
  nKept = 0;
}

template <typename Scalar>
void BlockSolver<Scalar>::InstallRunComponents(VesConvergeDetectorType lock,
                                               VesOrthogonalizerType rank) const {
  VES_ASSERT_GOOD(this->SetLockDetector(chosenLockDetector.value_or(lock)));
  VES_ASSERT_GOOD(this->SetRankRevealer(chosenRankRevealer.value_or(rank)));
}

/// One call of the orthogonalizer. A Gram matrix that cannot be decomposed, as a NaN from an
/// operator leaves it, means that no column is known to be independent. \return the rank
template <typename Scalar>
int BlockSolver<Scalar>::Orthonormalize(const Pairs& pairs, const VesMatrixBase& matB,
                                        bool global) const {
  int colRank = pairs.Count();
  const VesReturnCode code = VES_ASSERT_GOOD_OR(
      VES_ERR_INCOMPATIBLE, this->Orthogonalizer->Run(pairs.X, pairs.BX, matB, colRank, global,
                                                      maxOrthoInnerIter, orthoInnerTol));
  return code == VES_GOOD ? colRank : 0;
}

/// The orthogonalizer's rank is confirmed before it is believed: a dependent column may pass its
/// test by a rounding error and is then anything but orthonormal. Broken columns are replaced by
/// random ones, lost orthogonality is mended by another pass, and what still fails in the end is
/// cut off. A sound guess takes one pass and one check.
template <typename Scalar>
int BlockSolver<Scalar>::OrthonormalizeGuess(const Pairs& basis, const VesMatrixBase& matB,
                                             int first, int count) const {
  constexpr int maxRepairs = 4;
  constexpr double brokenColumn = 0.1;
  const int full = static_cast<int>(std::clamp<long long>(nRowsTotal - first, 0, count));
  const Pairs before = basis.Columns(0, first), guess = basis.Columns(first, count);
  guess.RefreshB(matB);
  for (int refills = 0, repairs = 0;;) {
    VES_ASSERT_GOOD(this->OrthoProjector->Run(before.X, before.BX, guess.X, guess.BX, matB, true,
                                              maxOrthoInnerIter, orthoInnerTol));
    const int colRank = std::min(Orthonormalize(guess, matB, true), full);
    if (OrthoError(basis, first, colRank) <= SoundOrthoError()) {
      if (colRank == full) return colRank;
      if (refills >= maxOrthoIter) { // random columns were tried: only B can have spoiled them
        isBroken = isBroken || (isGeneralized && !AllFinite(guess));
        return colRank;
      }
      ++refills;
      FillRandom(guess.Columns(colRank, count - colRank), matB, refills + repairs);
    } else {
      const Pairs lead = guess.Columns(0, colRank);
      if (repairs == maxRepairs) return LeadingOrthonormal(lead, unitNormLimit);
      ++repairs;
      // Images that were only updated drift from B X, and no pass on them can mend that.
      guess.RefreshB(matB);
      const int nSound = LeadingOrthonormal(lead, brokenColumn);
      if (nSound < colRank)
        FillRandom(guess.Columns(nSound, count - nSound), matB, refills + repairs);
    }
  }
}

template <typename Scalar>
double BlockSolver<Scalar>::OrthoError(const Pairs& basis, int first, int count) const {
  const Pairs pairs = basis.Columns(first, count);
  double among = 0.0, against = 0.0;
  VES_ASSERT_GOOD(pairs.X.CheckOrthogonality(pairs.BX, among, true, true));
  VES_ASSERT_GOOD(basis.Columns(0, first).BX.CheckOrthogonality(pairs.X, against, false, true));
  double worst = std::isnan(against) ? against : std::max(among, against);
  Replicate(worst);
  return worst;
}

/// Random columns and their B-images; the seed is attempt^2 (1 + rank)^2 in 32-bit
/// arithmetic, of which only the low bits enter and the sign must stay out.
template <typename Scalar>
void BlockSolver<Scalar>::FillRandom(const Pairs& pairs, const VesMatrixBase& matB,
                                     int attempt) const {
  const unsigned factor = static_cast<unsigned>(attempt) * (1 + static_cast<unsigned>(processRank));
  const int seed = static_cast<int>((factor * factor) & 0x7fffffffU);
  VES_ASSERT_GOOD(pairs.X.Set2Random(seed));
  pairs.RefreshB(matB);
}

/// Number of leading columns that are orthonormal among themselves.
template <typename Scalar>
int BlockSolver<Scalar>::LeadingOrthonormal(const Pairs& pairs, double tolerance) const {
  const int n = pairs.Count();
  Block gram;
  ShapeSmall(gram, n, n);
  VES_ASSERT_GOOD(gram.AllocateMem());
  VES_ASSERT_GOOD(gram.InnerProduct(pairs.X, pairs.BX));
  int leading = 0;
  const auto isSound = [&](int j) {
    for (int i = 0; i <= j; ++i) {
      const Scalar expected = i == j ? MathConstants<Scalar>::ONE : MathConstants<Scalar>::ZERO;
      if (!(static_cast<double>(std::abs(gram(i, j) - expected)) <= tolerance)) return false;
    }
    return true;
  };
  while (leading < n && isSound(leading))
    ++leading;
  Replicate(leading);
  return leading;
}

/// Values of process 0 for all: over the rows, then over the second communicator, where replicas of
/// the run may deal their rows out differently and so differ in rounding.
template <typename Scalar>
void BlockSolver<Scalar>::BroadcastToAll(void* values, std::size_t count, MPI_Datatype type) const {
  for (MPI_Comm comm : {rowComm, secondComm})
    MPI_Bcast(values, static_cast<int>(count), type, 0, comm);
}

template <typename Scalar>
void BlockSolver<Scalar>::Replicate(int& value) const {
  BroadcastToAll(&value, 1, MPI_INT);
}

template <typename Scalar>
void BlockSolver<Scalar>::Replicate(double& value) const {
  BroadcastToAll(&value, 1, MPI_DOUBLE);
}

template <typename Scalar>
void BlockSolver<Scalar>::Replicate(std::vector<int>& values) const {
  BroadcastToAll(values.data(), values.size(), MPI_INT);
}

template <typename Scalar>
void BlockSolver<Scalar>::Replicate(std::vector<double>& values) const {
  BroadcastToAll(values.data(), values.size(), MPI_DOUBLE);
}

/// No process holds a NaN or an infinity in the vectors and their images under B. Collective.
template <typename Scalar>
bool BlockSolver<Scalar>::AllFinite(const Pairs& pairs) const {
  const auto isClean = [&](const Block& block) {
    for (int j = 0; j < block.nCols; ++j)
      if (!std::all_of(block.Column(j), block.Column(j) + nPW, IsFinite<Scalar>)) return false;
    return true;
  };
  int isFinite = isClean(pairs.X) && (!pairs.HasB() || isClean(pairs.BX)) ? 1 : 0;
  ReduceInPlace(&isFinite, 1, MPI_INT, MPI_MIN, rowComm);
  Replicate(isFinite);
  return isFinite == 1;
}

template <typename Scalar>
void BlockSolver<Scalar>::BeCareful() const {
  constexpr int carefulPasses = 3;
  isCareful = true;
  maxOrthoIter = std::max(maxOrthoIter, carefulPasses);
  maxOrthoInnerIter = std::max(maxOrthoInnerIter, carefulPasses);
}

template <typename Scalar>
void BlockSolver<Scalar>::NarrowBands(const Block& estimates, int count) const {
  Block unknown(estimates, count, 0, nBands - count, 1);
  VES_ASSERT_GOOD(unknown.Set2Val(MathConstants<Scalar>::INFTY));
  nBands = count;
}

template <typename Scalar>
void BlockSolver<Scalar>::ProjectAndOrthonormalize(const Pairs& y, Pairs& c,
                                                   const VesMatrixBase& matB, bool global) const {
  VES_ASSERT_GOOD(c.X.Normalize(c.BX, global));
  RestoreZeroColumns(c.X, c.BX);
  RepeatPasses(
      maxOrthoIter, orthoTol, secondComm,
      [&](bool) {
        VES_ASSERT_GOOD(this->OrthoProjector->Run(y.X, y.BX, c.X, c.BX, matB, global,
                                                  maxOrthoInnerIter, orthoInnerTol));
        c.Narrow(Orthonormalize(c, matB, global));
        return VES_GOOD;
      },
      [&] {
        double orthoError = 0.0;
        VES_ASSERT_GOOD(y.BX.CheckOrthogonality(c.X, orthoError, false, true));
        return orthoError;
      });
}

template <typename Scalar>
double BlockSolver<Scalar>::UnitNormError(const Pairs& pairs) const {
  const int n = pairs.Count();
  std::vector<Scalar> s(static_cast<std::size_t>(n) + 1); // never null storage
  for (int j = 0; j < n; ++j)
    s[static_cast<std::size_t>(j)] = MathKernel<Scalar>::Dot(
        &nPW, &pairs.X(0, j), &MathConstants<int>::ONE, &pairs.BX(0, j), &MathConstants<int>::ONE);
  MpiWrapper<Scalar>::AllReduce(s.data(), static_cast<unsigned long>(n), MPI_SUM, rowComm);
  double worst = 0.0;
  for (int j = 0; j < n; ++j) {
    const double error =
        static_cast<double>(std::abs(s[static_cast<std::size_t>(j)] - MathConstants<Scalar>::ONE));
    if (!(error <= worst))
      worst = std::isnan(error) ? std::numeric_limits<double>::infinity() : error;
  }
  Replicate(worst);
  return worst;
}

VES_INSTANTIATE(BlockSolver);

} // namespace Ves
