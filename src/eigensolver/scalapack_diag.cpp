#include "scalapack_diag.h"

#include "../data/finite_entries.h"
#include "../data/replicate.h"
#include "../parallel/run_meter.h"
#include "workspace_size.h"

#include <algorithm>
#include <vector>

namespace Ves {

template <typename Scalar>
ScaLapackDiag<Scalar>::ScaLapackDiag() : ScaLapackDiag('V', 'U', 1, gridFrom) {}

template <typename Scalar>
ScaLapackDiag<Scalar>::ScaLapackDiag(char job, char triangle, int parameter, int fromOrder)
    : LapackDiag<Scalar>(job, triangle, parameter), threshold(fromOrder),
      blacs(std::make_unique<BlacsWrapper<Scalar>>()) {
  this->evdType = 1;
}

template <typename Scalar>
VesReturnCode ScaLapackDiag<Scalar>::RunEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& info) {
  const VesReturnCode code = this->CheckArguments(vecM, vecD);
  return code == VES_GOOD ? RunScaLapackEvd(AsDense<Scalar>(vecM), AsDense<Scalar>(vecD), info)
                          : code;
}

template <typename Scalar>
VesReturnCode ScaLapackDiag<Scalar>::RunScaLapackEvd(VectorDense<Scalar>& vecM,
                                                     VectorDense<Scalar>& vecD, int& info) {
  if (vecM.nCols < std::max(threshold, 1)) return LapackDiag<Scalar>::RunEvd(vecM, vecD, info);

  const RunMeter::DenseTime timed;
  // The distributed eigensolver never returns from a NaN; process 0 decides for all.
  info = LeadingFiniteOrder(vecM, this->uplo, vecM.nCols) < vecM.nCols ? 1 : 0;
  Replicate(info, vecM);
  if (info != 0) return VES_GOOD;

  int desc[9];
  blacs->InitDesc(desc, vecM.comm, vecM.nCols);
  const std::size_t localSize = blacs->LocalSize();
  std::vector<Scalar> localM(localSize), localZ(localSize);
  blacs->AssembleLocalData(vecM.values, vecM.ld, localM.data());
  if (blacs->inGrid) {
    if constexpr (isComplex<Scalar>)
      VES_ASSERT_GOOD(this->RunScaLapackCmplxEvd(vecM.nCols, localM.data(), desc, localZ.data(),
                                                 desc, vecD.values, info));
    else
      VES_ASSERT_GOOD(this->RunScaLapackRealEvd(vecM.nCols, localM.data(), desc, localZ.data(),
                                                desc, vecD.values, info));
  }
  Replicate(info, vecM);
  VES_ASSERT_GOOD(vecM.Set2Zero());
  blacs->DistributeLocalData(vecM.values, vecM.ld, localZ.data());
  vecM.AllReduce(MPI_SUM, vecM.comm);
  vecM.BroadCast(vecM.auxComm);
  Replicate(vecD);
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode ScaLapackDiag<Scalar>::RunScaLapackRealEvd(
    [[maybe_unused]] int n, [[maybe_unused]] Scalar* A, [[maybe_unused]] const int* descA,
    [[maybe_unused]] Scalar* Z, [[maybe_unused]] const int* descZ, [[maybe_unused]] Scalar* W,
    [[maybe_unused]] int& info) {
  if constexpr (isComplex<Scalar>) {
    return VES_ERR_MISMATCH;
  } else {
    using Kernel = MathKernelReal<Scalar>;
    const int nb = blacs->nb, np = blacs->locRows, nq = blacs->locCols;
    const int mp = blacs->maxLocRows, mq = blacs->maxLocCols;
    const int lworkMin =
        std::max({6 * n + 1 + 2 * std::max(np, 1) * nq, std::max(nb + np * nb, 3 * nb) + 3 * n,
                  std::max((mq + mp) * nb, ((nb - 1) * nb) / 2) + nb * nb}) +
        2 * n;
    const int liworkMin = 7 * n + 8 * blacs->npcol + 2;
    const int one = MathConstants<int>::ONE, query = -1;
    Scalar workQuery = 0;
    int intQuery = 0;
    Kernel::Psyevd(&this->jobz, &this->uplo, &n, A, &one, &one, descA, W, Z, &one, &one, descZ,
                   &workQuery, &query, &intQuery, &query, &info);
    std::vector<Scalar> work(WorkspaceSize(workQuery, lworkMin));
    std::vector<int> iwork(WorkspaceSize(intQuery, liworkMin));
    const int lwork = static_cast<int>(work.size()), liwork = static_cast<int>(iwork.size());
    Kernel::Psyevd(&this->jobz, &this->uplo, &n, A, &one, &one, descA, W, Z, &one, &one, descZ,
                   work.data(), &lwork, iwork.data(), &liwork, &info);
    return VES_GOOD;
  }
}

template <typename Scalar>
VesReturnCode ScaLapackDiag<Scalar>::RunScaLapackCmplxEvd(
    [[maybe_unused]] int n, [[maybe_unused]] Scalar* A, [[maybe_unused]] const int* descA,
    [[maybe_unused]] Scalar* Z, [[maybe_unused]] const int* descZ, [[maybe_unused]] Scalar* W,
    [[maybe_unused]] int& info) {
  if constexpr (!isComplex<Scalar>) {
    return VES_ERR_MISMATCH;
  } else {
    using Kernel = MathKernelCmplx<Scalar>;
    using Real = RealType<Scalar>;
    const int nb = blacs->nb, np = blacs->locRows, nq = blacs->locCols;
    const int mp = blacs->maxLocRows, mq = blacs->maxLocCols;
    const int lworkMin = std::max(std::max((mp + mq) * nb, ((nb - 1) * nb) / 2) + nb * nb,
                                  std::max(nb * (1 + np), 3 * nb)) +
                         n;
    const int lrworkMin = 9 * n + 1 + 3 * np * nq;
    const int liworkMin = 7 * n + 8 * blacs->npcol + 2;
    const int one = MathConstants<int>::ONE, query = -1;
    std::vector<Real> w(static_cast<std::size_t>(n));
    Scalar workQuery = 0;
    Real realQuery = 0;
    int intQuery = 0;
    Kernel::Pheevd(&this->jobz, &this->uplo, &n, A, &one, &one, descA, w.data(), Z, &one, &one,
                   descZ, &workQuery, &query, &realQuery, &query, &intQuery, &query, &info);
    std::vector<Scalar> work(WorkspaceSize(workQuery.real(), lworkMin));
    std::vector<Real> rwork(WorkspaceSize(realQuery, lrworkMin));
    std::vector<int> iwork(WorkspaceSize(intQuery, liworkMin));
    const int lwork = static_cast<int>(work.size()), lrwork = static_cast<int>(rwork.size()),
              liwork = static_cast<int>(iwork.size());
    Kernel::Pheevd(&this->jobz, &this->uplo, &n, A, &one, &one, descA, w.data(), Z, &one, &one,
                   descZ, work.data(), &lwork, rwork.data(), &lrwork, iwork.data(), &liwork, &info);
    for (std::size_t j = 0; info == 0 && j < w.size(); ++j)
      W[j] = w[j];
    return VES_GOOD;
  }
}

VES_INSTANTIATE(ScaLapackDiag);

} // namespace Ves
