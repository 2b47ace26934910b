#ifndef VES_SOLVER_SHIFTED_OPERATOR_H
#define VES_SOLVER_SHIFTED_OPERATOR_H

#include "../data/column_loops.h"
#include "../data/matrix_base.h"

namespace Ves {

/// A - sigma B, or A - sigma without a B.
template <typename Scalar>
class VES_EXPORT ShiftedOperator final : public VesMatrixBase {
public:
  using Block = VectorDense<Scalar>;
  double sigma = 0.0;
  mutable Block image; ///< what B writes to; it limits the columns of x, and is not used without B

  /// B is read where the problem is generalized alone.
  ShiftedOperator(const VesMatrixBase& matA, const VesMatrixBase& matB, bool generalized)
      : m_matA(matA), m_matB(matB), m_hasB(generalized) {
    scalarType = matA.scalarType;
    matrixType = VES_MATRIX_SHELL;
  }
  bool HasB() const { return m_hasB; }

  /// y = A x. \return a block that begins with B x
  const Block& ApplyParts(const Block& x, Block& y) const {
    VES_ASSERT_GOOD(m_matA.Apply(x, y));
    if (!m_hasB) return x;
    Block b(image, 0, 0, x.nRows, x.nCols);
    VES_ASSERT_GOOD(m_matB.Apply(x, b));
    return image;
  }

  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override {
    Block& result = AsDense<Scalar>(y);
    const Block& b = ApplyParts(AsDense<Scalar>(x), result);
    ForEachPiece(x.nRows, x.nCols, [&](int j, int first, int count) {
      Combine(count, 1.0, -sigma, At(b, j, first), At(result, j, first));
    });
    return VES_GOOD;
  }

private:
  const VesMatrixBase &m_matA, &m_matB;
  bool m_hasB;
};

} // namespace Ves

#endif
