#include "lapack_chol.h"

#include "../data/finite_entries.h"
#include "../data/replicate.h"
#include "../parallel/run_meter.h"

namespace Ves {

template <typename Scalar>
LapackChol<Scalar>::LapackChol() {
  MathKernel<Scalar>::SetScalarType(scalarType);
}

template <typename Scalar>
VesReturnCode LapackChol<Scalar>::CheckArguments(const VesVectorBase& vecM) {
  if (vecM.nRows != vecM.nCols) return VES_ERR_INVALID_VALUE;
  return IsDense<Scalar>(vecM) ? VES_GOOD : VES_ERR_MISMATCH;
}

template <typename Scalar>
VesReturnCode LapackChol<Scalar>::RunChol(VesVectorBase& vecM, int& info, char uplo) {
  const VesReturnCode code = CheckArguments(vecM);
  return code == VES_GOOD ? RunLapackChol(AsDense<Scalar>(vecM), info, uplo) : code;
}

template <typename Scalar>
VesReturnCode LapackChol<Scalar>::RunLapackChol(VectorDense<Scalar>& vecM, int& info, char uplo) {
  const RunMeter::DenseTime timed;
  int rank = 0;
  MPI_Comm_rank(vecM.comm, &rank);
  if (rank == 0) info = FactorizeHere(vecM, uplo);
  Replicate(vecM);
  Replicate(info, vecM);
  return VES_GOOD;
}

template <typename Scalar>
int LapackChol<Scalar>::FactorizeHere(VectorDense<Scalar>& vecM, char uplo) {
  const int order = LeadingFiniteOrder(vecM, uplo, vecM.nCols);
  int info = 0;
  MathKernel<Scalar>::Potrf(&uplo, &order, vecM.values, &vecM.ld, &info);
  return JudgeFactor(vecM, uplo, info);
}

template <typename Scalar>
int LapackChol<Scalar>::JudgeFactor(const VectorDense<Scalar>& vecM, char uplo, int info) {
  if (info < 0) return info;
  const int order = info > 0 ? info - 1 : vecM.nCols;
  const int finite = LeadingFiniteOrder(vecM, uplo, order);
  return finite < order ? finite + 1 : info;
}

VES_INSTANTIATE(LapackChol);

} // namespace Ves
