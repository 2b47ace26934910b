#ifndef VES_DATA_IMAGED_H
#define VES_DATA_IMAGED_H

#include "../kernel/in_pieces.h"
#include "matrix_base.h"
#include "shared_products.h"
#include "vector_dense.h"

#include <algorithm>

namespace Ves {

/// Views of the columns of a block X and of their images under B and A: what an algorithm moves as
/// one. An image without storage of its own is a block before it: B X is X itself where B is the
/// identity, and A X stands for B X where nobody keeps it. A copy views the same columns.
template <typename Scalar>
class Imaged {
public:
  using Block = VectorDense<Scalar>;

  mutable Block X, BX, AX; ///< what they view may change where they may not

  /// Which images have storage of their own is seen by their addresses.
  Imaged(const Block& x, const Block& bx, const Block& ax)
      : Imaged(x, bx, ax, x != bx, x != ax && bx != ax) {}
  Imaged(const Block& x, const Block& bx) : Imaged(x, bx, bx) {}
  /// That of B X is told, since it steers collective calls; A X has its own.
  Imaged(const Block& x, const Block& bx, const Block& ax, bool hasB)
      : Imaged(x, bx, ax, hasB, true) {}
  Imaged(const Imaged& other) : Imaged(other, 0, other.Count()) {}
  Imaged& operator=(const Imaged&) = delete;

  int Count() const { return X.nCols; }
  /// B X and A X are storage of their own, to be kept in step with X.
  bool HasB() const { return m_hasB; }
  bool HasA() const { return m_hasA; }

  /// Columns [first, first + count).
  Imaged Columns(int first, int count) const { return Imaged(*this, first, count); }

  /// Leaves the leading columns in view.
  void Narrow(int count) { X.nCols = BX.nCols = AX.nCols = count; }

  /// Calls change for X and for each image that has storage of its own.
  template <typename Change>
  void ForEach(Change change) const {
    change(X);
    if (m_hasB) change(BX);
    if (m_hasA) change(AX);
  }
  /// The same with what corresponds in another block, which has the images that this one has.
  template <typename Change>
  void ForEachWith(const Imaged& other, Change change) const {
    change(X, other.X);
    if (m_hasB) change(BX, other.BX);
    if (m_hasA) change(AX, other.AX);
  }

  /// target := X C, images alike; target must not overlap X.
  void Multiply(const Block& coefficients, const Imaged& target) const {
    ForEachWith(target, [&](const Block& from, Block& to) {
      VES_ASSERT_GOOD(to.Gemm(from, coefficients));
    });
  }

  void CopyTo(const Imaged& target) const {
    ForEachWith(target, [](const Block& from, Block& to) { VES_ASSERT_GOOD(to.CopyData(from)); });
  }

  /// Images made afresh: A X, then B X. Collective as far as the operators are.
  void Refresh(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
    RefreshA(matA);
    RefreshB(matB);
  }
  void RefreshA(const VesMatrixBase& matA) const { VES_ASSERT_GOOD(matA.Apply(X, AX)); }
  void RefreshB(const VesMatrixBase& matB) const {
    if (m_hasB) VES_ASSERT_GOOD(matB.Apply(X, BX));
  }

  /// \name Rotation in place
  /// target := X C, images alike, where the target may be columns of X: bands of rows go through
  /// scratch, shaped for a band (RowsOfBand) or a tall block, at least as wide as C, and stay in
  /// the cache on their way.
  /// @{
  static constexpr int bandRows = 1024;
  static int RowsOfBand(int nRows) { return std::min(nRows, bandRows); }
  void Rotate(const Block& coefficients, const Imaged& target, Block& scratch) const {
    const Shares shares(X.nRows, bandRows);
    const std::size_t size = std::size_t{bandRows} * static_cast<std::size_t>(coefficients.nCols);
    const ScratchOfOthers<Scalar> others(shares, size);
    InShares(others.Fitting(), [&](int part, int first, int length) {
      Block own;
      own.SetShape(scratch.comm, scratch.auxComm, 0, 0, 1);
      own.SetValues(part > 0 ? others.Of(part) : scratch.values);
      ForEachWith(target, [&](const Block& from, Block& to) {
        RotateRows(from, coefficients, to, first, length, own);
      });
    });
  }
  void Rotate(const Block& coefficients, Block& scratch) const {
    Rotate(coefficients, *this, scratch);
  }
  /// @}

private:
  static void RotateRows(const Block& from, const Block& coefficients, const Block& to, int first,
                         int length, Block& scratch) {
    InPieces(length, int{bandRows}, [&](int before, int rows) {
      const int row = first + before;
      Block band(to, row, 0, rows, to.nCols);
      scratch.SetDims(rows, coefficients.nCols, rows);
      VES_ASSERT_GOOD(scratch.Gemm(Block(from, row, 0, rows, from.nCols), coefficients));
      VES_ASSERT_GOOD(band.CopyData(scratch));
    });
  }

  Imaged(const Imaged& whole, int first, int count)
      : X(whole.X, 0, first, whole.X.nRows, count), BX(whole.BX, 0, first, whole.BX.nRows, count),
        AX(whole.AX, 0, first, whole.AX.nRows, count), m_hasB(whole.m_hasB), m_hasA(whole.m_hasA) {}
  Imaged(const Block& x, const Block& bx, const Block& ax, bool hasB, bool hasA)
      : X(x, 0, 0, x.nRows, x.nCols), BX(bx, 0, 0, bx.nRows, bx.nCols),
        AX(ax, 0, 0, ax.nRows, ax.nCols), m_hasB(hasB), m_hasA(hasA) {}

  bool m_hasB, m_hasA;
};

} // namespace Ves

#endif
