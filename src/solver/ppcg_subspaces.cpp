#include "ppcg.h"

#include "../data/replicate.h"
#include "../kernel/in_pieces.h"
#include "../parallel/blacs_wrapper.h"
#include "../parallel/thread_team.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace Ves {

namespace {

int SumOf(const std::vector<int>& widths) {
  return std::accumulate(widths.begin(), widths.end(), 0);
}

} // namespace

/// Packs the residuals of all sub-blocks without gaps and applies A to them.
template <typename Scalar>
void PPCG<Scalar>::AssembleActiveResiduals(const VesMatrixBase& matA) const {
  if (nR == 0) return;
  const Pairs z(workZ, Z().BX), scratch(workT, isGeneralized ? workBT : workT);
  int disp = 2 * nBands;
  for (std::size_t j = 0; j < nRs.size(); ++j) {
    nVs[j] = nXs[j] + nPs[j] + nRs[j];
    if (dispR[j] != disp) {
      const Pairs way = scratch.Columns(0, nRs[j]); // the places may overlap
      z.Columns(dispR[j], nRs[j]).CopyTo(way);
      way.CopyTo(z.Columns(disp, nRs[j]));
      dispR[j] = disp;
    }
    disp += nRs[j];
  }
  nR = SumOf(nRs);
  // No direction for longer than it takes to lock exact vectors, whose residuals of zero make their
  // sub-blocks lose all rank: nothing can change X any more.
  isIdle = nR == 0 && SumOf(nPs) == 0;
  check.NoteDirections(nR + SumOf(nPs), std::max(rrPeriod, 1));
  Z(2 * nBands, nR).RefreshA(matA);
}

template <typename Scalar>
void PPCG<Scalar>::GatherSubspace(const Block& block, std::size_t j, int first, int rows,
                                  int toRow) const {
  const auto place = [&](int to, int from, int count) {
    Block part(workT, toRow, to, rows, count);
    VES_ASSERT_GOOD(part.CopyData(Block(block, first, from, rows, count)));
  };
  place(0, dispX[j], nXs[j]);
  place(nXs[j], dispP[j], nPs[j]);
  place(nXs[j] + nPs[j], dispR[j], nRs[j]);
}

/// Upper block triangles of G_j = [X_j P_j R_j]^H A [X_j P_j R_j], summed in one reduction for all.
/// Each basis is B-orthonormal, so the small problems are standard.
template <typename Scalar>
void PPCG<Scalar>::ComputeRayleighRitzMatrix() const {
  nVmax = nVs.empty() ? 0 : *std::max_element(nVs.begin(), nVs.end());
  workG.SetDims(nVmax, nVmax * nBlocks, nVmax);
  VES_ASSERT_GOOD(workG.Set2Zero());
  for (std::size_t j = 0; j < nVs.size(); ++j) {
    GatherSubspace(workZ, j, 0, nPW, 0);
    const Block tile = Tile(j);
    const auto product = [&](int first, int count, int dispA) {
      Block part(tile, 0, first, first + count, count);
      const Block images = Columns(workAZ, dispA, count);
      VES_ASSERT_GOOD(part.InnerProduct(Columns(workT, 0, first + count), images, false));
    };
    product(0, nXs[j], dispX[j]);
    product(nXs[j], nPs[j], dispP[j]);
    product(nXs[j] + nPs[j], nRs[j], dispR[j]);
  }
  workG.AllReduce(MPI_SUM, workG.comm);
}

/// Every process decomposes all tiles, and the results of process 0 count, in three broadcasts
/// whatever the number of tiles; those that are dealt out over the processes are left to all.
template <typename Scalar>
void PPCG<Scalar>::SubspacesDiagonalization() const {
  const bool isLocal = nVmax < gridFrom;
  Block values;
  this->ShapeSmall(values, nVmax, nBlocks);
  VES_ASSERT_GOOD(values.AllocateMem());
  VES_ASSERT_GOOD(values.Set2Zero());
  std::vector<int> infos(nVs.size(), 0);
  for (std::size_t j = 0; j < nVs.size(); ++j) {
    Block tile = Tile(j), column(values, 0, static_cast<int>(j), nVs[j], 1);
    for (Block* const block : {&tile, &column})
      if (isLocal)
        block->SetShape(MPI_COMM_SELF, MPI_COMM_SELF, block->nRows, block->nCols, block->ld);
    int nVectors = nXs[j];
    VES_ASSERT_GOOD(this->DenseEigenSolver->RunLowestEvd(tile, column, nVectors, infos[j]));
  }
  if (isLocal) {
    Ves::Replicate(workG);
    Ves::Replicate(values);
    this->Replicate(infos);
  }
  for (std::size_t j = 0; j < nVs.size() && info == 0; ++j) {
    info = infos[j];
    if (info == 0) this->NoteRitzValues(Block(values, 0, static_cast<int>(j), nVs[j], 1));
  }
}

/// X_j := [X_j P_j R_j] C_X and P_j := [P_j R_j] C_PR, where C_X are the lowest eigenvectors of the
/// tile and C_PR their rows of P and R; likewise the images.
template <typename Scalar>
void PPCG<Scalar>::UpdateEigenVectors() const {
  for (std::size_t j = 0; j < nVs.size(); ++j) {
    const int nRest = nVs[j] - nXs[j];
    const Block tile = Tile(j);
    const Block vecCX(tile, 0, 0, nVs[j], nXs[j]);
    Block vecCP;
    this->ShapeSmall(vecCP, nRest, nXs[j]);
    VES_ASSERT_GOOD(vecCP.AllocateMem());
    GatherDirections(Block(tile, nXs[j], 0, nRest, nXs[j]), vecCP);
    // Each thread takes its bands through the first rows of workT that are its own.
    InShares(Shares(nPW, Pairs::bandRows), [&](int, int begin, int length) {
      Z().ForEach([&](const Block& basis) {
        InPieces(length, int{Pairs::bandRows}, [&](int before, int rows) {
          const int first = begin + before;
          GatherSubspace(basis, j, first, rows, begin);
          Block vecX(basis, first, dispX[j], rows, nXs[j]),
              vecP(basis, first, dispP[j], rows, nXs[j]);
          VES_ASSERT_GOOD(vecX.Gemm(Block(workT, begin, 0, rows, nVs[j]), vecCX));
          VES_ASSERT_GOOD(vecP.Gemm(Block(workT, begin, nXs[j], rows, nRest), vecCP));
        });
      });
    });
  }
  nP = SumOf(nXs);
  areFresh = false;
}

/// Orthonormalizes the coefficients of new directions (Gram-Schmidt, each vector twice), so that
/// small steps do not pass for dependent ones, nor dependent ones for directions: those of columns
/// without a residual of their own lie in the span of the others, and what is left of them is the
/// errors of the coefficients. So a vector of which less than a hundredth is new becomes zero
/// behind the rest, as does one that is no longer than a rounding error.
template <typename Scalar>
void PPCG<Scalar>::GatherDirections(const Block& from, Block& to) const {
  using Real = RealType<Scalar>;
  constexpr Real smallest = 64 * std::numeric_limits<Real>::epsilon(), dependent = Real(0.01);
  const int n = from.nRows, one = MathConstants<int>::ONE;
  VES_ASSERT_GOOD(to.Set2Zero());
  for (int j = 0, kept = 0; j < from.nCols && kept < n; ++j) {
    Scalar* const v = &to(0, kept);
    MathKernel<Scalar>::Copy(&n, &from(0, j), &one, v, &one);
    const auto normOf = [&] {
      return std::sqrt(std::real(MathKernel<Scalar>::Dot(&n, v, &one, v, &one)));
    };
    const Real step = normOf();
    for (int i = 0; i < 2 * kept; ++i) {
      const Scalar* const q = &to(0, i % kept);
      const Scalar overlap = MathKernel<Scalar>::Dot(&n, q, &one, v, &one);
      for (int r = 0; r < n; ++r)
        v[r] -= overlap * q[r];
    }
    const Real norm = normOf();
    const bool isDirection = norm > smallest && norm > dependent * step;
    const Scalar factor = isDirection ? Scalar(1 / norm) : MathConstants<Scalar>::ZERO;
    MathKernel<Scalar>::Scal(&n, &factor, v, &one);
    kept += isDirection ? 1 : 0;
  }
}

/// The sub-blocks were updated on their own: X is B-orthonormalized as a whole, with its images.
/// Where a basis [X_j P_j R_j] was not B-orthonormal, vectors have lost their unit norm, and to
/// stretch them would spoil their images.
template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeEigenVectors(const VesMatrixBase& matA,
                                             const VesMatrixBase& matB) const {
  if (nX == 0) return;
  if (check.IsRestartDue()) return Restart(matA, matB);
  const Pairs x = Active();
  const std::vector<int> first{0}, all{nX};
  auto gram = std::make_unique<GroupProducts<Scalar>>(x.X, Groups{first, all}, x.BX,
                                                      Groups{first, all}, true);
  std::vector<Scalar> squares(static_cast<std::size_t>(nX));
  for (int j = 0; j < nX; ++j)
    squares[static_cast<std::size_t>(j)] = (*gram)[0](j, j);
  if (check.IsOn() && this->UnitNormError(squares) > Limit::unitNorm) return Restart(matA, matB);
  const HandOver<Scalar> handed(this->PlaceOfGrams(), std::move(gram));
  int colRank = 0;
  const VesReturnCode code = VES_ASSERT_GOOD_OR(
      VES_ERR_INCOMPATIBLE, this->Orthogonalizer->Run(x.X, x.BX, x.AX, matB, colRank, true,
                                                      this->InnerPasses(), orthoInnerTol));
  if (code == VES_GOOD && colRank == nX) return;
  MergeBlocks(); // their updates depended on each other
  Restart(matA, matB);
}

/// Where sub-blocks go for the same directions, as where most values are equal, one block of all
/// columns takes their place for the rest of the run, unless that is too large. Collective.
template <typename Scalar>
void PPCG<Scalar>::MergeBlocks() const {
  if (!check.IsOn() || nBlocks < 2 || 3 * nBands > this->largestDenseOrder) return;
  const int width = runBatch;
  if (AllocateSubspaces(nBands) != VES_GOOD) VES_ASSERT_GOOD(AllocateSubspaces(width));
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
