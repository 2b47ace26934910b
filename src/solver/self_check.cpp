#include "self_check.h"

#include "../detector/flag_pairs.h"
#include "block_solver.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace Ves {

template <typename Scalar>
void SelfCheck<Scalar>::Begin() {
  m_end = End::open;
  m_areOperatorsBroken = m_isRestartDue = m_isCareful = m_isSlow = false;
  m_nJudged = m_nFutile = m_nIdle = m_nKept = 0;
  m_watch = ProgressWatch();
}

template <typename Scalar>
bool SelfCheck<Scalar>::IsOn() const {
  return m_run.selfCheck;
}

template <typename Scalar>
void SelfCheck<Scalar>::FindCulprit(const Block& vecX) {
  if (m_run.info != 0 && m_run.AllFinite({vecX, vecX})) BlameOperators();
}

template <typename Scalar>
VesSolverReason SelfCheck<Scalar>::Reason(int wanted) const {
  if (m_run.nConv >= wanted) return VES_REASON_CONVERGED;
  if (m_areOperatorsBroken) return VES_REASON_NONFINITE;
  if (IsStopped()) return VES_REASON_MONITOR;
  const bool isAtLimit = !IsStagnated() && m_run.info == 0 && m_run.iter >= m_run.maxIter;
  return isAtLimit ? VES_REASON_ITERATIONS : VES_REASON_STAGNATED;
}

template <typename Scalar>
void SelfCheck<Scalar>::JudgeRestart(double largestResidual) {
  const bool isFutile = m_nJudged > 0 && m_run.iter - m_restartIter < Limit::shortly &&
                        largestResidual > 0.5 * m_restartResidual;
  m_nFutile = isFutile ? m_nFutile + 1 : 0;
  if (m_nFutile >= Limit::mostFutile) CallStagnated();
  m_restartResidual = largestResidual;
  m_restartIter = m_run.iter;
  ++m_nJudged;
}

template <typename Scalar>
void SelfCheck<Scalar>::NoteDirections(int count, int allowedIdle) {
  m_nIdle = count == 0 ? m_nIdle + 1 : 0;
  if (m_nIdle > allowedIdle) CallStagnated();
}

template <typename Scalar>
void SelfCheck<Scalar>::WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                      const Pairs& active, int first, const Block& values,
                                      const Pairs& scratch) {
  const int nConv = m_run.nConv, last = first + active.Count();
  m_isSlow = false;
  m_watch.Begin(nConv, last);
  if (!IsOn() || nConv < first || nConv >= last) return;
  if (!m_watch.Note(m_run.pairResiduals, nConv, last)) return;
  const ProgressWatch::Finding local = m_watch.Take(m_run.pairResiduals, nConv, last);
  std::vector<int> found{local.gain, local.isSlow ? 1 : 0};
  m_run.Replicate(found);
  const int gain = found.front();
  m_isSlow = found.back() != 0;
  m_watch.idleWindows = gain == ProgressWatch::none ? m_watch.idleWindows + 1 : 0;
  if (gain == ProgressWatch::half) return;
  const std::vector<double> norms = ColumnNorms(active.BX);
  const bool isClose = AreBelow(norms, first, values, Limit::closeToFloor);
  const bool isAtFloor = isClose && AreBelow(norms, first, values, Limit::atFloor);
  if (m_watch.nRestarts == 0 && (isAtFloor || gain == ProgressWatch::none)) {
    ++m_watch.nRestarts;
    return RequestRestart();
  }
  if (gain != ProgressWatch::none) return;
  if (!isClose) {
    const std::vector<double> stretched(norms.size(), Stretch(active, norms));
    if (!AreBelow(stretched, first, values, Limit::atFloor)) return;
  }
  const int j = nConv - first;
  double drift = ImageNoise(matA, matB, active.Columns(j, 1), values(j), scratch) /
                 m_run.pairResiduals[static_cast<std::size_t>(nConv)];
  m_run.Replicate(drift); // a NaN is noise, too
  JudgeStandstill(isAtFloor, !(drift < Limit::noise), !(drift < Limit::notableDrift));
}

/// After a restart nothing has improved in a window, close to what rounding allows.
template <typename Scalar>
void SelfCheck<Scalar>::JudgeStandstill(bool isAtFloor, bool isNoise, bool hasDrifted) {
  const bool canRestart = m_watch.nRestarts < Limit::mostRestarts;
  const int patience = isAtFloor && hasDrifted ? Limit::patienceAtFloor : Limit::patience;
  if (m_watch.idleWindows >= patience || (isNoise && isAtFloor && !canRestart))
    return CallStagnated();
  if (!isNoise || !canRestart) return;
  ++m_watch.nRestarts;
  RequestRestart();
}

/// ||(A x - lambda B x) - (ax - lambda bx)|| of one pair with the images ax and bx: what rounding
/// errors have added to these, which are only updated.
template <typename Scalar>
double SelfCheck<Scalar>::ImageNoise(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                     const Pairs& pair, Scalar value, const Pairs& scratch) const {
  const Pairs fresh = scratch.Columns(0, 1);
  Block lambda, one;
  for (Block* const number : {&lambda, &one}) {
    m_run.ShapeSmall(*number, 1, 1);
    VES_ASSERT_GOOD(number->AllocateMem());
  }
  lambda(0) = value;
  one(0) = MathConstants<Scalar>::ONE;
  VES_ASSERT_GOOD(matA.Apply(pair.X, fresh.X));
  VES_ASSERT_GOOD(fresh.X.ScaleAdd(fresh.X, pair.AX, one, -1));
  if (pair.HasB()) {
    VES_ASSERT_GOOD(matB.Apply(pair.X, fresh.BX));
    VES_ASSERT_GOOD(fresh.BX.ScaleAdd(fresh.BX, pair.BX, one, -1));
    VES_ASSERT_GOOD(fresh.X.ScaleAdd(fresh.X, fresh.BX, lambda, -1));
  }
  return ColumnNorms(fresh.X).front();
}

/// B of small values stretches vectors, and rotations mix rounding errors of the longest into all:
/// A x is then only good to those of ||A|| max ||x||, far above ||A|| ||Bx||/||B||.
/// \return ||B|| max ||x||, with the largest ||Bx||/||x|| of the active pairs for ||B||
template <typename Scalar>
double SelfCheck<Scalar>::Stretch(const Pairs& active, const std::vector<double>& normsBX) const {
  const std::vector<double> norms = ColumnNorms(active.X);
  double normB = 0.0;
  for (std::size_t j = 0; j < norms.size(); ++j)
    normB = std::max(normB, normsBX[j] / norms[j]);
  return normB * *std::max_element(norms.begin(), norms.end());
}

/// The residuals of the active pairs that have not converged are below so many rounding errors of
/// vectors of these norms. Collective; one process decides.
template <typename Scalar>
bool SelfCheck<Scalar>::AreBelow(const std::vector<double>& norms, int first, const Block& values,
                                 double factor) const {
  int areBelow = 1;
  const double* const residuals = m_run.pairResiduals.data() + first;
  for (int j = m_run.nConv - first; j < static_cast<int>(norms.size()); ++j) {
    const double value = static_cast<double>(std::abs(values(j)));
    const double rounding = 4 * Limit::epsilon * (factor * m_run.largestRitz + value * factor) *
                            norms[static_cast<std::size_t>(j)];
    if (!(residuals[j] <= rounding)) areBelow = 0;
  }
  m_run.Replicate(areBelow);
  return areBelow != 0;
}

VES_INSTANTIATE(SelfCheck);

} // namespace Ves
