#include "block_solver.h"

#include "../data/metered_operator.h"
#include "../detector/flag_pairs.h"

#include <algorithm>
#include <cmath>

namespace Ves {

template <typename Scalar>
VesSolverReason BlockSolver<Scalar>::FindReason(int wanted) const {
  if (nConv >= wanted) return VES_REASON_CONVERGED;
  if (info != 0 || isBroken) return VES_REASON_NONFINITE;
  if (isStopped) return VES_REASON_MONITOR;
  return !isStagnated && iter >= maxIter ? VES_REASON_ITERATIONS : VES_REASON_STAGNATED;
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
void BlockSolver<Scalar>::WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                        const Block& vecX, const Block& vecBX, int first,
                                        const Block& values, const Block& scratch,
                                        const Block& scratchImage) const {
  constexpr int patience = 20;
  constexpr double generous = 1e6, strict = 100.0, improvement = 0.9;
  if (nConv > watch.nConv) {
    watch = Watch();
    watch.nConv = nConv;
  }
  if (!selfCheck || nConv < first || nConv >= first + vecX.nCols) return;
  if (++watch.tests % patience != 0 && !watch.isClose) return;

  // Decided by one process: on the others the last bits of a norm may differ.
  double next = pairResiduals[static_cast<std::size_t>(nConv)];
  Replicate(next);
  const auto areBelow = [&](const Block& vec, double normA, double normB) {
    int verdict = ResidualsBelow(vec, first, values, normA, normB) ? 1 : 0;
    Replicate(verdict);
    return verdict != 0;
  };
  if (!watch.isClose) {
    const bool hasHalved = !(next > 0.5 * watch.best);
    watch.best = next;
    // Operators are asked only where the size of the Ritz values leaves it open.
    if (hasHalved || !areBelow(vecBX, generous * largestRitz, generous)) return;
    watch.normA = NormEstimate(matA, scratch, scratchImage);
    watch.normB = isGeneralized ? NormEstimate(matB, scratch, scratchImage) : 1.0;
    watch.isClose = true;
    watch.tests = 0;
  }
  if (next < improvement * watch.best) {
    watch.best = next;
    watch.tests = 0;
  }
  isStagnated =
      watch.tests >= patience && areBelow(vecX, strict * watch.normA, strict * watch.normB);
  isRestartDue = !isStagnated && !watch.hasRestarted && watch.tests >= 2 * patience;
  watch.hasRestarted = watch.hasRestarted || isRestartDue;
}

/// The residuals of the active pairs that have not converged are below the rounding errors of
/// operators of the given norms.
template <typename Scalar>
bool BlockSolver<Scalar>::ResidualsBelow(const Block& vecX, int first, const Block& values,
                                         double normA, double normB) const {
  const std::vector<double> norms = ColumnNorms(vecX);
  for (int j = nConv - first; j < vecX.nCols; ++j) {
    const double value = static_cast<double>(std::abs(values(j)));
    const double rounding =
        4 * epsilon * (normA + value * normB) * norms[static_cast<std::size_t>(j)];
    if (!(pairResiduals[static_cast<std::size_t>(first + j)] <= rounding)) return false;
  }
  return true;
}

/// Lower bound of the 2-norm, by two steps of the power method from a random vector.
template <typename Scalar>
double BlockSolver<Scalar>::NormEstimate(const VesMatrixBase& op, const Block& scratch,
                                         const Block& scratchImage) const {
  Block v = Columns(scratch, 0, 1), image = Columns(scratchImage, 0, 1);
  VES_ASSERT_GOOD(v.Set2Random(1 + processRank));
  double norm = 0.0;
  for (int step = 0; step < 2; ++step) {
    VES_ASSERT_GOOD(op.Apply(v, image));
    norm = std::max(norm, ColumnNorms(image).front() / ColumnNorms(v).front());
    VES_ASSERT_GOOD(v.CopyData(image));
  }
  return norm;
}

template <typename Scalar>
bool BlockSolver<Scalar>::IsTight(const Block& vecBX, const Block& values) const {
  constexpr double factor = 1e4;
  const std::vector<double> norms = ColumnNorms(vecBX);
  bool isTight = false;
  for (int j = 0; j < vecBX.nCols; ++j) {
    const double rounding = factor * epsilon * largestRitz * norms[static_cast<std::size_t>(j)];
    const double bound = convergeDetectorType == VES_RELATIVE_RESIDUALS
                             ? threshold * static_cast<double>(std::abs(values(j)))
                             : threshold;
    isTight = isTight || !(bound > rounding);
  }
  int verdict = isTight ? 1 : 0;
  Replicate(verdict);
  return verdict != 0;
}

/// Every block has a column of slack; an eigendecomposition keeps two squares of its order beside
/// the matrix, and two more on the process grid. SVD QR takes a tall scratch block and the Gram
/// matrix.
template <typename Scalar>
std::size_t BlockSolver<Scalar>::Bytes(int nRows, std::size_t columns, std::size_t smallEntries,
                                       std::size_t evdOrder, std::size_t widest) const {
  constexpr std::size_t gridFrom = 300;
  const auto ld = static_cast<std::size_t>(std::max(nRows, 1));
  const bool usesGrid = denseEigenSolverType == VES_SCALAPACK_DIAG && evdOrder >= gridFrom;
  const std::size_t decomposition = (usesGrid ? 4 : 2) * evdOrder * evdOrder;
  const std::size_t scratch =
      orthogonalizerType == VES_SVD_QR ? ld * (widest + 1) + widest * widest : 0;
  return sizeof(Scalar) * (ld * columns + smallEntries + std::max(decomposition, scratch));
}

VES_INSTANTIATE(BlockSolver);

} // namespace Ves
