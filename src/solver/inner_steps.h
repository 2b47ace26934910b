#ifndef VES_SOLVER_INNER_STEPS_H
#define VES_SOLVER_INNER_STEPS_H

#include "inner_pace.h"
#include "shifted_operator.h"
#include "short_lanczos.h"

#include <functional>
#include <vector>

namespace Ves {

/// Where to shift a spectrum to make it positive: to sigma, which is meant to lie so far below the
/// lowest value.
struct SpectralShift {
  double sigma = 0.0, distance = 0.0;
};

/// A preconditioner made of others: m steps of the Chebyshev iteration for
///   M z = r,  M = A - sigma B,
/// from z = 0, with T inside. With theta and delta the middle and half the length of an interval
/// [a, b] and rho_0 = delta / theta:
///   d = T r / theta, z = d, and in each step
///   r -= M d, rho_i = 1 / (2 theta / delta - rho_(i-1)), d = rho_i (rho_(i-1) d + 2 T r / delta),
///   z += d,
/// which multiplies r by the polynomial in M T of degree m + 1 that is 1 at 0 and least on [a, b].
/// b, the largest eigenvalue of T M, is found by a Lanczos process; a = b / (m + 1)^2, which such a
/// polynomial still reaches. Below 0 it grows, which is as it should be for the lowest pairs, but
/// would leave nothing else of a column if sigma were far above them: then fewer steps are made.
/// T r stays as it is where T M is seen to be no operator of that kind, and in a column whose
/// r^H T r is negative, grows beyond what the polynomial does on the known spectrum or is not a
/// number; what has grown there corrects the spectrum.
/// One reduction, of two numbers a column, one for a column that stays, two in a step of Lanczos.
template <typename Scalar>
class VES_EXPORT InnerSteps final : public VesMatrixBase {
public:
  using Block = VectorDense<Scalar>;

  /// B is read where the problem is generalized alone; T may be absent. The shift must be the same
  /// on all processes.
  InnerSteps(const VesMatrixBase& matA, const VesMatrixBase& matB, const VesMatrixBase& matT,
             bool generalized, const InnerPace& pace, std::function<SpectralShift()> shift);
  /// The scratch, for so many local rows: of a few columns, which are improved at a time.
  WorkspacePlan<Scalar> Plan(int rows, int ld, int cols);
  static std::size_t Bytes(int rows, int cols, bool generalized);
  InnerPace& Pace() { return m_pace; }
  /// Collective over the communicators of x.
  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override;

private:
  using Numbers = std::vector<double>;
  static constexpr int mostColumns = 16, stepsOfLanczos = 12;
  static constexpr double mostGrowth = 100.0;

  void FollowShift() const;
  int Allowed(int steps) const;
  double Growth(int degree) const;
  void Improve(const Block& residuals, Block& solution, int steps) const;
  void LearnFrom(const Block& y, double product) const;
  double MeanSize(const Block& residuals) const;
  void Sum(Numbers& products) const;
  void Precondition(const Block& r, Block& y) const;

  const VesMatrixBase& m_matT;
  mutable ShiftedOperator<Scalar> m_shifted; ///< M
  mutable InnerPace m_pace;
  std::function<SpectralShift()> m_shift;
  mutable ShortLanczos<Scalar> m_lanczos;
  mutable Block m_r, m_d, m_q;
  mutable int m_nApplied = 0;
  mutable Spectrum m_spectrum; ///< of T M
};

VES_EXTERN_TEMPLATE(InnerSteps);

} // namespace Ves

#endif
