#ifndef VES_SOLVER_TOLERANCES_H
#define VES_SOLVER_TOLERANCES_H

#include "../kernel/scalar_traits.h"

#include <limits>

namespace Ves {

/// The numbers by which more than rounding is told from rounding, with their reasons. Rounding of a
/// residual is measured in epsilon ||A|| ||x||, with the largest Ritz value for ||A||.
template <typename Scalar>
struct Tolerances {
  static constexpr double epsilon =
      static_cast<double>(std::numeric_limits<RealType<Scalar>>::epsilon());
  static constexpr bool isDouble = epsilon < 1e-10;

  /// \name Orthonormality
  /// @{
  /// Of the orthogonalizer, within a pass loop and around it.
  static constexpr double orthogonalizer = 256.0 * epsilon;
  /// |x^H B x - 1| after a rotation: a healthy basis stays orders of magnitude below, every
  /// breakdown seen exceeds it.
  static constexpr double unitNorm = isDouble ? 1e-7 : 3e-4;
  /// Of a result: far above what sound runs leave, and below what callers may rely on.
  static constexpr double result = isDouble ? 1e-11 : 2e-5;
  /// Parts of the tolerance of the orthogonalizer: what one pass leaves of sound columns stays well
  /// below the first, and what a sound iteration of sub-blocks leaves below the second.
  static constexpr double soundColumns = 0.25, soundBlock = 4.0;
  /// A column that errs by more is to be replaced; another pass mends smaller errors.
  static constexpr double brokenColumn = 0.1;
  /// Passes after a restart, which has shown that fewer do not do.
  static constexpr int carefulPasses = 3;
  /// Their tolerance. What the basis [X P] errs by, the projection of R against it leaves in R, and
  /// from there it comes into the next P: near the floor of rounding, where R and P are almost
  /// parallel, it grows threefold an iteration up to the tolerance, and residuals stand at it.
  static constexpr double carefulOrthogonalizer = 16.0 * epsilon;
  /// @}

  /// \name Multiples of rounding
  /// @{
  /// Claims within it need images fresh from the operators: updated ones drift.
  static constexpr double tight = 1e4;
  /// Ritz values no further apart are equal.
  static constexpr double equalValues = 16.0;
  /// A value that stands still is believed to where its residual is below; residuals of other
  /// columns are rounding errors beside the largest below it.
  static constexpr double generous = 100.0;
  /// Residuals at the floor, and close enough to it that rounding may be what holds them.
  static constexpr double atFloor = 100.0, closeToFloor = 1e6;
  /// @}

  /// \name Progress
  /// @{
  /// Parts of a residual that is drift of images: what makes it noise, and what is notable where it
  /// is at the floor.
  static constexpr double noise = 0.5, notableDrift = 0.01;
  /// Windows without improvement that end a run, and such at the floor with notable drift.
  static constexpr int patience = 20, patienceAtFloor = 5;
  /// Restarts on account of noise.
  static constexpr int mostRestarts = 3;
  /// A restart within so many iterations of the last that does not halve the residuals was futile;
  /// so many in a row end a run.
  static constexpr int shortly = 20, mostFutile = 5;
  /// @}
};

} // namespace Ves

#endif
