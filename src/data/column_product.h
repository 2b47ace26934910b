#ifndef VES_DATA_COLUMN_PRODUCT_H
#define VES_DATA_COLUMN_PRODUCT_H

#include "../kernel/in_pieces.h"
#include "../kernel/math_kernel.h"

#include <complex>
#include <type_traits>

namespace Ves {

/// x^H y of columns of n rows. BLAS adds up as many as it is given in few numbers of their own
/// precision, where those of a single one stop growing: long columns go in pieces, whose products
/// are added in double.
template <typename Scalar>
Scalar ColumnProduct(int n, const Scalar* x, const Scalar* y) {
  constexpr int most = 1 << 20;
  const int one = MathConstants<int>::ONE;
  if (n <= most) return MathKernel<Scalar>::Dot(&n, x, &one, y, &one);
  std::conditional_t<isComplex<Scalar>, std::complex<double>, double> sum{};
  InPieces(n, most, [&](int first, int count) {
    sum += MathKernel<Scalar>::Dot(&count, x + first, &one, y + first, &one);
  });
  return static_cast<Scalar>(sum);
}

} // namespace Ves

#endif
