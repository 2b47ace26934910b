#ifndef VES_DATA_SHARED_PRODUCTS_H
#define VES_DATA_SHARED_PRODUCTS_H

#include "../parallel/thread_team.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

namespace Ves {

/// Storage of so many entries, not initialised, for each thread but the first, of work that is
/// shared; where there is none, there is one share.
template <typename Scalar>
class ScratchOfOthers {
public:
  ScratchOfOthers(const Shares& shares, std::size_t size)
      : m_shares(shares), m_size(size),
        m_storage(shares.count > 1 ? new (std::nothrow) Scalar[Before(shares.count)] : nullptr) {
    if (!m_storage) m_shares.count = 1;
  }
  const Shares& Fitting() const { return m_shares; }
  Scalar* Of(int part) const { return m_storage.get() + Before(part); } ///< part > 0

private:
  std::size_t Before(int part) const { return m_size * static_cast<std::size_t>(part - 1); }

  Shares m_shares;
  std::size_t m_size;
  std::unique_ptr<Scalar[]> m_storage;
};

/// A small column-major matrix m x n.
template <typename Scalar>
struct SmallMatrix {
  Scalar* values;
  int m, n, ld;
};

/// sum := the sum of what product(first, length, part) makes of all rows of tall blocks: a part for
/// each thread, added in their order. Without storage for the parts there is but one.
template <typename Scalar, typename Product>
void SumOverRows(int rows, const SmallMatrix<Scalar>& sum, Product product) {
  const std::size_t size = static_cast<std::size_t>(sum.m) * static_cast<std::size_t>(sum.n);
  const int least = std::max({leastRows, 2 * sum.m, 2 * sum.n}); // a part is worth its sum
  const ScratchOfOthers<Scalar> others(Shares(rows, least), size);
  const auto of = [&](int part) {
    return part > 0 ? SmallMatrix<Scalar>{others.Of(part), sum.m, sum.n, sum.m} : sum;
  };
  InShares(others.Fitting(),
           [&](int part, int first, int length) { product(first, length, of(part)); });
  if (others.Fitting().count == 1) return;
  ShareColumns(rows, sum.n, [&](std::ptrdiff_t j) {
    for (int part = 1; part < others.Fitting().count; ++part)
      for (int i = 0; i < sum.m; ++i)
        sum.values[i + j * sum.ld] += of(part).values[i + j * sum.m];
  });
}

} // namespace Ves

#endif
