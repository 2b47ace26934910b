#include "block_solver.h"

#include "../data/metered_operator.h"
#include "../detector/flag_pairs.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>

namespace Ves {

template <typename Scalar>
VesSolverReason BlockSolver<Scalar>::FindReason(int wanted) const {
  if (nConv >= wanted) return VES_REASON_CONVERGED;
  if (isBroken) return VES_REASON_NONFINITE;
  if (isStopped) return VES_REASON_MONITOR;
  return !isStagnated && info == 0 && iter >= maxIter ? VES_REASON_ITERATIONS
                                                      : VES_REASON_STAGNATED;
}

template <typename Scalar>
void BlockSolver<Scalar>::FindCulprit(const Block& vecX) const {
  if (info != 0) isBroken = isBroken || AllFinite({vecX, vecX});
}

template <typename Scalar>
void BlockSolver<Scalar>::KeepResiduals(int first) const {
  const std::vector<double>& norms = this->ConvergeDetector->residualNorms;
  std::copy(norms.begin(), norms.end(), pairResiduals.begin() + first);
}

template <typename Scalar>
int BlockSolver<Scalar>::CountConverged(const Block& residuals, const Block& values,
                                        const Block& before, Block& flags, int claimed) const {
  int dummy = 0, nStrict = 0, nLoose = 0;
  VES_ASSERT_GOOD(
      this->ConvergeDetector->Run(residuals, values, before, threshold, flags, dummy, nStrict));
  if (nStrict >= claimed) return nStrict;
  VES_ASSERT_GOOD(
      this->ConvergeDetector->Run(residuals, values, before, 2 * threshold, flags, dummy, nLoose));
  return std::max(nStrict, std::min(claimed, nLoose));
}

template <typename Scalar>
void BlockSolver<Scalar>::ForgetValues(const Block& residuals, const Block& vecBX,
                                       const Block& estimates) const {
  constexpr double generous = 100.0;
  const std::vector<double> norms = ColumnNorms(residuals), sizes = ColumnNorms(vecBX);
  for (int j = 0; j < estimates.nRows; ++j) {
    const auto at = static_cast<std::size_t>(j);
    const double bound = generous * epsilon * largestRitz * sizes[at];
    const bool isOfZeros = largestRitz == 0.0 && norms[at] == 0.0; // any vector is exact
    if (!isOfZeros && !IsBelow<Scalar>(norms[at], bound))
      estimates(j) = MathConstants<Scalar>::INFTY;
  }
}

template <typename Scalar>
int BlockSolver<Scalar>::StandingClaims(const Block& before, int claimed,
                                        const Block& after) const {
  std::vector<double> values;
  for (int j = 0; j < claimed; ++j)
    values.push_back(static_cast<double>(std::real(before(j))));
  std::sort(values.begin(), values.end());
  const auto stands = [&](int j) {
    return static_cast<double>(std::real(after(j))) >
           values[static_cast<std::size_t>(j)] - threshold;
  };
  int count = 0;
  while (count < claimed && stands(count))
    ++count;
  return count;
}

template <typename Scalar>
void BlockSolver<Scalar>::NoteRitzValues(const Block& values) const {
  for (int j = 0; j < values.nRows; ++j)
    largestRitz = std::max(largestRitz, static_cast<double>(std::abs(values(j))));
}

template <typename Scalar>
void BlockSolver<Scalar>::Report(int iteration, const Block& estimates, int nConverged,
                                 int nLockedPairs, int nActivePairs) const {
  if (monitor == nullptr) return;
  std::vector<double> values(pairResiduals.size(), std::numeric_limits<double>::infinity());
  for (int j = 0; j < estimates.nRows; ++j)
    values[static_cast<std::size_t>(j)] = static_cast<double>(std::real(estimates(j)));
  const VesProgress progress{iteration,
                             static_cast<int>(values.size()),
                             nConverged,
                             nLockedPairs,
                             nActivePairs,
                             values.data(),
                             pairResiduals.data(),
                             meteredA != nullptr ? meteredA->columns : 0};
  int answer = monitor(monitorData, &progress) != 0 ? 1 : 0;
  Replicate(answer);
  isStopped = answer != 0;
}

template <typename Scalar>
bool BlockSolver<Scalar>::WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                        const Pairs& active, int first, const Block& values,
                                        const Block& scratch, const Block& scratchImage) const {
  constexpr int window = 20, patience = 20, patienceIfTight = 5, mostRestarts = 3;
  constexpr double notable = 0.01, noisy = 0.5, generous = 1e6, strict = 100.0;
  const int last = first + active.Count();
  if (nConv > watch.nConv || last > watch.last) { // other pairs than before are open
    const int mostConv = std::max(nConv, watch.nConv);
    watch = Watch();
    watch.nConv = mostConv;
    watch.last = last;
  }
  if (!selfCheck || nConv < first || nConv >= last) return false;
  NoteImprovements(last);
  if (++watch.tests % window != 0) return false;
  std::vector<int> found{std::exchange(watch.gain, 0), IsSlow(last) ? 1 : 0};
  Replicate(found);
  const int gain = found.front();
  const bool isSlow = found.back() != 0;
  watch.idleWindows = gain < 1 ? watch.idleWindows + 1 : 0;
  const auto areBelow = [&](double factor) {
    return AreBelow(active.BX, first, values, factor * largestRitz, factor);
  };
  if (gain > 1) return isSlow;
  const bool isClose = areBelow(generous), isTight = isClose && areBelow(strict);
  if ((isTight || gain < 1) && watch.nRestarts == 0) {
    isRestartDue = ++watch.nRestarts > 0;
    return isSlow;
  }
  if (gain > 0 || !isClose) return isSlow;
  const int j = nConv - first;
  double share = ImageNoise(matA, matB, active.Columns(j, 1), values(j), scratch, scratchImage) /
                 pairResiduals[static_cast<std::size_t>(nConv)];
  Replicate(share);
  const bool isNoise = !(share < noisy), hasDrifted = !(share < notable);
  const bool isOverdue = watch.idleWindows >= (isTight && hasDrifted ? patienceIfTight : patience);
  isStagnated = isOverdue || (isNoise && isTight && watch.nRestarts == mostRestarts);
  if (isNoise && !isStagnated && watch.nRestarts < mostRestarts)
    isRestartDue = ++watch.nRestarts > 0;
  return isSlow;
}

/// Compares the residuals of the unconverged pairs before the last one, the largest first, with the
/// best that stood there: pairs change places, and the good residual of one would be held against
/// another. Local: what is found of a window is decided by one process, as the last bits of norms may
/// differ.
template <typename Scalar>
void BlockSolver<Scalar>::NoteImprovements(int last) const {
  constexpr double tenth = 0.9, half = 0.5;
  constexpr double unknown = std::numeric_limits<double>::infinity();
  std::vector<double> norms(pairResiduals.begin() + nConv, pairResiduals.begin() + last);
  for (double& norm : norms)
    if (std::isnan(norm)) norm = unknown; // says nothing of rounding
  std::sort(norms.begin(), norms.end(), std::greater<>());
  const auto note = [&](std::vector<double>& best, double factor, int gain) {
    best.resize(pairResiduals.size(), unknown);
    for (std::size_t j = 0; j < norms.size(); ++j) {
      if (norms[j] > factor * best[j]) continue;
      best[j] = norms[j];
      watch.gain = std::max(watch.gain, gain);
    }
  };
  note(watch.best, tenth, 1);
  note(watch.halved, half, 2);
}

/// The geometric mean of the residuals of the unconverged pairs before the last one has fallen by
/// less than a quarter since this was asked before. Local.
template <typename Scalar>
bool BlockSolver<Scalar>::IsSlow(int last) const {
  constexpr double quarter = 0.75, smallest = std::numeric_limits<double>::min();
  double sum = 0.0;
  for (auto j = static_cast<std::size_t>(nConv); j < static_cast<std::size_t>(last); ++j)
    sum += std::log(std::max(pairResiduals[j], smallest));
  const double before = std::exchange(watch.meanLog, sum / (last - nConv));
  return watch.meanLog > before + std::log(quarter);
}

/// ||(A x - lambda B x) - (ax - lambda bx)|| of one pair with the images ax and bx: what rounding
/// errors have added to these, which are only updated.
template <typename Scalar>
double BlockSolver<Scalar>::ImageNoise(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                       const Pairs& pair, Scalar value, const Block& scratch,
                                       const Block& scratchImage) const {
  Block fresh = Columns(scratch, 0, 1), freshB = Columns(scratchImage, 0, 1), lambda, one;
  for (Block* const number : {&lambda, &one}) {
    ShapeSmall(*number, 1, 1);
    VES_ASSERT_GOOD(number->AllocateMem());
  }
  lambda(0) = value;
  one(0) = MathConstants<Scalar>::ONE;
  VES_ASSERT_GOOD(matA.Apply(pair.X, fresh));
  VES_ASSERT_GOOD(fresh.ScaleAdd(fresh, pair.AX, one, -1));
  if (pair.HasB()) {
    VES_ASSERT_GOOD(matB.Apply(pair.X, freshB));
    VES_ASSERT_GOOD(freshB.ScaleAdd(freshB, pair.BX, one, -1));
    VES_ASSERT_GOOD(fresh.ScaleAdd(fresh, freshB, lambda, -1));
  }
  return ColumnNorms(fresh).front();
}

/// The residuals of the active pairs that have not converged are below the rounding errors of
/// operators of the given norms. Collective; one process decides.
template <typename Scalar>
bool BlockSolver<Scalar>::AreBelow(const Block& vecX, int first, const Block& values, double normA,
                                   double normB) const {
  const std::vector<double> norms = ColumnNorms(vecX);
  int areBelow = 1;
  for (int j = nConv - first; j < vecX.nCols; ++j) {
    const double value = static_cast<double>(std::abs(values(j)));
    const double rounding =
        4 * epsilon * (normA + value * normB) * norms[static_cast<std::size_t>(j)];
    if (!(pairResiduals[static_cast<std::size_t>(first + j)] <= rounding)) areBelow = 0;
  }
  Replicate(areBelow);
  return areBelow != 0;
}

template <typename Scalar>
bool BlockSolver<Scalar>::IsTight(const Block& vecBX, const Block& values) const {
  constexpr double factor = 1e4;
  if (!this->ConvergeDetector->ReadsResiduals()) return false;
  const std::vector<double> norms = ColumnNorms(vecBX);
  bool isTight = false;
  for (int j = 0; j < vecBX.nCols; ++j) {
    const double rounding = factor * epsilon * largestRitz * norms[static_cast<std::size_t>(j)];
    isTight = isTight || !(ClaimBound(values(j)) > rounding);
  }
  int verdict = isTight ? 1 : 0;
  Replicate(verdict);
  return verdict != 0;
}

VES_INSTANTIATE(BlockSolver);

} // namespace Ves
