#ifndef VES_KERNEL_SCALAR_TRAITS_H
#define VES_KERNEL_SCALAR_TRAITS_H

#include <cmath>
#include <complex>
#include <type_traits>

namespace Ves {

/// Real type behind a scalar type: float or double.
template <typename Scalar>
struct RealTypeOf {
  using type = Scalar;
};
template <typename Real>
struct RealTypeOf<std::complex<Real>> {
  using type = Real;
};
template <typename Scalar>
using RealType = typename RealTypeOf<Scalar>::type;

/// The scalar type of the same field in single precision.
template <typename Scalar>
struct LowTypeOf {
  using type = float;
};
template <typename Real>
struct LowTypeOf<std::complex<Real>> {
  using type = std::complex<float>;
};
template <typename Scalar>
using LowType = typename LowTypeOf<Scalar>::type;

template <typename Scalar>
inline constexpr bool isComplex = !std::is_same_v<Scalar, RealType<Scalar>>;

template <typename Scalar>
Scalar Conjugate(const Scalar& value) {
  if constexpr (isComplex<Scalar>)
    return std::conj(value);
  else
    return value;
}

/// True when no part of the value is infinite or a NaN.
template <typename Scalar>
bool IsFinite(const Scalar& value) {
  return std::isfinite(std::real(value)) && std::isfinite(std::imag(value));
}

} // namespace Ves

#endif
