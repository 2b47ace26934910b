#ifndef VES_EIGENSOLVER_EQUAL_VALUES_H
#define VES_EIGENSOLVER_EQUAL_VALUES_H

#include <algorithm>
#include <cmath>
#include <limits>

namespace Ves {

/// How many of n ascending values are no larger than the nLowest-th up to the rounding of Real.
template <typename Real, typename Number>
int CountUpTo(const Number* values, int n, int nLowest) {
  constexpr double rounding = 32.0 * std::numeric_limits<Real>::epsilon();
  const auto value = [&](int j) { return static_cast<double>(std::real(values[j])); };
  const double largest = std::max(std::abs(value(0)), std::abs(value(n - 1)));
  int count = nLowest;
  while (count < n && value(count) <= value(nLowest - 1) + rounding * largest)
    ++count;
  return count;
}

} // namespace Ves

#endif
