#ifndef VES_KERNEL_MATH_CONSTANTS_H
#define VES_KERNEL_MATH_CONSTANTS_H

#include <complex>
#include <limits>

namespace Ves {

/// Typed constants with an address, as BLAS takes its scalars by reference.
template <typename Scalar>
struct MathConstants {
  static constexpr Scalar ZERO{0};
  static constexpr Scalar ONE{1};
  static constexpr Scalar NEG_ONE{-1};
  static constexpr Scalar INFTY{std::numeric_limits<Scalar>::infinity()};
};

template <typename Real>
struct MathConstants<std::complex<Real>> {
  static constexpr std::complex<Real> ZERO{0, 0};
  static constexpr std::complex<Real> ONE{1, 0};
  static constexpr std::complex<Real> NEG_ONE{-1, 0};
  static constexpr std::complex<Real> INFTY{std::numeric_limits<Real>::infinity(), 0};
};

/// Increments of vectors (1) and unit factors of integer arguments.
template <>
struct MathConstants<int> {
  static constexpr int ONE = 1;
  static constexpr int NEG_ONE = -1;
};

} // namespace Ves

#endif
