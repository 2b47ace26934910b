#include "mpi_wrapper.h"

#include "run_meter.h"

namespace Ves {

template <>
MPI_Datatype MpiType<int>() {
  return MPI_INT;
}
template <>
MPI_Datatype MpiType<double>() {
  return MPI_DOUBLE;
}
template <>
MPI_Datatype MpiType<float>() {
  return MPI_FLOAT;
}
template <>
MPI_Datatype MpiType<std::complex<double>>() {
  return MPI_DOUBLE_COMPLEX;
}
template <>
MPI_Datatype MpiType<std::complex<float>>() {
  return MPI_COMPLEX;
}

template <typename Scalar>
void MpiWrapper<Scalar>::AllReduce(Scalar* data, unsigned long count, MPI_Op op, MPI_Comm comm) {
  if (data == nullptr) return;
  ReduceInPlace(data, count, MpiType<Scalar>(), op, comm);
}

VES_INSTANTIATE(MpiWrapper);

} // namespace Ves
