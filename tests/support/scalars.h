#ifndef VES_TESTS_SUPPORT_SCALARS_H
#define VES_TESTS_SUPPORT_SCALARS_H

#include "kernel/math_kernel.h"
#include "processes.h"

#include <gtest/gtest.h>

#include <limits>

namespace VesTest {

using AllScalars = testing::Types<double, float, std::complex<double>, std::complex<float>>;
using Wide = std::complex<double>; ///< what all of them are judged in
using Ints = std::vector<int>;

template <typename Scalar>
constexpr double eps = static_cast<double>(std::numeric_limits<Ves::RealType<Scalar>>::epsilon());
template <typename Scalar>
constexpr bool isDouble = eps<Scalar> < 1e-10;

/// A bound by the precision of the type.
template <typename Scalar>
constexpr double ByPrecision(double ofDouble, double ofSingle) {
  return isDouble<Scalar> ? ofDouble : ofSingle;
}

inline constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
inline constexpr double infinite = std::numeric_limits<double>::infinity();

/// A number of the type: the imaginary part is dropped for real types.
template <typename Scalar>
Scalar Number(double re, double im = 0.0) {
  using Real = Ves::RealType<Scalar>;
  if constexpr (Ves::isComplex<Scalar>)
    return {static_cast<Real>(re), static_cast<Real>(im)};
  else
    return static_cast<Real>(re);
}

template <typename Scalar>
Scalar Number(Wide value) {
  return Number<Scalar>(value.real(), value.imag());
}

/// Deterministic numbers without pattern in [-1, 1): entry (i, j) of a block, whatever its
/// distribution.
inline double Hashed(unsigned i, unsigned j, unsigned stream = 0) {
  unsigned h = i * 2654435761U ^ (j + 1) * 2246822519U ^ (stream + 1) * 3266489917U;
  h = (h ^ (h >> 15)) * 2246822519U;
  h = (h ^ (h >> 13)) * 3266489917U;
  return static_cast<double>(h ^ (h >> 16)) / 2147483648.0 - 1.0;
}

template <typename Scalar>
Scalar HashedNumber(int i, int j, unsigned stream = 0) {
  return Number<Scalar>(Hashed(static_cast<unsigned>(i), static_cast<unsigned>(j), stream),
                        Hashed(static_cast<unsigned>(i), static_cast<unsigned>(j), stream + 77));
}

} // namespace VesTest

#endif
