#include "ppcg.h"

#include "../orthogonalizer/pass_loop.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>

namespace Ves {

/// P against all X, and R brought near to 1, with one sum for what both need.
template <typename Scalar>
void PPCG<Scalar>::ProjectDirections(const VesMatrixBase& matB, bool isPreconditioned) const {
  const Pairs x = Z(0, nBands), p = Z(nBands, nP);
  const Block vecR = Columns(workZ, 2 * nBands, nR);
  std::vector<double> norms = this->ConvergeDetector->residualNorms;
  const bool areKnown = !isPreconditioned && !norms.empty();
  JointSum<Scalar> sum;
  std::vector<Scalar> squares;
  if (!areKnown) {
    squares = vecR.LocalProducts(vecR);
    squares.pop_back();
    sum.Add(squares.data(), squares.size());
  }
  KnownProducts<Scalar> overlaps;
  if (nP > 0) {
    overlaps = std::make_unique<GroupProducts<Scalar>>(x.BX, Groups{{0}, {nBands}}, p.X,
                                                       Groups{{0}, {nP}}, false);
    overlaps->AddTo(sum);
  }
  if (!areKnown || nP > 0) sum.Reduce(workZ.comm);
  if (!areKnown) {
    norms.clear();
    for (const Scalar square : squares)
      norms.push_back(static_cast<double>(std::abs(std::sqrt(square))));
  }
  ScaleResiduals(norms);
  if (nP == 0) return;
  const HandOver<Scalar> handed(this->PlaceOfOverlaps(), std::move(overlaps));
  VES_ASSERT_GOOD(this->OrthoProjector->Run(x.X, x.BX, x.AX, p.X, p.BX, p.AX, matB, true,
                                            this->InnerPasses(), orthoInnerTol));
}

/// The orthogonalizers take columns that are small in absolute terms for dependent ones: a common
/// power of two brings R near to 1, or with the self-check one for each column, but for those that
/// are no more than rounding errors beside the largest, which keep their distance from it.
template <typename Scalar>
void PPCG<Scalar>::ScaleResiduals(const std::vector<double>& tested) const {
  constexpr int most = std::numeric_limits<RealType<Scalar>>::max_exponent - 2;
  if (nR == 0) return;
  const Block vecR = Columns(workZ, 2 * nBands, nR);
  std::vector<double> norms(tested.end() - nR, tested.end()); // without columns locked since
  this->Replicate(norms);
  const double largest = *std::max_element(norms.begin(), norms.end());
  if (!(largest > 0.0) || std::isinf(largest)) return;
  for (int j = 0; j < vecR.nCols; ++j) {
    const double norm = norms[static_cast<std::size_t>(j)];
    const bool isOwn = check.IsOn() && norm > Limit::generous * Limit::epsilon * largest;
    const double size = isOwn ? norm : largest;
    const int exponent = std::clamp(-std::ilogb(size), -most, most);
    Block column = Columns(vecR, j, 1);
    VES_ASSERT_GOOD(column.ScaleByVal(Scalar(std::ldexp(RealType<Scalar>(1), exponent))));
  }
}

/// The Gram matrices of the P_j and the products of X with R in one sum, and whether R is finite:
/// a NaN or an infinity out of T or B must not pass for a direction without length.
template <typename Scalar>
typename PPCG<Scalar>::FirstProducts PPCG<Scalar>::SumProducts(const VesMatrixBase& matB,
                                                               bool isWatched) const {
  const Pairs x = Z(0, nBands), r = Z(2 * nBands, nR), z = Z();
  r.RefreshB(matB);
  FirstProducts products;
  JointSum<Scalar> sum;
  if (nP > 0) {
    products.ofP = std::make_unique<GroupProducts<Scalar>>(z.X, Groups{dispP, nPs}, z.BX,
                                                           Groups{dispP, nPs}, false);
    products.ofP->AddTo(sum);
  }
  if (nR > 0) {
    products.ofR = std::make_unique<GroupProducts<Scalar>>(x.BX, Groups{{0}, {nBands}}, r.X,
                                                           Groups{{0}, {nR}}, false);
    products.ofR->AddTo(sum);
  }
  Scalar unclean =
      isWatched && !this->HoldsFinite(r) ? MathConstants<Scalar>::ONE : MathConstants<Scalar>::ZERO;
  sum.Add(&unclean, 1);
  sum.Reduce(workZ.comm);
  if (isWatched) {
    info = unclean == MathConstants<Scalar>::ZERO ? 0 : 1;
    this->Replicate(info);
  }
  return products;
}

/// Each P_j in itself; further passes bring it against X_j again.
template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeConjugateDirections(const VesMatrixBase& matB,
                                                    KnownProducts<Scalar> grams) const {
  if (nP == 0) return;
  const Pairs z = Z();
  const HandOver<Scalar> handed(this->PlaceOfGrams(), std::move(grams));
  std::vector<double> orthoErrors(nPs.size(), 0.0);
  std::vector<int> nPsTmp;
  RepeatPasses(
      this->Passes(), orthoTol, this->secondComm,
      [&](bool isFirst) {
        if (!isFirst)
          VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(z.X, z.BX, z.AX, z.X, z.BX, z.AX, dispX,
                                                         nXs, dispP, nPs, matB, true,
                                                         this->InnerPasses(), orthoInnerTol));
        nPsTmp = nPs;
        VES_ASSERT_GOOD(this->Orthogonalizer->RunBatch(z.X, z.BX, z.AX, dispP, nPsTmp, matB, true,
                                                       this->InnerPasses(), orthoInnerTol));
        return VES_GOOD;
      },
      [&] {
        VES_ASSERT_GOOD(
            z.BX.CheckBatchOrthogonality(z.X, dispX, nXs, dispP, nPsTmp, orthoErrors, false, true));
        return LargestError(orthoErrors, nXs);
      });
  nPs = nPsTmp;
}

/// Gathers the residuals that are still to be iterated at the front of each sub-block. Flags stand
/// at the row of the column they were made for: those of columns locked since come first. The
/// B-images are formed afterwards.
template <typename Scalar>
void PPCG<Scalar>::SoftLocking() const {
  if (nR == 0 || softLockingType < 1) return;
  const Block& flags = softLockingType == 1 ? idxsLock : idxsConv;
  for (std::size_t j = 0; j < nRs.size(); ++j) {
    const Block idxsBatch(flags, flagShift + static_cast<int>(j) * runBatch, 0, nRs[j], 1);
    Block vecR = Columns(workZ, dispR[j], nRs[j]);
    VES_ASSERT_GOOD(vecR.PermuteCols(idxsBatch, 1, nActive));
    nRs[j] = nActive;
  }
}

/// R against all X, then each R_j against P_j and in itself; further passes bring R_j against X_j
/// again.
template <typename Scalar>
void PPCG<Scalar>::OrthogonalizeResiduals(const VesMatrixBase& matB,
                                          KnownProducts<Scalar> overlaps) const {
  if (nR == 0) return;
  const Pairs x = Z(0, nBands), r = Z(2 * nBands, nR);
  nOffered = std::accumulate(nRs.begin(), nRs.end(), 0);
  {
    const HandOver<Scalar> handed(this->PlaceOfOverlaps(), std::move(overlaps));
    VES_ASSERT_GOOD(this->OrthoProjector->Run(x.X, x.BX, r.X, r.BX, matB, true, this->InnerPasses(),
                                              orthoInnerTol));
  }
  // Cancellation has amplified the errors of images that were only updated.
  if (check.IsCareful()) r.RefreshB(matB);
  // More directions than X and P_j leave room for would be made of rounding errors.
  for (std::size_t j = 0; j < nRs.size(); ++j)
    nRs[j] = static_cast<int>(std::clamp<long long>(this->nRowsTotal - nBands - nPs[j], 0, nRs[j]));
  OrthonormalizeResidualBlocks(matB);
}

/// Each R_j against P_j and in itself; further passes bring it against X_j again.
template <typename Scalar>
void PPCG<Scalar>::OrthonormalizeResidualBlocks(const VesMatrixBase& matB) const {
  const Pairs z = Z();
  std::vector<double> orthoErrors(nRs.size(), 0.0);
  std::vector<int> nRsTmp;
  RepeatPasses(
      this->Passes(), orthoTol, this->secondComm,
      [&](bool isFirst) {
        if (!isFirst)
          VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(z.X, z.BX, z.X, z.BX, dispX, nXs, dispR,
                                                         nRs, matB, true, this->InnerPasses(),
                                                         orthoInnerTol));
        VES_ASSERT_GOOD(this->OrthoProjector->RunBatch(z.X, z.BX, z.X, z.BX, dispP, nPs, dispR, nRs,
                                                       matB, true, this->InnerPasses(),
                                                       orthoInnerTol));
        nRsTmp = nRs;
        VES_ASSERT_GOOD(this->Orthogonalizer->RunBatch(z.X, z.BX, dispR, nRsTmp, matB, true,
                                                       this->InnerPasses(), orthoInnerTol));
        return VES_GOOD;
      },
      [&] {
        VES_ASSERT_GOOD(
            z.BX.CheckBatchOrthogonality(z.X, dispX, nXs, dispR, nRsTmp, orthoErrors, false, true));
        const double errorX = LargestError(orthoErrors, nXs);
        VES_ASSERT_GOOD(
            z.BX.CheckBatchOrthogonality(z.X, dispP, nPs, dispR, nRsTmp, orthoErrors, false, true));
        return std::max(errorX, LargestError(orthoErrors, nPs));
      });
  nRs = nRsTmp;
}

VES_INSTANTIATE(PPCG);

} // namespace Ves
