#ifndef VES_KERNEL_IN_PIECES_H
#define VES_KERNEL_IN_PIECES_H

#include <algorithm>

namespace Ves {

/// Calls work(first, count) for consecutive pieces of [0, total) of the given size, the last of
/// which may be smaller. No number leaves the type, however large the total is.
template <typename Number, typename Work>
void InPieces(Number total, Number size, Work work) {
  for (Number first = 0, count = 0; first < total; first += count) {
    count = std::min(size, total - first);
    work(first, count);
  }
}

} // namespace Ves

#endif
