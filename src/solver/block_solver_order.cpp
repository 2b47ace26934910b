#include "block_solver.h"

#include "../detector/flag_pairs.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Ves {

template <typename Scalar>
bool BlockSolver<Scalar>::IsAscending(const Block& values) const {
  const RealType<Scalar> rounding = 16 * std::numeric_limits<RealType<Scalar>>::epsilon();
  for (int j = 1; j < values.nRows; ++j) {
    const RealType<Scalar> before = std::real(values(j - 1)), here = std::real(values(j));
    if (before > here + rounding * std::max(std::abs(before), std::abs(here))) return false;
  }
  return true;
}

/// What values may be off that pass the test: by the norm of the residual times that of the vector.
template <typename Scalar>
std::vector<double> BlockSolver<Scalar>::Resolutions(const Block& vectors,
                                                     const Block& values) const {
  constexpr double generous = 100.0;
  std::vector<double> resolutions = ColumnNorms(vectors);
  for (int j = 0; j < values.nRows; ++j) {
    double& resolution = resolutions[static_cast<std::size_t>(j)];
    if (this->ConvergeDetector->PassesOnValues()) resolution = std::max(resolution, 1.0);
    resolution = 2 * ClaimBound(values(j)) * resolution + generous * epsilon * largestRitz;
  }
  return resolutions;
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

template <typename Scalar>
std::vector<double> BlockSolver<Scalar>::LockedBounds(const Block& vectors,
                                                      const Block& values) const {
  if (!selfCheck || values.nRows == 0) return {};
  std::vector<double> bounds = Resolutions(vectors, values);
  for (int j = 0; j < values.nRows; ++j) {
    double& bound = bounds[static_cast<std::size_t>(j)];
    bound = static_cast<double>(std::real(values(j))) - bound;
  }
  std::sort(bounds.begin(), bounds.begin() + std::min(nKept, values.nRows));
  return bounds;
}

template <typename Scalar>
auto BlockSolver<Scalar>::FindOvertaken(const std::vector<double>& bounds,
                                        const Block& values) const -> Overtaken {
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
  Replicate(found.locked);
  Replicate(found.below);
  return found;
}

template <typename Scalar>
int BlockSolver<Scalar>::MoveStraysLast(const Block& values, const Pairs& basis, int most) const {
  const int n = values.nRows;
  if (!selfCheck || n == 0 || IsAscending(values)) return 0;
  const std::vector<double> resolutions = Resolutions(Columns(basis.X, 0, n), values);
  const auto valueOf = [&](int j) { return static_cast<double>(std::real(values(j))); };
  std::vector<int> strays;
  for (int j = 0; j < n; ++j)
    if (valueOf(j) - valueOf(n - 1) > resolutions[static_cast<std::size_t>(j)]) strays.push_back(j);
  std::stable_sort(strays.begin(), strays.end(),
                   [&](int a, int b) { return valueOf(a) > valueOf(b); });
  int count = std::min(static_cast<int>(strays.size()), most);
  Replicate(count);
  strays.resize(static_cast<std::size_t>(count));
  Replicate(strays);
  std::sort(strays.begin(), strays.end());
  for (int to = n - 1; !strays.empty(); --to, strays.pop_back()) { // from the right: none twice
    const int from = strays.back();
    basis.ForEach([&](const Block& block) {
      std::swap_ranges(block.Column(from), block.Column(from) + nPW, block.Column(to));
    });
    std::swap(values(from), values(to));
    std::swap(pairResiduals[static_cast<std::size_t>(from)],
              pairResiduals[static_cast<std::size_t>(to)]);
  }
  if (count == 0) return 0;
  watch = Watch(); // of other pairs
  nKept = n - count;
  return count;
}

VES_INSTANTIATE(BlockSolver);

} // namespace Ves
