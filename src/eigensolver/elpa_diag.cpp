#include "elpa_diag.h"

#include "../data/finite_entries.h"
#include "../data/replicate.h"
#include "../kernel/elpa_kernel.h"
#include "../parallel/run_meter.h"
#include "equal_values.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace Ves {

/// As many processes of a communicator as make a grid of about equal sides on which each row and
/// column holds a block, with a communicator of their own, since messages of ELPA must not meet
/// those of the caller. Making and freeing it are collective over the communicator.
class ElpaGrid : public CyclicLayout {
public:
  MPI_Comm comm = MPI_COMM_NULL;

  ElpaGrid(MPI_Comm over, int n) {
    constexpr int blockOrder = 32;
    const int mostParts = std::max(1, n / blockOrder);
    int p = 0, rank = 0;
    MPI_Comm_size(over, &p);
    MPI_Comm_rank(over, &rank);
    nprow = std::min(mostParts, static_cast<int>(std::sqrt(static_cast<double>(p))));
    npcol = std::min(mostParts, p / nprow);
    inGrid = rank < nprow * npcol;
    myrow = inGrid ? rank / npcol : -1;
    mycol = inGrid ? rank % npcol : -1;
    MPI_Comm_split(over, inGrid ? 0 : MPI_UNDEFINED, rank, &comm);
    DealOut(n, std::min(blockOrder, n));
  }
  ElpaGrid(const ElpaGrid&) = delete;
  ElpaGrid& operator=(const ElpaGrid&) = delete;
  ~ElpaGrid() {
    if (comm != MPI_COMM_NULL) MPI_Comm_free(&comm);
  }
};

template <typename Scalar>
ElpaDiag<Scalar>::ElpaDiag(VesDenseEigenSolverType kind) {
  this->evdType = kind;
}

template <typename Scalar>
VesReturnCode ElpaDiag<Scalar>::RunEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& info) {
  int nVectors = vecM.nCols;
  return RunLowestEvd(vecM, vecD, nVectors, info);
}

template <typename Scalar>
VesReturnCode ElpaDiag<Scalar>::RunLowestEvd(VesVectorBase& vecM, VesVectorBase& vecD,
                                             int& nVectors, int& info) {
  const VesReturnCode code = this->CheckArguments(vecM, vecD);
  if (code != VES_GOOD) return code;
  if (vecM.nCols >= std::max(threshold, 1) && nVectors > 0) {
    DecomposeLowest(AsDense<Scalar>(vecM), AsDense<Scalar>(vecD), nVectors, info);
    return VES_GOOD;
  }
  nVectors = vecM.nCols;
  return LapackDiag<Scalar>::RunEvd(vecM, vecD, info);
}

/// The values tell whether equal ones stand on both sides of the cut: then once more, with the
/// vectors of all of them.
template <typename Scalar>
void ElpaDiag<Scalar>::DecomposeLowest(VectorDense<Scalar>& vecM, VectorDense<Scalar>& vecD,
                                       int& nVectors, int& info) const {
  const RunMeter::DenseTime timed;
  info = LeadingFiniteOrder(vecM, this->uplo, vecM.nCols) < vecM.nCols ? 1 : 0;
  Replicate(info, vecM);
  if (info != 0) return;

  const ElpaGrid grid(vecM.comm, vecM.nCols);
  std::vector<High> localZ(grid.LocalSize());
  for (int nAsked = nVectors, pass = 0; pass < 2; ++pass) {
    nVectors = nAsked;
    info = RunElpa(grid, vecM, localZ.data(), vecD, nVectors);
    ReduceInPlace(&info, 1, MPI_INT, MPI_MAX, vecM.comm);
    Replicate(info, vecM);
    if (info != 0) return;
    Replicate(vecD);
    nAsked = CountUpTo<RealType<Scalar>>(vecD.values, vecD.nRows, nVectors);
    if (nAsked == nVectors) break;
  }
  VES_ASSERT_GOOD(vecM.Set2Zero());
  grid.ForEachLocalEntry([&](std::size_t l, int i, int j) {
    if (j < nVectors) vecM(i, j) = static_cast<Scalar>(localZ[l]);
  });
  VectorDense<Scalar> vectors(vecM, 0, 0, vecM.nRows, nVectors);
  vectors.AllReduce(MPI_SUM, vecM.comm);
  vectors.BroadCast(vecM.auxComm);
}

/// With both triangles, which ELPA reads, and a real diagonal.
template <typename Scalar>
std::vector<typename ElpaDiag<Scalar>::High>
ElpaDiag<Scalar>::LocalPiece(const ElpaGrid& grid, const VectorDense<Scalar>& vecM) const {
  const bool upper = this->uplo == 'U' || this->uplo == 'u';
  std::vector<High> localM(grid.LocalSize());
  grid.ForEachLocalEntry([&](std::size_t l, int i, int j) {
    const bool isRead = upper ? i < j : i > j;
    localM[l] =
        i == j ? High(std::real(vecM(i, i))) : High(isRead ? vecM(i, j) : Conjugate(vecM(j, i)));
  });
  return localM;
}

/// Collective over the grid; elsewhere nothing happens. \return 0, or without its sign the error of
/// ELPA, which need not be the same everywhere
template <typename Scalar>
int ElpaDiag<Scalar>::RunElpa(const ElpaGrid& grid, const VectorDense<Scalar>& vecM, High* localZ,
                              VectorDense<Scalar>& vecD, int nVectors) const {
  if (!grid.inGrid) return 0;
  const int n = vecM.nCols;
  std::vector<High> localM = LocalPiece(grid, vecM);
  std::vector<double> values(static_cast<std::size_t>(n));
  ElpaKernel elpa;
  elpa.Set("na", n);
  elpa.Set("nev", nVectors);
  elpa.Set("nblk", grid.nb);
  elpa.Set("local_nrows", grid.lld);
  elpa.Set("local_ncols", grid.locCols);
  elpa.Set("mpi_comm_parent", static_cast<int>(MPI_Comm_c2f(grid.comm)));
  elpa.Set("process_row", grid.myrow);
  elpa.Set("process_col", grid.mycol);
  // What one process could not set must not leave the others waiting in ELPA.
  const auto isRefused = [&] {
    int error = std::abs(elpa.Error());
    ReduceInPlace(&error, 1, MPI_INT, MPI_MAX, grid.comm);
    return error != 0;
  };
  if (isRefused()) return 1;
  elpa.Setup();
  elpa.Set("solver", this->evdType == VES_ELPA_DIAG ? ElpaKernel::oneStage : ElpaKernel::twoStage);
  if (isRefused()) return 1;
  elpa.Decompose(localM.data(), values.data(), localZ);
  for (int j = 0; elpa.Error() == 0 && j < n; ++j)
    vecD(j) = static_cast<RealType<Scalar>>(values[static_cast<std::size_t>(j)]);
  return std::abs(elpa.Error());
}

VES_INSTANTIATE(ElpaDiag);

} // namespace Ves
