#ifndef VES_DATA_PANELLED_OPERATOR_H
#define VES_DATA_PANELLED_OPERATOR_H

#include "../kernel/in_pieces.h"
#include "metered_operator.h"
#include "vector_dense.h"

#include <algorithm>
#include <limits>

namespace Ves {

/// Columns of tall blocks that a routine of the caller is given at once: those whose entries, with
/// what lies between the columns, his ints count, but at least one. Where he communicates, all
/// processes must make the same calls: the longest column of them all decides.
struct ColumnPanels {
  static constexpr int mostEntries = std::numeric_limits<int>::max();
  int width = mostEntries;

  /// \param largestLd  the largest leading dimension on any process
  static ColumnPanels Of(int largestLd) { return {mostEntries / std::max(largestLd, 1)}; }
};

/// A metered operator that gives wide blocks to the caller's in panels.
template <typename Scalar>
class PanelledOperator final : public MeteredOperator {
public:
  /// The panels may change between two applications.
  PanelledOperator(const VesMatrixBase& inner, const ColumnPanels& panels)
      : MeteredOperator(inner), m_panels(panels) {}

  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override {
    if (x.nCols <= m_panels.width) return MeteredOperator::Apply(x, y);
    const auto &from = AsDense<Scalar>(x), &to = AsDense<Scalar>(y);
    VesReturnCode code = VES_GOOD;
    InPieces(x.nCols, m_panels.width, [&](int first, int count) {
      VectorDense<Scalar> image(to, 0, first, to.nRows, count);
      const VectorDense<Scalar> panel(from, 0, first, from.nRows, count);
      if (code == VES_GOOD) code = MeteredOperator::Apply(panel, image);
    });
    return code;
  }

  const ColumnPanels& Panels() const { return m_panels; }

private:
  const ColumnPanels& m_panels;
};

} // namespace Ves

#endif
