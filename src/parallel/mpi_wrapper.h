#ifndef VES_PARALLEL_MPI_WRAPPER_H
#define VES_PARALLEL_MPI_WRAPPER_H

#include <mpi.h>
#include <ves.h>

#include "../kernel/instantiate.h"

namespace Ves {

/// MPI datatype of a scalar type, or of int.
template <typename Scalar>
MPI_Datatype MpiType();
template <>
VES_EXPORT MPI_Datatype MpiType<int>();
template <>
VES_EXPORT MPI_Datatype MpiType<double>();
template <>
VES_EXPORT MPI_Datatype MpiType<float>();
template <>
VES_EXPORT MPI_Datatype MpiType<std::complex<double>>();
template <>
VES_EXPORT MPI_Datatype MpiType<std::complex<float>>();

/// In-place reductions of raw arrays.
template <typename Scalar>
class VES_EXPORT MpiWrapper {
public:
  virtual ~MpiWrapper() = default;

  /// Reduces count entries in place over comm. Collective; null data returns at once without
  /// taking part, so every process must pass storage.
  static void AllReduce(Scalar* data, unsigned long count, MPI_Op op, MPI_Comm comm);
};

VES_EXTERN_TEMPLATE(MpiWrapper);

} // namespace Ves

#endif
