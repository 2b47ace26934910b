#include "self_check.h"

#include "../detector/flag_pairs.h"
#include "block_solver.h"

#include <algorithm>
#include <utility>

namespace Ves {

template <typename Scalar>
double SelfCheck<Scalar>::ClaimBound(Scalar value) const {
  return m_run.ConvergeDetector->ClaimBound(static_cast<double>(std::abs(value)), m_run.threshold);
}

template <typename Scalar>
int SelfCheck<Scalar>::CountConverged(const Block& residuals, const Block& values,
                                      const Block& before, Block& flags, int claimed) const {
  int dummy = 0, nStrict = 0, nLoose = 0;
  VES_ASSERT_GOOD(m_run.ConvergeDetector->Run(residuals, values, before, m_run.threshold, flags,
                                              dummy, nStrict));
  if (nStrict >= claimed) return nStrict;
  VES_ASSERT_GOOD(m_run.ConvergeDetector->Run(residuals, values, before, 2 * m_run.threshold, flags,
                                              dummy, nLoose));
  return std::max(nStrict, std::min(claimed, nLoose));
}

template <typename Scalar>
bool SelfCheck<Scalar>::IsTight(const Block& vecBX, const Block& values) const {
  if (!m_run.ConvergeDetector->ReadsResiduals()) return false;
  const std::vector<double> norms = ColumnNorms(vecBX);
  bool isTight = false;
  for (int j = 0; j < vecBX.nCols; ++j) {
    const double rounding =
        Limit::tight * Limit::epsilon * m_run.largestRitz * norms[static_cast<std::size_t>(j)];
    isTight = isTight || !(ClaimBound(values(j)) > rounding);
  }
  int verdict = isTight ? 1 : 0;
  m_run.Replicate(verdict);
  return verdict != 0;
}

template <typename Scalar>
void SelfCheck<Scalar>::ForgetValues(const Block& residuals, const Block& vecBX,
                                     const Block& estimates) const {
  const std::vector<double> norms = ColumnNorms(residuals), sizes = ColumnNorms(vecBX);
  for (int j = 0; j < estimates.nRows; ++j) {
    const auto at = static_cast<std::size_t>(j);
    const double bound = Limit::generous * Limit::epsilon * m_run.largestRitz * sizes[at];
    const bool isOfZeros = m_run.largestRitz == 0.0 && norms[at] == 0.0; // any vector is exact
    if (!isOfZeros && !IsBelow<Scalar>(norms[at], bound))
      estimates(j) = MathConstants<Scalar>::INFTY;
  }
}

template <typename Scalar>
int SelfCheck<Scalar>::StandingClaims(const Block& before, int claimed, const Block& after) const {
  std::vector<double> values(static_cast<std::size_t>(claimed));
  for (int j = 0; j < claimed; ++j)
    values[static_cast<std::size_t>(j)] = static_cast<double>(std::real(before(j)));
  std::sort(values.begin(), values.end());
  const auto stands = [&](int j) {
    return static_cast<double>(std::real(after(j))) >
           values[static_cast<std::size_t>(j)] - m_run.threshold;
  };
  int count = 0;
  while (count < claimed && stands(count))
    ++count;
  return count;
}

/// What values may be off that pass the test: by the norm of the residual times that of the vector.
template <typename Scalar>
std::vector<double> SelfCheck<Scalar>::Resolutions(const Block& vectors,
                                                   const Block& values) const {
  std::vector<double> resolutions = ColumnNorms(vectors);
  for (int j = 0; j < values.nRows; ++j) {
    double& resolution = resolutions[static_cast<std::size_t>(j)];
    if (m_run.ConvergeDetector->PassesOnValues()) resolution = std::max(resolution, 1.0);
    resolution = 2 * ClaimBound(values(j)) * resolution +
                 Limit::generous * Limit::epsilon * m_run.largestRitz;
  }
  return resolutions;
}

template <typename Scalar>
std::vector<double> SelfCheck<Scalar>::LockedBounds(const Block& vectors,
                                                    const Block& values) const {
  if (!IsOn() || values.nRows == 0) return {};
  std::vector<double> bounds = Resolutions(vectors, values);
  for (int j = 0; j < values.nRows; ++j) {
    double& bound = bounds[static_cast<std::size_t>(j)];
    bound = static_cast<double>(std::real(values(j))) - bound;
  }
  std::sort(bounds.begin(), bounds.begin() + std::min(m_nKept, values.nRows));
  return bounds;
}

template <typename Scalar>
auto SelfCheck<Scalar>::FindOvertaken(const std::vector<double>& bounds, const Block& values) const
    -> Overtaken {
  Overtaken found;
  for (int j = static_cast<int>(bounds.size()) - 1; j >= 0; --j) {
    int below = 0;
    for (int i = 0; i < values.nRows; ++i)
      if (static_cast<double>(std::real(values(i))) < bounds[static_cast<std::size_t>(j)]) ++below;
    if (below <= j) continue;
    found.locked = j;
    found.below = std::min(found.below, below);
  }
  if (bounds.empty()) return found;
  m_run.Replicate(found.locked);
  m_run.Replicate(found.below);
  return found;
}

template <typename Scalar>
int SelfCheck<Scalar>::MoveStraysLast(const Block& values, const Pairs& basis, int most) {
  const int n = values.nRows;
  if (!IsOn() || n == 0 || m_run.IsAscending(values)) return 0;
  const std::vector<double> resolutions = Resolutions(basis.Columns(0, n).X, values);
  const auto valueOf = [&](int j) { return static_cast<double>(std::real(values(j))); };
  std::vector<int> strays;
  for (int j = 0; j < n; ++j)
    if (valueOf(j) - valueOf(n - 1) > resolutions[static_cast<std::size_t>(j)]) strays.push_back(j);
  std::stable_sort(strays.begin(), strays.end(),
                   [&](int a, int b) { return valueOf(a) > valueOf(b); });
  int count = std::min(static_cast<int>(strays.size()), most);
  m_run.Replicate(count);
  strays.resize(static_cast<std::size_t>(count));
  m_run.Replicate(strays);
  std::sort(strays.begin(), strays.end());
  for (int to = n - 1; !strays.empty(); --to, strays.pop_back()) { // from the right: none twice
    const int from = strays.back();
    basis.ForEach([&](const Block& block) {
      std::swap_ranges(block.Column(from), block.Column(from) + m_run.nPW, block.Column(to));
    });
    std::swap(values(from), values(to));
    std::swap(m_run.pairResiduals[static_cast<std::size_t>(from)],
              m_run.pairResiduals[static_cast<std::size_t>(to)]);
  }
  if (count == 0) return 0;
  m_watch = ProgressWatch(); // of other pairs
  m_nKept = n - count;
  return count;
}

VES_INSTANTIATE(SelfCheck);

} // namespace Ves
