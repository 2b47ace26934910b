#ifndef VES_EIGENSOLVER_WORKSPACE_SIZE_H
#define VES_EIGENSOLVER_WORKSPACE_SIZE_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace Ves {

/// Entries of a workspace from the answer of a LAPACK query. A size that travels in a real number
/// may have been rounded down (in single precision from order 2895 on), so the next number up is
/// taken, which for sizes that the type holds exactly changes nothing.
template <typename Number>
std::size_t WorkspaceSize(Number answer, int atLeast = 1) {
  if constexpr (!std::numeric_limits<Number>::is_integer)
    answer = std::nextafter(answer, std::numeric_limits<Number>::infinity());
  return std::max(static_cast<std::size_t>(answer), static_cast<std::size_t>(atLeast));
}

} // namespace Ves

#endif
