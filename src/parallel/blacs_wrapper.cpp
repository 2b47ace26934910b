#include "blacs_wrapper.h"

#include "../kernel/blacs_kernel.h"
#include "agreement.h"
#include "run_meter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace Ves {

namespace {

bool MpiIsFinalized() {
  int finalized = 0;
  MPI_Finalized(&finalized);
  return finalized != 0;
}

std::size_t Offset(int row, int col, int ld) {
  return static_cast<std::size_t>(row) +
         static_cast<std::size_t>(col) * static_cast<std::size_t>(ld);
}

} // namespace

BlacsBase::~BlacsBase() {
  ExitGrid();
}

void BlacsBase::InitGrid() {
  int p = 0, rank = 0;
  MPI_Comm_size(comm, &p);
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  // The default system context spans the whole job, and mapping a grid from it waits for every
  // process of the job. On a proper part of the job the communicator itself is the parent
  // context, and grid positions are ranks in it.
  const bool spansWorld = HaveSameProcesses(comm, MPI_COMM_WORLD);
  if (!spansWorld) MPI_Comm_rank(comm, &rank);
  std::vector<int> ranks(static_cast<std::size_t>(p));
  MPI_Allgather(&rank, 1, MPI_INT, ranks.data(), 1, MPI_INT, comm);

  nprow = npcol = static_cast<int>(std::sqrt(static_cast<double>(p)));
  const auto rows = static_cast<std::size_t>(nprow), cols = static_cast<std::size_t>(npcol);
  std::vector<int> map(rows * cols);
  for (std::size_t i = 0; i < rows; ++i)
    for (std::size_t k = 0; k < cols; ++k)
      map[i + k * rows] = ranks[i * cols + k];

  ictxt = spansWorld ? BlacsKernel::DefaultContext() : static_cast<int>(MPI_Comm_c2f(comm));
  BlacsKernel::GridMap(ictxt, map.data(), nprow, nprow, npcol);
  BlacsKernel::GridInfo(ictxt, nprow, npcol, myrow, mycol);
  gridReady = true;
  inGrid = nprow != -1 && npcol != -1 && myrow != -1 && mycol != -1;
  if (inGrid) BlacsKernel::MakeRepeatable(ictxt);
}

void BlacsBase::ExitGrid() {
  if (MpiIsFinalized()) return;
  if (gridReady && inGrid && ictxt != -1) BlacsKernel::GridExit(ictxt);
  ictxt = -1;
  if (ownsComm) MPI_Comm_free(&comm);
  comm = MPI_COMM_WORLD;
  ownsComm = false;
}

void BlacsBase::ReplaceComm(MPI_Comm newComm) {
  // A duplicate: the caller may free his communicator before the next run, and a recycled handle
  // must not pass for the one that this grid was built on.
  MPI_Comm_dup(newComm, &comm);
  ownsComm = true;
}

void BlacsBase::InitDesc(int* desc, MPI_Comm gridComm, int n) {
  // Agreed on by all: a process that used this object alone in between would otherwise rebuild
  // while the others reuse, and wait for them.
  int rebuild = !gridReady || !ownsComm || !HaveSameProcesses(gridComm, comm);
  ReduceInPlace(&rebuild, 1, MPI_INT, MPI_MAX, gridComm);
  if (rebuild != 0) {
    ExitGrid();
    ReplaceComm(gridComm);
    InitGrid();
  }
  DealOut(n, std::clamp((n + npcol - 1) / npcol, 1, 64));
  rsrc = csrc = 0;
  maxLocRows = locRows;
  maxLocCols = locCols;
  ReduceInPlace(&maxLocRows, 1, MPI_INT, MPI_MAX, gridComm);
  ReduceInPlace(&maxLocCols, 1, MPI_INT, MPI_MAX, gridComm);
  int info = 0;
  if (inGrid) BlacsKernel::DescInit(desc, n, n, nb, nb, rsrc, csrc, ictxt, lld, info);
}

template <typename Scalar>
void BlacsWrapper<Scalar>::AssembleLocalData(const Scalar* global, int ldGlobal,
                                             Scalar* local) const {
  ForEachLocalEntry(
      [&](std::size_t l, int i, int j) { local[l] = global[Offset(i, j, ldGlobal)]; });
}

template <typename Scalar>
void BlacsWrapper<Scalar>::DistributeLocalData(Scalar* global, int ldGlobal,
                                               const Scalar* local) const {
  ForEachLocalEntry(
      [&](std::size_t l, int i, int j) { global[Offset(i, j, ldGlobal)] = local[l]; });
}

VES_INSTANTIATE(BlacsWrapper);

} // namespace Ves
