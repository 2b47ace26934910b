#include "lapack_diag.h"

#include "../data/finite_entries.h"
#include "../data/replicate.h"
#include "../parallel/run_meter.h"
#include "../parallel/thread_team.h"
#include "workspace_size.h"

#include <optional>
#include <vector>

namespace Ves {
namespace {

/// Smaller orders are decomposed by one thread, where a run has a team of them.
constexpr int threadedFrom = 500;

} // namespace

template <typename Scalar>
LapackDiag<Scalar>::LapackDiag() : LapackDiag('V', 'U', 1) {}

template <typename Scalar>
LapackDiag<Scalar>::LapackDiag(char job, char triangle, int parameter) {
  MathKernel<Scalar>::SetScalarType(scalarType);
  jobz = job;
  uplo = triangle;
  evdParam = parameter;
}

template <typename Scalar>
VesReturnCode LapackDiag<Scalar>::CheckArguments(const VesVectorBase& vecM,
                                                 const VesVectorBase& vecD) {
  if (vecM.nRows != vecM.nCols || vecD.nRows != vecM.nRows || vecD.nCols != 1)
    return VES_ERR_INCOMPATIBLE;
  return AllDense<Scalar>(vecM, vecD) ? VES_GOOD : VES_ERR_MISMATCH;
}

template <typename Scalar>
VesReturnCode LapackDiag<Scalar>::RunEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& info) {
  const VesReturnCode code = CheckArguments(vecM, vecD);
  return code == VES_GOOD ? RunLapackEvd(AsDense<Scalar>(vecM), AsDense<Scalar>(vecD), info) : code;
}

template <typename Scalar>
VesReturnCode LapackDiag<Scalar>::RunLapackEvd(VectorDense<Scalar>& vecM, VectorDense<Scalar>& vecD,
                                               int& info) {
  const RunMeter::DenseTime timed;
  OnProcess0(vecM, info, [&] {
    if constexpr (isComplex<Scalar>)
      VES_ASSERT_GOOD(this->RunLapackCmplxEvd(vecM.nRows, vecM.values, vecM.ld, vecD.values, info));
    else
      VES_ASSERT_GOOD(this->RunLapackRealEvd(vecM.nRows, vecM.values, vecM.ld, vecD.values, info));
  });
  Replicate(vecM);
  Replicate(vecD);
  Replicate(info, vecM);
  return VES_GOOD;
}

template <typename Scalar>
void LapackDiag<Scalar>::OnProcess0(const VectorDense<Scalar>& vecM, int& info,
                                    const std::function<void()>& decompose) const {
  int rank = 0;
  MPI_Comm_rank(vecM.comm, &rank);
  if (rank != 0) return;
  std::optional<ThreadTeam::Rest> providersThreads;
  if (vecM.nRows >= threadedFrom) providersThreads.emplace();
  if (LeadingFiniteOrder(vecM, uplo, vecM.nCols) < vecM.nCols)
    info = 1;
  else
    decompose();
}

template <typename Scalar>
VesReturnCode
LapackDiag<Scalar>::RunLapackRealEvd([[maybe_unused]] int n, [[maybe_unused]] Scalar* A,
                                     [[maybe_unused]] int lda, [[maybe_unused]] Scalar* W,
                                     [[maybe_unused]] int& info) {
  if constexpr (isComplex<Scalar>) {
    return VES_ERR_MISMATCH;
  } else {
    using Kernel = MathKernelReal<Scalar>;
    Scalar workQuery = 0;
    int intQuery = 0, query = -1;
    Kernel::Syevd(&jobz, &uplo, &n, A, &lda, W, &workQuery, &query, &intQuery, &query, &info);
    std::vector<Scalar> work(WorkspaceSize(workQuery));
    std::vector<int> iwork(WorkspaceSize(intQuery));
    const int lwork = static_cast<int>(work.size()), liwork = static_cast<int>(iwork.size());
    Kernel::Syevd(&jobz, &uplo, &n, A, &lda, W, work.data(), &lwork, iwork.data(), &liwork, &info);
    return VES_GOOD;
  }
}

template <typename Scalar>
VesReturnCode
LapackDiag<Scalar>::RunLapackCmplxEvd([[maybe_unused]] int n, [[maybe_unused]] Scalar* A,
                                      [[maybe_unused]] int lda, [[maybe_unused]] Scalar* W,
                                      [[maybe_unused]] int& info) {
  if constexpr (!isComplex<Scalar>) {
    return VES_ERR_MISMATCH;
  } else {
    using Kernel = MathKernelCmplx<Scalar>;
    using Real = RealType<Scalar>;
    std::vector<Real> w(static_cast<std::size_t>(n));
    Scalar workQuery = 0;
    Real realQuery = 0;
    int intQuery = 0, query = -1;
    Kernel::Heevd(&jobz, &uplo, &n, A, &lda, w.data(), &workQuery, &query, &realQuery, &query,
                  &intQuery, &query, &info);
    std::vector<Scalar> work(WorkspaceSize(workQuery.real()));
    std::vector<Real> rwork(WorkspaceSize(realQuery));
    std::vector<int> iwork(WorkspaceSize(intQuery));
    const int lwork = static_cast<int>(work.size()), lrwork = static_cast<int>(rwork.size()),
              liwork = static_cast<int>(iwork.size());
    Kernel::Heevd(&jobz, &uplo, &n, A, &lda, w.data(), work.data(), &lwork, rwork.data(), &lrwork,
                  iwork.data(), &liwork, &info);
    for (std::size_t j = 0; info == 0 && j < w.size(); ++j)
      W[j] = w[j];
    return VES_GOOD;
  }
}

VES_INSTANTIATE(LapackDiag);

} // namespace Ves
