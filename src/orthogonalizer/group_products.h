#ifndef VES_ORTHOGONALIZER_GROUP_PRODUCTS_H
#define VES_ORTHOGONALIZER_GROUP_PRODUCTS_H

#include "../data/joint_sum.h"
#include "../data/vector_dense.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

namespace Ves {

/// Some columns of a block, for each of several groups; for the length of a call.
struct Groups {
  const std::vector<int>& firsts; ///< first columns
  const std::vector<int>& widths;
};

/// The products X_j^H Y_j of groups of columns, packed side by side so that one reduction serves
/// all: as many rows as the widest X_j. A single block is one group.
template <typename Scalar>
class GroupProducts {
public:
  using Block = VectorDense<Scalar>;

  /// Collective over X's comm when global; of the local rows otherwise.
  GroupProducts(const Block& vecX, const Groups& ofX, const Block& vecY, const Groups& ofY,
                bool global)
      : m_rows(ofX.widths), m_cols(ofY.widths) {
    const int rows = m_rows.empty() ? 0 : *std::max_element(m_rows.begin(), m_rows.end());
    const int cols = std::accumulate(m_cols.begin(), m_cols.end(), 0);
    m_all.SetShape(vecX.comm, vecX.auxComm, rows, cols, rows);
    VES_ASSERT_GOOD(m_all.AllocateMem());
    VES_ASSERT_GOOD(m_all.Set2Zero());
    int first = 0;
    for (std::size_t j = 0; j < m_rows.size(); ++j) {
      m_firsts.push_back(first);
      first += m_cols[j];
      Block product = (*this)[j];
      VES_ASSERT_GOOD(product.InnerProduct(Block(vecX, 0, ofX.firsts[j], vecX.nRows, m_rows[j]),
                                           Block(vecY, 0, ofY.firsts[j], vecY.nRows, m_cols[j]),
                                           false));
    }
    if (global) VES_ASSERT_GOOD(m_all.AllReduce(MPI_SUM, m_all.comm));
  }

  /// View of X_j^H Y_j.
  Block operator[](std::size_t j) const {
    return Block(m_all, 0, m_firsts[j], m_rows[j], m_cols[j]);
  }

  /// All of them, side by side.
  Block& Packed() { return m_all; }
  /// Has the products of local rows summed with others.
  void AddTo(JointSum<Scalar>& sum) const { sum.Add(m_all); }

private:
  const std::vector<int> m_rows, m_cols; // copies: ranks may come in place of the widths
  std::vector<int> m_firsts;
  Block m_all;
};

/// Products that somebody has summed for the next pass, together with others; no storage where
/// nobody has.
template <typename Scalar>
using KnownProducts = std::unique_ptr<GroupProducts<Scalar>>;

/// Known products in the hands of a component for as long as this lives. A component that takes
/// none has no place for them, and sums its own.
template <typename Scalar>
class HandOver {
public:
  HandOver(KnownProducts<Scalar>* place, KnownProducts<Scalar> products) : m_place(place) {
    if (m_place != nullptr) *m_place = std::move(products);
  }
  ~HandOver() {
    if (m_place != nullptr) m_place->reset();
  }
  HandOver(const HandOver&) = delete;
  HandOver& operator=(const HandOver&) = delete;

private:
  KnownProducts<Scalar>* m_place;
};

/// The known products, which are used up, or new ones. Collective when global and none are known.
template <typename Scalar>
KnownProducts<Scalar> TakeOrForm(KnownProducts<Scalar>& known, const VectorDense<Scalar>& vecX,
                                 const Groups& ofX, const VectorDense<Scalar>& vecY,
                                 const Groups& ofY, bool global) {
  if (known) return std::move(known);
  return std::make_unique<GroupProducts<Scalar>>(vecX, ofX, vecY, ofY, global);
}

} // namespace Ves

#endif
