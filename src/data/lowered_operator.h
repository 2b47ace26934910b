#ifndef VES_DATA_LOWERED_OPERATOR_H
#define VES_DATA_LOWERED_OPERATOR_H

#include "matrix_base.h"
#include "vector_dense.h"

#include <algorithm>

namespace Ves {

/// Copies the entries into a block of another precision and the same dimensions.
template <typename From, typename To>
void Convert(const VectorDense<From>& from, const VectorDense<To>& to) {
  for (int j = 0; j < from.nCols; ++j)
    std::transform(from.Column(j), from.Column(j) + from.nRows, to.Column(j),
                   [](const From& value) { return static_cast<To>(value); });
}

/// Room for some columns and their images.
template <typename Scalar>
struct ColumnScratch {
  static constexpr int mostColumns = 16;
  VectorDense<Scalar> x, y;

  explicit ColumnScratch(const VesVectorBase& like) {
    const int width = std::min(like.nCols, mostColumns);
    for (VectorDense<Scalar>* const block : {&x, &y})
      block->SetShape(like.comm, like.auxComm, like.nRows, width, like.nRows);
  }
  void Allocate() {
    for (VectorDense<Scalar>* const block : {&x, &y})
      VES_ASSERT_GOOD(block->AllocateMem());
  }
  void Free() {
    for (VectorDense<Scalar>* const block : {&x, &y})
      VES_ASSERT_GOOD(block->FreeMem());
  }
};

/// An operator as single precision sees it: by its routine for that, or by the double one on
/// copies of some columns at a time.
template <typename Scalar>
class LoweredOperator final : public VesMatrixBase {
public:
  using Low = LowType<Scalar>;

  LoweredOperator(const VesMatrixBase& inner, const ColumnScratch<Scalar>& scratch)
      : m_inner(inner), m_scratch(scratch) {
    MathKernel<Low>::SetScalarType(scalarType);
    matrixType = inner.matrixType;
    nRows = inner.nRows;
    nCols = inner.nCols;
    isCalledEverywhere = inner.isCalledEverywhere;
  }

  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override {
    if (m_inner.lowered) return m_inner.lowered->Apply(x, y);
    if (!IsPresent()) return VES_GOOD;
    const auto &from = AsDense<Low>(x), &to = AsDense<Low>(y);
    for (int first = 0; first < x.nCols; first += m_scratch.x.nCols) {
      const int count = std::min(x.nCols - first, m_scratch.x.nCols);
      const VectorDense<Scalar> part(m_scratch.x, 0, 0, x.nRows, count);
      VectorDense<Scalar> image(m_scratch.y, 0, 0, x.nRows, count);
      Convert(VectorDense<Low>(from, 0, first, x.nRows, count), part);
      if (const VesReturnCode code = m_inner.Apply(part, image); code != VES_GOOD) return code;
      Convert(image, VectorDense<Low>(to, 0, first, x.nRows, count));
    }
    return VES_GOOD;
  }

private:
  const VesMatrixBase& m_inner;
  const ColumnScratch<Scalar>& m_scratch;
};

} // namespace Ves

#endif
