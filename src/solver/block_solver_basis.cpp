#include "block_solver.h"

#include "../data/finite_entries.h"
#include "../orthogonalizer/pass_loop.h"
#include "../parallel/mpi_wrapper.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace Ves {

/// One call of the orthogonalizer. A Gram matrix that cannot be decomposed, as a NaN from an
/// operator leaves it, means that no column is known to be independent. \return the rank
template <typename Scalar>
int BlockSolver<Scalar>::Orthonormalize(const Pairs& pairs, const VesMatrixBase& matB,
                                        bool global) const {
  int colRank = pairs.Count();
  const VesReturnCode code = VES_ASSERT_GOOD_OR(
      VES_ERR_INCOMPATIBLE, this->Orthogonalizer->Run(pairs.X, pairs.BX, matB, colRank, global,
                                                      InnerPasses(), orthoInnerTol));
  return code == VES_GOOD ? colRank : 0;
}

/// The orthogonalizer's rank is confirmed before it is believed: a dependent column may pass its
/// test by a rounding error and is then anything but orthonormal. Broken columns are replaced by
/// random ones, lost orthogonality is mended by another pass, and what still fails in the end is
/// cut off. A sound guess takes one pass and one check.
template <typename Scalar>
int BlockSolver<Scalar>::OrthonormalizeGuess(const Pairs& basis, const VesMatrixBase& matB,
                                             int first, int count) const {
  constexpr int maxRepairs = 4;
  const int full = static_cast<int>(std::clamp<long long>(nRowsTotal - first, 0, count));
  const Pairs before = basis.Columns(0, first), guess = basis.Columns(first, count);
  guess.RefreshB(matB);
  for (int refills = 0, repairs = 0;;) {
    VES_ASSERT_GOOD(this->OrthoProjector->Run(before.X, before.BX, guess.X, guess.BX, matB, true,
                                              InnerPasses(), orthoInnerTol));
    const int colRank = std::min(Orthonormalize(guess, matB, true), full);
    if (OrthoError(basis, first, colRank) <= Limit::soundColumns * orthoTol) {
      if (colRank == full) return colRank;
      if (refills >= Passes()) { // random columns were tried: only B can have spoiled them
        if (isGeneralized && !AllFinite(guess)) check.BlameOperators();
        return colRank;
      }
      ++refills;
      FillRandom(guess.Columns(colRank, count - colRank), matB, refills + repairs);
    } else {
      const Pairs lead = guess.Columns(0, colRank);
      if (repairs == maxRepairs) return LeadingOrthonormal(lead, Limit::unitNorm);
      ++repairs;
      // Images that were only updated drift from B X, and no pass on them can mend that.
      guess.RefreshB(matB);
      const int nSound = LeadingOrthonormal(lead, Limit::brokenColumn);
      if (nSound < colRank)
        FillRandom(guess.Columns(nSound, count - nSound), matB, refills + repairs);
    }
  }
}

template <typename Scalar>
double BlockSolver<Scalar>::OrthoError(const Pairs& basis, int first, int count) const {
  const Pairs pairs = basis.Columns(first, count);
  double among = 0.0, against = 0.0;
  VES_ASSERT_GOOD(pairs.X.CheckOrthogonality(pairs.BX, among, true, true));
  VES_ASSERT_GOOD(basis.Columns(0, first).BX.CheckOrthogonality(pairs.X, against, false, true));
  const double left = outside.Error(pairs.X);
  double worst = among;
  for (const double error : {against, left})
    if (!(error <= worst)) worst = error; // also a NaN
  Replicate(worst);
  return worst;
}

/// Random columns and their B-images; the seed is attempt^2 (1 + rank)^2 in 32-bit
/// arithmetic, of which only the low bits enter and the sign must stay out.
template <typename Scalar>
void BlockSolver<Scalar>::FillRandom(const Pairs& pairs, const VesMatrixBase& matB,
                                     int attempt) const {
  const unsigned factor = static_cast<unsigned>(attempt) * (1 + static_cast<unsigned>(processRank));
  const int seed = static_cast<int>((factor * factor) & 0x7fffffffU);
  VES_ASSERT_GOOD(pairs.X.Set2Random(seed));
  pairs.RefreshB(matB);
}

/// Number of leading columns that are orthonormal among themselves.
template <typename Scalar>
int BlockSolver<Scalar>::LeadingOrthonormal(const Pairs& pairs, double tolerance) const {
  const int n = pairs.Count();
  Block gram;
  ShapeSmall(gram, n, n);
  VES_ASSERT_GOOD(gram.AllocateMem());
  VES_ASSERT_GOOD(gram.InnerProduct(pairs.X, pairs.BX));
  int leading = 0;
  const auto isSound = [&](int j) {
    for (int i = 0; i <= j; ++i) {
      const Scalar expected = i == j ? MathConstants<Scalar>::ONE : MathConstants<Scalar>::ZERO;
      if (!(static_cast<double>(std::abs(gram(i, j) - expected)) <= tolerance)) return false;
    }
    return true;
  };
  while (leading < n && isSound(leading))
    ++leading;
  Replicate(leading);
  return leading;
}

template <typename Scalar>
bool BlockSolver<Scalar>::NormalizeIfFinite(const Pairs& c) const {
  std::vector<Scalar> sums = c.X.LocalProducts(c.BX);
  sums.back() = HoldsFinite(c) ? MathConstants<Scalar>::ZERO : MathConstants<Scalar>::ONE;
  MpiWrapper<Scalar>::AllReduce(sums.data(), sums.size(), MPI_SUM, rowComm);
  int isFinite = sums.back() == MathConstants<Scalar>::ZERO ? 1 : 0;
  Replicate(isFinite);
  if (isFinite == 0) return false;
  c.X.ScaleToUnit(c.BX, sums);
  RestoreZeroColumns(c.X, c.BX);
  return true;
}

template <typename Scalar>
void BlockSolver<Scalar>::Normalize(const Pairs& c, bool global) const {
  VES_ASSERT_GOOD(c.X.Normalize(c.BX, global));
  RestoreZeroColumns(c.X, c.BX);
}

template <typename Scalar>
void BlockSolver<Scalar>::ProjectAndOrthonormalize(const Pairs& y, Pairs& c,
                                                   const VesMatrixBase& matB, bool global) const {
  RepeatPasses(
      Passes(), PassTol(), secondComm,
      [&](bool) {
        VES_ASSERT_GOOD(this->OrthoProjector->Run(y.X, y.BX, c.X, c.BX, matB, global, InnerPasses(),
                                                  orthoInnerTol));
        c.Narrow(Orthonormalize(c, matB, global));
        return VES_GOOD;
      },
      [&] {
        double orthoError = 0.0;
        VES_ASSERT_GOOD(y.BX.CheckOrthogonality(c.X, orthoError, false, true));
        return orthoError;
      });
}

template <typename Scalar>
void BlockSolver<Scalar>::ProjectAndOrthonormalizeShared(const Pairs& y, Pairs& c,
                                                         const VesMatrixBase& matB) const {
  if (AllFinite({c.X, c.X})) {
    Normalize({c.X, c.X}, true);
    VES_ASSERT_GOOD(
        this->OrthoProjector->Run(y.X, y.BX, c.X, c.X, matB, true, InnerPasses(), orthoInnerTol));
    shared.Refresh(c);
  }
  info = AllFinite(c) ? 0 : 1;
  if (info != 0) return;
  RepeatPasses(
      Passes(), PassTol(), secondComm,
      [&](bool) {
        VES_ASSERT_GOOD(this->OrthoProjector->Run(y.X, y.BX, y.AX, c.X, c.BX, c.AX, matB, true,
                                                  InnerPasses(), orthoInnerTol));
        int colRank = c.Count();
        const VesReturnCode code = VES_ASSERT_GOOD_OR(
            VES_ERR_INCOMPATIBLE, this->Orthogonalizer->Run(c.X, c.BX, c.AX, matB, colRank, true,
                                                            InnerPasses(), orthoInnerTol));
        c.Narrow(code == VES_GOOD ? colRank : 0);
        return VES_GOOD;
      },
      [&] {
        double orthoError = 0.0;
        VES_ASSERT_GOOD(y.BX.CheckOrthogonality(c.X, orthoError, false, true));
        return orthoError;
      });
}

template <typename Scalar>
double BlockSolver<Scalar>::UnitNormError(const Pairs& pairs) const {
  std::vector<Scalar> squares = pairs.X.LocalProducts(pairs.BX);
  MpiWrapper<Scalar>::AllReduce(squares.data(), squares.size() - 1, MPI_SUM, rowComm);
  squares.pop_back();
  return UnitNormError(squares);
}

template <typename Scalar>
double BlockSolver<Scalar>::UnitNormError(const std::vector<Scalar>& squares) const {
  double worst = 0.0;
  for (const Scalar square : squares) {
    const double error = static_cast<double>(std::abs(square - MathConstants<Scalar>::ONE));
    if (!(error <= worst))
      worst = std::isnan(error) ? std::numeric_limits<double>::infinity() : error;
  }
  Replicate(worst);
  return worst;
}

VES_INSTANTIATE(BlockSolver);

} // namespace Ves
