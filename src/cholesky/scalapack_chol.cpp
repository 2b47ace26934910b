#include "scalapack_chol.h"

#include "../data/finite_entries.h"
#include "../data/replicate.h"
#include "../parallel/run_meter.h"

#include <algorithm>
#include <vector>

namespace Ves {

template <typename Scalar>
ScaLapackChol<Scalar>::ScaLapackChol() : blacs(std::make_unique<BlacsWrapper<Scalar>>()) {
  this->cholType = 1;
}

template <typename Scalar>
VesReturnCode ScaLapackChol<Scalar>::RunChol(VesVectorBase& vecM, int& info, char uplo) {
  const VesReturnCode code = this->CheckArguments(vecM);
  return code == VES_GOOD ? RunScaLapackChol(AsDense<Scalar>(vecM), info, uplo) : code;
}

template <typename Scalar>
VesReturnCode ScaLapackChol<Scalar>::RunScaLapackChol(VectorDense<Scalar>& vecM, int& info,
                                                      char uplo) {
  if (vecM.nCols < std::max(threshold, 1)) return LapackChol<Scalar>::RunChol(vecM, info, uplo);

  const RunMeter::DenseTime timed;
  // Process 0 decides for all whether the matrix may go to the grid: the one-process path deals
  // with a matrix that is finite only in its leading part.
  int isFinite = LeadingFiniteOrder(vecM, uplo, vecM.nCols) == vecM.nCols;
  Replicate(isFinite, vecM);
  if (!isFinite) return this->RunLapackChol(vecM, info, uplo);

  int desc[9];
  blacs->InitDesc(desc, vecM.comm, vecM.nCols);
  std::vector<Scalar> local(blacs->LocalSize());
  blacs->AssembleLocalData(vecM.values, vecM.ld, local.data());
  const int one = MathConstants<int>::ONE;
  if (blacs->inGrid)
    MathKernel<Scalar>::Ppotrf(&uplo, &vecM.nCols, local.data(), &one, &one, desc, &info);
  Replicate(info, vecM);
  VES_ASSERT_GOOD(vecM.Set2Zero());
  blacs->DistributeLocalData(vecM.values, vecM.ld, local.data());
  vecM.AllReduce(MPI_SUM, vecM.comm);
  vecM.BroadCast(vecM.auxComm);
  info = this->JudgeFactor(vecM, uplo, info);
  return VES_GOOD;
}

VES_INSTANTIATE(ScaLapackChol);

} // namespace Ves
