#include "low_leg.h"

#include "../data/finite_entries.h"
#include "../detector/flag_pairs.h"
#include "../parallel/agreement.h"
#include "../parallel/thread_team.h"
#include "block_solver.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

namespace Ves {
namespace {

/// Multiples of epsilon times the largest Ritz value: the threshold to begin with, the most it is
/// raised to, and where residuals that come to a stand are held up by rounding.
constexpr double lowestFloor = 32.0, highestFloor = 512.0, closeToFloor = 1024.0;
/// Iterations without an improvement by a tenth that raise the floor.
constexpr int patience = 3;
/// ... that end the leg, wherever it is.
constexpr int mostIdle = 20;

} // namespace

template <typename Scalar>
LowLeg<Scalar>::LowLeg(const BlockSolver<Scalar>& run, const Block& vecQ)
    : m_run(run), m_vecX(vecQ.comm, vecQ.auxComm, vecQ.nRows, vecQ.nCols, vecQ.nRows),
      m_vecD(vecQ.comm, vecQ.auxComm, vecQ.nCols, 1, vecQ.nCols),
      m_vecY(vecQ.comm, vecQ.auxComm, vecQ.nRows,
             run.deflation != nullptr ? run.deflation->nCols : 0, vecQ.nRows),
      m_scratch(vecQ), m_first(static_cast<std::size_t>(vecQ.nCols), std::nan("")), m_last(m_first),
      m_floor(lowestFloor) {}

template <typename Scalar>
LowLeg<Scalar>::~LowLeg() = default;

template <typename Scalar>
void LowLeg<Scalar>::Run(const VesMatrixBase& matA, const VesMatrixBase& matB,
                         const VesMatrixBase& matP, Block& vecQ) {
  if (m_run.maxIter > 1) m_twin = m_run.LowTwin();
  if (!m_twin || !Lower(vecQ)) return Release();
  Configure();
  const LoweredOperator<Scalar> a(matA, m_scratch), b(matB, m_scratch), t(matP, m_scratch);
  const ThreadTeam::Rest rest; // the twin makes a team of its own
  const VesReturnCode code = m_twin->Solve(a, b, t, m_vecX, m_vecD);
  if (code == VES_GOOD && IsGain()) Raise(vecQ);
  Replicate(m_isStopped, vecQ); // process 0 answers for all
  Release();
}

/// The settings of the run, but that pairs are locked when they have converged, by their residuals,
/// since nothing is gained by going on with them here, and that half of the iterations are left.
template <typename Scalar>
void LowLeg<Scalar>::Configure() {
  m_twin->TakeSettings(m_run);
  m_twin->maxIter = (m_run.maxIter + 1) / 2;
  m_twin->mu = 1.0;
  m_twin->chosenLockDetector.reset();
  VES_ASSERT_GOOD(m_twin->SetConvergeDetector(VES_RESIDUALS));
  m_twin->monitor = Follow;
  m_twin->monitorData = this;
  if (m_run.deflation != nullptr) m_twin->deflation = &m_vecY;
}

/// Columns of the guess with unit norm, which none of them leaves the range of single precision by.
/// \return false: no process has them, since one lacks the storage or a number is none
template <typename Scalar>
bool LowLeg<Scalar>::Lower(const Block& vecQ) {
  VesReturnCode verdict = VES_GOOD;
  try {
    m_scratch.Allocate();
    for (LowBlock* const block : {&m_vecX, &m_vecD, &m_vecY})
      VES_ASSERT_GOOD(block->AllocateMem());
  } catch (const std::bad_alloc&) {
    verdict = VES_ERR_INVALID_VALUE;
  }
  for (const MPI_Comm comm : {vecQ.comm, vecQ.auxComm})
    verdict = AgreeOn(verdict, {}, comm);
  if (verdict != VES_GOOD) return false;
  m_vecY.nCols = m_run.outside.Rank();
  // A space that was never made is on no communicator.
  const bool isLeft = m_vecY.nCols == 0 || LowerColumns(m_run.outside.Vectors(), m_vecY);
  return isLeft && LowerColumns(vecQ, m_vecX);
}

/// Copies with unit norm. \return all are finite
template <typename Scalar>
bool LowLeg<Scalar>::LowerColumns(const Block& from, LowBlock& to) {
  std::vector<double> norms = ColumnNorms(from);
  Replicate(norms.data(), from.nCols, from.comm, from.auxComm);
  for (int j = 0; j < from.nCols; ++j) {
    const double norm = norms[static_cast<std::size_t>(j)];
    if (!std::isfinite(norm)) return false;
    const auto factor = static_cast<RealType<Scalar>>(norm > 0.0 ? 1.0 / norm : 1.0);
    std::transform(from.Column(j), from.Column(j) + from.nRows, to.Column(j),
                   [&](const Scalar& value) { return static_cast<Low>(factor * value); });
  }
  return true;
}

/// The twin's vectors are a guess: all of them, none without a value, and on the whole closer to
/// the lowest pairs than what it was given. Replicated.
template <typename Scalar>
bool LowLeg<Scalar>::IsGain() const {
  if (m_twin->reason == VES_REASON_NONFINITE) return false;
  double gain = 0.0;
  bool isComplete = true;
  for (int j = 0; j < m_vecD.nRows; ++j) {
    const auto at = static_cast<std::size_t>(j);
    isComplete = isComplete && IsFinite(m_vecD(j));
    const double known = std::log(m_first[at]) - std::log(m_last[at]);
    gain += std::isnan(known) ? 1.0 : known;
  }
  int isGain = isComplete && gain > std::log(2.0) * m_vecD.nRows ? 1 : 0;
  Replicate(isGain, m_vecX);
  return isGain != 0;
}

template <typename Scalar>
void LowLeg<Scalar>::Raise(Block& vecQ) const {
  Convert(m_vecX, vecQ);
}

template <typename Scalar>
void LowLeg<Scalar>::Release() {
  for (LowBlock* const block : {&m_vecX, &m_vecD, &m_vecY})
    VES_ASSERT_GOOD(block->FreeMem());
  m_scratch.Free();
}

template <typename Scalar>
int LowLeg<Scalar>::Follow(void* self, const VesProgress* progress) {
  auto& leg = *static_cast<LowLeg*>(self);
  leg.NoteResiduals(*progress);
  leg.AdjustThreshold(*progress);
  if (leg.m_run.monitor != nullptr && leg.m_run.monitor(leg.m_run.monitorData, progress) != 0)
    leg.m_isStopped = 1;
  return leg.m_isStopped != 0 || leg.IsAtEnd(*progress) ? 1 : 0;
}

/// A guess may be better than single precision can be: the threshold is known after the start. From
/// then on the twin ends by itself, with all its checks, unless it comes no further.
template <typename Scalar>
bool LowLeg<Scalar>::IsAtEnd(const VesProgress& progress) const {
  if (m_nIdle >= mostIdle) return true;
  if (progress.iteration > 0) return false;
  const int wanted =
      m_run.wantedPairs > 0 ? std::min(m_run.wantedPairs, progress.wanted) : progress.wanted;
  return std::all_of(progress.residuals, progress.residuals + wanted,
                     [&](double residual) { return residual < m_twin->threshold; });
}

template <typename Scalar>
void LowLeg<Scalar>::NoteResiduals(const VesProgress& progress) {
  for (std::size_t j = 0; j < m_first.size(); ++j) {
    if (std::isnan(progress.residuals[j])) continue;
    if (std::isnan(m_first[j])) m_first[j] = progress.residuals[j];
    m_last[j] = progress.residuals[j];
  }
}

/// Of the threshold of the run, with a value that is known, and the floor the larger one holds.
template <typename Scalar>
void LowLeg<Scalar>::AdjustThreshold(const VesProgress& progress) {
  constexpr double epsilon = static_cast<double>(std::numeric_limits<RealType<Low>>::epsilon());
  const double rounding = epsilon * m_twin->largestRitz;
  if (progress.converged < progress.wanted) {
    const double next = progress.residuals[progress.converged];
    const bool isSame = progress.converged == m_converged && !(next < 0.9 * m_best);
    m_nIdle = isSame ? m_nIdle + 1 : 0;
    if (!isSame) m_best = next;
    m_converged = progress.converged;
    if (m_nIdle >= patience && next < closeToFloor * rounding && m_floor < highestFloor) {
      m_floor *= 2.0;
      m_nIdle = 0;
    }
  }
  double bound = std::numeric_limits<double>::infinity();
  for (int j = 0; j < progress.wanted; ++j)
    if (std::isfinite(progress.values[j]))
      bound = std::min(bound,
                       m_run.check.ClaimBound(static_cast<RealType<Scalar>>(progress.values[j])));
  double threshold = std::isfinite(bound) ? std::max(bound, m_floor * rounding) : m_run.threshold;
  Replicate(threshold, m_vecX);
  m_twin->threshold = threshold;
}

template <typename Scalar>
int LowLeg<Scalar>::Iterations() const {
  return m_twin ? m_twin->iter : 0;
}

template <typename Scalar>
int LowLeg<Scalar>::InnerSteps() const {
  return m_twin ? m_twin->settledInnerSteps : m_run.innerSteps;
}

template <typename Scalar>
long long LowLeg<Scalar>::ColumnsA() const {
  return m_twin ? m_twin->stats.columnsA : 0;
}

template <typename Scalar>
void LowLeg<Scalar>::AddTo(VesSolverStats& stats) const {
  if (!m_twin) return;
  const VesSolverStats& low = m_twin->stats;
  stats.columnsLow = low.columnsA;
  stats.columnsA += low.columnsA;
  stats.columnsB += low.columnsB;
  stats.columnsT += low.columnsT;
  stats.reductions += low.reductions;
  stats.bytesReduced += low.bytesReduced;
  stats.secondsOperators += low.secondsOperators;
  stats.secondsDense += low.secondsDense;
}

template <typename Scalar>
std::size_t LowLeg<Scalar>::Memory(const BlockSolver<Scalar>& run, int nRows, int nCols,
                                   bool generalized) {
  const auto twin = run.LowTwin();
  if (!twin) return 0;
  twin->TakeSettings(run);
  const auto rows = static_cast<std::size_t>(std::max(nRows, 1));
  const std::size_t left =
      run.deflation != nullptr ? static_cast<std::size_t>(run.deflation->nCols) + 1 : 0;
  return twin->Memory(nRows, nCols, generalized) +
         (left > 0 ? Deflation<Low>().Plan(nRows, run.deflation->nCols, generalized).Bytes() : 0) +
         rows * (sizeof(Low) * (static_cast<std::size_t>(nCols) + 1 + left) +
                 2 * sizeof(Scalar) *
                     (std::min<std::size_t>(static_cast<std::size_t>(nCols),
                                            ColumnScratch<Scalar>::mostColumns) +
                      1));
}

VES_INSTANTIATE(LowLeg);

} // namespace Ves
