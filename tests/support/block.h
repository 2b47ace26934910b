// Dense blocks of known numbers, judged entry by entry.
#ifndef VES_TESTS_SUPPORT_BLOCK_H
#define VES_TESTS_SUPPORT_BLOCK_H

#include "data/vector_dense.h"
#include "problem.h"

namespace VesTest {

/// Entries by row, counted over all processes, and column; 777 in two padding rows, which stay as
/// they are.
template <typename Scalar>
struct Block : Ves::VectorDense<Scalar> {
  using Entry = std::function<Scalar(int, int)>;

  Block(int m, int k, const Entry& entry, int first = 0, MPI_Comm aux = self)
      : Ves::VectorDense<Scalar>(world, aux, m, k, m + 2) {
    this->AllocateMem();
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < this->ld; ++i)
        (*this)(i, j) = i < m ? entry(first + i, j) : Number<Scalar>(777);
  }
  Block(const Rows& rows, int k, const Entry& entry) : Block(rows.local, k, entry, rows.first) {}
  /// Hashed numbers.
  Block(int m, int k, unsigned stream = 0) : Block(m, k, Hashing(stream)) {}
  Block(const Rows& rows, int k, unsigned stream = 0) : Block(rows, k, Hashing(stream)) {}

  /// Every entry is formula(local row, column) up to some units of rounding.
  template <typename Formula>
  void Expect(double units, Formula formula) const {
    for (int j = 0; j < this->nCols; ++j)
      for (int i = 0; i < this->ld; ++i) {
        const Wide expected = i < this->nRows ? Wide(formula(i, j)) : Wide(777);
        EXPECT_LE(std::abs(Wide((*this)(i, j)) - expected), units * eps<Scalar>) << i << " " << j;
      }
  }

private:
  static Entry Hashing(unsigned stream) {
    return [stream](int i, int j) { return HashedNumber<Scalar>(i, j, stream); };
  }
};

} // namespace VesTest

#endif
