#include "lapack_lowest_diag.h"

#include "../data/replicate.h"
#include "../parallel/run_meter.h"
#include "equal_values.h"
#include "workspace_size.h"

#include <algorithm>
#include <vector>

namespace Ves {
namespace {

/// A = Q T Q^H with the tridiagonal matrix T. A keeps the reflections that make Q.
template <typename Scalar>
struct Tridiagonal {
  using Kernel = MathKernel<Scalar>;
  using Real = RealType<Scalar>;
  char uplo;
  int n, lda;
  Scalar* A;
  std::vector<Real> diagonal, beside;
  std::vector<Scalar> tau;

  Tridiagonal(char triangle, VectorDense<Scalar>& matrix, int& info)
      : uplo(triangle), n(matrix.nCols), lda(matrix.ld), A(matrix.values),
        diagonal(static_cast<std::size_t>(n)), beside(diagonal.size()), tau(diagonal.size()) {
    Work([&](Scalar* work, int lwork) {
      Kernel::Hetrd(&uplo, &n, A, &lda, diagonal.data(), beside.data(), tau.data(), work, &lwork,
                    &info);
    });
  }

  /// Values into the diagonal; \return the vectors of T, n x n
  std::vector<Real> Decompose(int& info) {
    std::vector<Real> vectors(diagonal.size() * diagonal.size());
    const char compz = 'I';
    Real workQuery = 0;
    int intQuery = 0, query = -1;
    Kernel::Stedc(&compz, &n, diagonal.data(), beside.data(), vectors.data(), &n, &workQuery,
                  &query, &intQuery, &query, &info);
    std::vector<Real> work(WorkspaceSize(workQuery));
    std::vector<int> iwork(WorkspaceSize(intQuery));
    const int lwork = static_cast<int>(work.size()), liwork = static_cast<int>(iwork.size());
    Kernel::Stedc(&compz, &n, diagonal.data(), beside.data(), vectors.data(), &n, work.data(),
                  &lwork, iwork.data(), &liwork, &info);
    return vectors;
  }

  /// C := Q C, n x nCols.
  void Transform(std::vector<Scalar>& C, int nCols, int& info) {
    const char side = 'L', trans = 'N';
    Work([&](Scalar* work, int lwork) {
      Kernel::Unmtr(&side, &uplo, &trans, &n, &nCols, A, &lda, tau.data(), C.data(), &n, work,
                    &lwork, &info);
    });
  }

private:
  template <typename Call>
  void Work(Call call) {
    Scalar query = 0;
    call(&query, -1);
    std::vector<Scalar> work(WorkspaceSize(std::real(query)));
    call(work.data(), static_cast<int>(work.size()));
  }
};

} // namespace

template <typename Scalar>
VesReturnCode LapackLowestDiag<Scalar>::RunLowestEvd(VesVectorBase& vecM, VesVectorBase& vecD,
                                                     int& nVectors, int& info) {
  const VesReturnCode code = this->CheckArguments(vecM, vecD);
  if (code != VES_GOOD) return code;
  if (nVectors > 0 && nVectors < vecM.nCols) {
    DecomposeLowest(AsDense<Scalar>(vecM), AsDense<Scalar>(vecD), nVectors, info);
    return VES_GOOD;
  }
  nVectors = vecM.nCols;
  return this->RunEvd(vecM, vecD, info);
}

/// On process 0, then for all: info, how many vectors, values and these vectors.
template <typename Scalar>
void LapackLowestDiag<Scalar>::DecomposeLowest(VectorDense<Scalar>& vecM, VectorDense<Scalar>& vecD,
                                               int& nVectors, int& info) const {
  const RunMeter::DenseTime timed;
  const int n = vecM.nCols;
  this->OnProcess0(vecM, info, [&] {
    Tridiagonal<Scalar> reduced(this->uplo, vecM, info);
    const auto coefficients = reduced.Decompose(info);
    if (info != 0) return;
    nVectors = CountUpTo<RealType<Scalar>>(reduced.diagonal.data(), n, nVectors);
    std::vector<Scalar> vectors(coefficients.begin(),
                                coefficients.begin() + static_cast<std::ptrdiff_t>(n) * nVectors);
    reduced.Transform(vectors, nVectors, info);
    std::copy(reduced.diagonal.begin(), reduced.diagonal.end(), vecD.values);
    VES_ASSERT_GOOD(vecM.Set2Zero());
    for (int j = 0; j < nVectors; ++j)
      std::copy_n(vectors.data() + static_cast<std::ptrdiff_t>(j) * n, n, vecM.Column(j));
  });
  Replicate(info, vecM);
  Replicate(nVectors, vecM);
  Replicate(vecM);
  Replicate(vecD);
}

VES_INSTANTIATE(LapackLowestDiag);

} // namespace Ves
