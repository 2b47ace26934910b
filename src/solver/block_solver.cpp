#include "block_solver.h"

#include "../data/finite_entries.h"
#include "../parallel/agreement.h"
#include "../parallel/blacs_wrapper.h"
#include "../parallel/run_meter.h"
#include "../parallel/thread_team.h"
#include "inner_steps.h"
#include "low_leg.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>
#include <vector>

namespace Ves {

template <typename Scalar>
BlockSolver<Scalar>::BlockSolver() : check(*this) {
  MathKernel<Scalar>::SetScalarType(scalarType);
  InstallComponents();
}

template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::Solve(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                         const VesMatrixBase& matP, VesVectorBase& vecQ,
                                         VesVectorBase& vecW) const {
  if (!AllDense<Scalar>(vecQ, vecW)) return VES_ERR_UNSUPPORTED;
  if (vecQ.nCols == 0) return SolveNothing();
  const ThreadTeam team(threads);
  const RunMeter meter;
  const double start = MPI_Wtime();
  const PanelledOperator<Scalar> a(matA, panels), b(matB, panels), t(matP, panels);
  meteredA = &a;
  Block& vecX = AsDense<Scalar>(vecQ);
  VesReturnCode code = BeginDeflation(vecX, b);
  const DeflatedOperator<Scalar> seenA(a, outside, DeflatedOperator<Scalar>::images),
      seenT(t, outside, DeflatedOperator<Scalar>::vectors);
  InnerSteps<Scalar> inner(seenA, b, seenT, UsesB(matB), InnerPace(innerSteps, a, b, t),
                           [&] { return InnerShift(); });
  if (UsesB(matB)) shared = SharedImages<Scalar>(matA, matB, a, b, outside);
  LowLeg<Scalar> low(*this, vecX);
  const VesMatrixBase* preconditioner = &seenT;
  if (innerSteps != 0) {
    preconditioner = &inner;
    if (code == VES_GOOD) code = BeginInner(inner, vecX, matB);
  }
  if (code == VES_GOOD && mixedPrecision) code = BeginLow(low, matA, matB, matP, vecX);
  inner.Pace().TakeOver(low.InnerSteps());
  if (code == VES_GOOD) code = SolveInLegs(seenA, b, *preconditioner, vecX, AsDense<Scalar>(vecW));
  settledInnerSteps = inner.Pace().Settled();
  EndDeflation();
  meteredA = nullptr;
  shared = {};
  earlier = {};
  if (code != VES_GOOD) return code;
  stats = {};
  for (const auto* const op : {&a, &b, &t})
    stats.secondsOperators += op->seconds;
  stats.columnsA = a.columns;
  stats.columnsB = b.columns;
  stats.columnsT = t.columns;
  meter.AddTo(stats);
  low.AddTo(stats);
  stats.secondsTotal = MPI_Wtime() - start;
  reason = check.Reason(Goal(vecQ.nCols));
  const bool isOpen = reason == VES_REASON_ITERATIONS || reason == VES_REASON_STAGNATED;
  if (low.IsStopped() && isOpen) reason = VES_REASON_MONITOR;
  return VES_GOOD;
}

/// Makes the space of the run and sets the projector that keeps it out. Collective where there is
/// one. \return -1 there is no storage for it, its columns are not finite or B is not definite on
/// them, or nothing is left beside it
template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::BeginDeflation(const Block& vecQ,
                                                  const VesMatrixBase& matB) const {
  if (deflation == nullptr) return VES_GOOD;
  ReadProblem(vecQ, matB);
  const Block& given = AsDense<Scalar>(*deflation);
  const VesReturnCode code = AllocateOnAll(outside.Plan(nPW, given.nCols, isGeneralized));
  if (code != VES_GOOD) return code;
  this->OrthoProjector =
      std::make_unique<DeflatingProjector<Scalar>>(std::move(this->OrthoProjector), outside);
  return outside.Take(given, matB) && outside.Rank() < nRowsTotal ? VES_GOOD
                                                                  : VES_ERR_INVALID_VALUE;
}

template <typename Scalar>
void BlockSolver<Scalar>::EndDeflation() const {
  outside.End();
  if (auto* const projector = dynamic_cast<DeflatingProjector<Scalar>*>(OrthoProjector.get()))
    OrthoProjector = projector->Release();
}

/// So far below the lowest Ritz value that few values lie below it long before that has converged.
template <typename Scalar>
SpectralShift BlockSolver<Scalar>::InnerShift() const {
  const double distance = 0.1 * ritzSpread;
  return {lowestRitz - distance, distance};
}

template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::BeginInner(InnerSteps<Scalar>& inner, const Block& vecQ,
                                              const VesMatrixBase& matB) const {
  ReadProblem(vecQ, matB);
  return AllocateOnAll(inner.Plan(nPW, ldQ, nBands));
}

/// A run that cannot have its workspace is refused before its guess is replaced. One that the
/// monitor has ended makes no more iterations.
template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::BeginLow(LowLeg<Scalar>& low, const VesMatrixBase& matA,
                                            const VesMatrixBase& matB, const VesMatrixBase& matP,
                                            Block& vecQ) const {
  ReadProblem(vecQ, matB);
  const WorkspacePlan<Scalar> plan = Plan(nPW, ldQ, nBands, isGeneralized);
  if (const VesReturnCode code = AllocateOnAll(plan); code != VES_GOOD) return code;
  plan.Free();
  low.Run(matA, matB, matP, vecQ);
  earlier = {low.Iterations(), low.ColumnsA(), low.IsStopped(), false};
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode BlockSolver<Scalar>::SolveInLegs(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                               const VesMatrixBase& matP, Block& vecQ,
                                               Block& vecW) const {
  for (;;) {
    const int givenIter = iter, givenConv = nConv;
    const VesReturnCode code = SolveDense(matA, matB, matP, vecQ, vecW);
    if (code != VES_GOOD) { // what is known of the run or leg before stays
      iter = givenIter;
      nConv = givenConv;
      if (!earlier.wasCut) return code;
      break;
    }
    earlier.iterations += iter;
    const bool isCut = check.IsSatisfied() && nConv < Goal(vecQ.nCols);
    if (!isCut || earlier.iterations >= maxIter) break;
    earlier.wasCut = true;
  }
  iter = earlier.iterations;
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
  VesReturnCode verdict = VES_GOOD;
  try {
    plan.Shape(rowComm, secondComm);
    plan.Allocate();
  } catch (const std::bad_alloc&) {
    verdict = VES_ERR_INVALID_VALUE;
  }
  int largestLd = ldQ;
  for (const MPI_Comm comm : {rowComm, secondComm})
    verdict = AgreeOnLargest(verdict, largestLd, comm);
  panels = ColumnPanels::Of(largestLd);
  if (verdict != VES_GOOD) plan.Free();
  return verdict;
}

/// Squares of its order that an eigendecomposition keeps beside the matrix. Those of ELPA are of
/// double precision.
template <typename Scalar>
std::size_t SquaresBeside(VesDenseEigenSolverType kind, long long order) {
  const bool isDealtOut = order >= gridFrom;
  switch (kind) {
  case VES_SCALAPACK_DIAG:
    return isDealtOut ? 4 : 2;
  case VES_ELPA_DIAG:
  case VES_ELPA_TWO_STAGE_DIAG:
    return isDealtOut ? 6 * sizeof(double) / sizeof(RealType<Scalar>) : 2;
  case VES_LAPACK_DIAG:
  case VES_LAPACK_LOWEST_DIAG:
    break;
  }
  return 2;
}

/// SVD QR takes a tall scratch block and the Gram matrix.
template <typename Scalar>
std::size_t BlockSolver<Scalar>::Memory(int nRows, int nCols, bool generalized) const {
  const WorkspacePlan<Scalar> plan = Plan(nRows, nRows, nCols, generalized);
  const auto order = static_cast<std::size_t>(plan.denseOrder),
             widest = static_cast<std::size_t>(plan.widestBlock);
  const std::size_t decomposition =
      SquaresBeside<Scalar>(denseEigenSolverType, plan.denseOrder) * order * order;
  const std::size_t scratch =
      static_cast<std::size_t>(std::max(nRows, 1)) * (widest + 1) + widest * widest;
  const std::size_t own =
      plan.Bytes() +
      sizeof(Scalar) * std::max(decomposition, orthogonalizerType == VES_SVD_QR ? scratch : 0);
  const std::size_t inner =
      innerSteps != 0 ? InnerSteps<Scalar>::Bytes(nRows, nCols, generalized) : 0;
  const std::size_t left =
      deflation != nullptr ? Deflation<Scalar>().Plan(nRows, deflation->nCols, generalized).Bytes()
                           : 0;
  const std::size_t low =
      mixedPrecision ? LowLeg<Scalar>::Memory(*this, nRows, nCols, generalized) : 0;
  return left + inner + std::max(own, low);
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
  nRowsTotal -= outside.Rank();
  isGeneralized = UsesB(matB);
  orthoTol = Limit::orthogonalizer;
  orthoInnerTol = orthoTol;
  iterLimit = earlier.isLast ? 0 : maxIter - earlier.iterations;
  info = 0;
  largestRitz = ritzSpread = 0.0;
  lowestRitz = std::numeric_limits<double>::infinity();
  pairResiduals.assign(static_cast<std::size_t>(nBands), std::nan(""));
  check.Begin();
}

template <typename Scalar>
void BlockSolver<Scalar>::InstallRunComponents(VesConvergeDetectorType lock,
                                               VesOrthogonalizerType rank) const {
  VES_ASSERT_GOOD(this->SetLockDetector(chosenLockDetector.value_or(lock)));
  VES_ASSERT_GOOD(this->SetRankRevealer(chosenRankRevealer.value_or(rank)));
}

template <typename Scalar>
bool BlockSolver<Scalar>::HoldsFinite(const Pairs& pairs) const {
  const auto isClean = [&](const Block& block) {
    for (int j = 0; j < block.nCols; ++j)
      if (!std::all_of(block.Column(j), block.Column(j) + nPW, IsFinite<Scalar>)) return false;
    return true;
  };
  return isClean(pairs.X) && (!pairs.HasB() || isClean(pairs.BX));
}

template <typename Scalar>
bool BlockSolver<Scalar>::AllFinite(const Pairs& pairs) const {
  int isFinite = HoldsFinite(pairs) ? 1 : 0;
  ReduceInPlace(&isFinite, 1, MPI_INT, MPI_MIN, rowComm);
  Replicate(isFinite);
  return isFinite == 1;
}

template <typename Scalar>
KnownProducts<Scalar>* BlockSolver<Scalar>::PlaceOfGrams() const {
  auto* const taker = dynamic_cast<DenseOrthogonalizer<Scalar>*>(Orthogonalizer.get());
  return taker != nullptr ? &taker->knownGrams : nullptr;
}

template <typename Scalar>
KnownProducts<Scalar>* BlockSolver<Scalar>::PlaceOfOverlaps() const {
  VesOrthoProjector* projector = OrthoProjector.get();
  if (auto* const deflating = dynamic_cast<DeflatingProjector<Scalar>*>(projector))
    projector = &deflating->Inner();
  auto* const taker = dynamic_cast<GramSchmidt<Scalar>*>(projector);
  return taker != nullptr ? &taker->knownOverlaps : nullptr;
}

template <typename Scalar>
void BlockSolver<Scalar>::NarrowBands(const Block& estimates, int count) const {
  Block unknown(estimates, count, 0, nBands - count, 1);
  VES_ASSERT_GOOD(unknown.Set2Val(MathConstants<Scalar>::INFTY));
  nBands = count;
}

template <typename Scalar>
void BlockSolver<Scalar>::KeepResiduals(int first) const {
  const std::vector<double>& norms = this->ConvergeDetector->residualNorms;
  std::copy(norms.begin(), norms.end(), pairResiduals.begin() + first);
}

template <typename Scalar>
void BlockSolver<Scalar>::NoteRitzValues(const Block& values) const {
  for (int j = 0; j < values.nRows; ++j)
    largestRitz = std::max(largestRitz, static_cast<double>(std::abs(values(j))));
  if (values.nRows < 1) return;
  const auto first = static_cast<double>(std::real(values(0)));
  lowestRitz = std::min(lowestRitz, first);
  ritzSpread = static_cast<double>(std::real(values((values.nRows - 1) / 3))) - first;
}

template <typename Scalar>
void BlockSolver<Scalar>::Report(int iteration, const Block& estimates, int nConverged,
                                 int nLockedPairs, int nActivePairs) const {
  if (nConverged >= Goal(nBands) && nConverged < nBands) check.Satisfy();
  if (monitor == nullptr || earlier.isLast) return;
  std::vector<double> values(pairResiduals.size(), std::numeric_limits<double>::infinity());
  for (int j = 0; j < estimates.nRows; ++j)
    values[static_cast<std::size_t>(j)] = static_cast<double>(std::real(estimates(j)));
  const VesProgress progress{earlier.iterations + iteration,
                             static_cast<int>(values.size()),
                             nConverged,
                             nLockedPairs,
                             nActivePairs,
                             values.data(),
                             pairResiduals.data(),
                             earlier.columnsA + (meteredA != nullptr ? meteredA->columns : 0)};
  const ThreadTeam::Rest rest;
  int answer = monitor(monitorData, &progress) != 0 ? 1 : 0;
  Replicate(answer);
  if (answer != 0) check.Stop();
}

template <typename Scalar>
bool BlockSolver<Scalar>::IsAscending(const Block& values) const {
  constexpr auto rounding = static_cast<RealType<Scalar>>(Limit::equalValues * Limit::epsilon);
  for (int j = 1; j < values.nRows; ++j) {
    const RealType<Scalar> before = std::real(values(j - 1)), here = std::real(values(j));
    if (before > here + rounding * std::max(std::abs(before), std::abs(here))) return false;
  }
  return true;
}

template <typename Scalar>
int BlockSolver<Scalar>::CopyAscending(const Block& vectors, const Block& values, int nConverged,
                                       Block& toVectors, Block& toValues) const {
  std::vector<int> order(static_cast<std::size_t>(values.nRows));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](int a, int b) { return std::real(values(a)) < std::real(values(b)); });
  for (int j = 0; j < values.nRows; ++j) {
    const int from = order[static_cast<std::size_t>(j)];
    Block to = Columns(toVectors, j, 1);
    VES_ASSERT_GOOD(to.CopyData(Columns(vectors, from, 1)));
    toValues(j) = values(from);
  }
  const auto firstOther =
      std::find_if(order.begin(), order.end(), [&](int from) { return from >= nConverged; });
  int count = static_cast<int>(firstOther - order.begin());
  Replicate(count);
  return count;
}

VES_INSTANTIATE(BlockSolver);

} // namespace Ves
