#ifndef VES_INTERFACE_SCALAR_DISPATCH_H
#define VES_INTERFACE_SCALAR_DISPATCH_H

#include <ves.h>

#include <complex>

namespace Ves {

/// Stands for a scalar type in the argument of a generic lambda.
template <typename Scalar>
struct ScalarTag {
  using type = Scalar;
};

/// The one choice of an instantiation by scalar type code: the result of action on the tag of the
/// type, or otherwise when the code is none of the four.
template <typename Result, typename Action>
Result DispatchScalar(VesScalarType code, Result otherwise, Action action) {
  switch (code) {
  case VES_DOUBLE:
    return action(ScalarTag<double>{});
  case VES_FLOAT:
    return action(ScalarTag<float>{});
  case VES_COMPLEX_DOUBLE:
    return action(ScalarTag<std::complex<double>>{});
  case VES_COMPLEX_FLOAT:
    return action(ScalarTag<std::complex<float>>{});
  }
  return otherwise;
}

} // namespace Ves

#endif
