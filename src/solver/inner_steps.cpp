#include "inner_steps.h"

#include "../data/replicate.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace Ves {
namespace {

/// The recurrence of the scaled Chebyshev polynomials on [b / degree^2, b].
class Chebyshev {
public:
  Chebyshev(double largest, int degree)
      : theta(largest * (1.0 + 1.0 / (degree * degree)) / 2.0), m_delta(largest - theta),
        m_rho(m_delta / theta) {}
  struct Factors {
    double ofDirection, ofResidual;
  };
  Factors Next() {
    const double before = std::exchange(m_rho, 1.0 / (2.0 * theta / m_delta - m_rho));
    return {m_rho * before, 2.0 * m_rho / m_delta};
  }
  /// Of the polynomial of that degree at a value below 0, at most.
  static double Growth(int degree, double largest, double value) {
    return std::cosh(degree * std::acosh(1.0 - 2.0 * value / largest));
  }

  const double theta;

private:
  double m_delta, m_rho;
};

} // namespace

template <typename Scalar>
InnerSteps<Scalar>::InnerSteps(const VesMatrixBase& matA, const VesMatrixBase& matB,
                               const VesMatrixBase& matT, bool generalized, const InnerPace& pace,
                               std::function<SpectralShift()> shift)
    : m_matT(matT), m_shifted(matA, matB, generalized), m_pace(pace), m_shift(std::move(shift)) {
  scalarType = matA.scalarType;
  matrixType = VES_MATRIX_SHELL;
}

template <typename Scalar>
WorkspacePlan<Scalar> InnerSteps<Scalar>::Plan(int rows, int ld, int cols) {
  WorkspacePlan<Scalar> plan(rows, ld);
  const int width = std::min(cols, mostColumns);
  for (Block* const block : {&m_r, &m_d, &m_q})
    plan.AddTall(*block, width);
  if (m_shifted.HasB()) plan.AddTall(m_shifted.image, width);
  m_lanczos.AddTo(plan, true);
  return plan;
}

template <typename Scalar>
std::size_t InnerSteps<Scalar>::Bytes(int rows, int cols, bool generalized) {
  const VesMatrixEmpty absent;
  const MeteredOperator none(absent);
  InnerSteps steps(none, none, none, generalized, InnerPace(0, none, none, none), nullptr);
  return steps.Plan(rows, rows, cols).Bytes();
}

template <typename Scalar>
VesReturnCode InnerSteps<Scalar>::Apply(const VesVectorBase& x, VesVectorBase& y) const {
  const auto &residuals = AsDense<Scalar>(x), &solution = AsDense<Scalar>(y);
  if (x.nCols == 0) return VES_GOOD;
  if (m_pace.IsWatching()) m_pace.Watch(MeanSize(residuals));
  int steps = m_pace.Begin(x);
  if (steps > 0) {
    FollowShift();
    steps = Allowed(steps);
    m_pace.Resume();
  }
  for (int first = 0; first < x.nCols; first += m_r.nCols) {
    const int count = std::min(x.nCols - first, m_r.nCols);
    const Block from(residuals, 0, first, x.nRows, count);
    Block to(solution, 0, first, x.nRows, count);
    Precondition(from, to);
    if (steps > 0) Improve(from, to, steps);
  }
  m_pace.End();
  return VES_GOOD;
}

/// The shift settles with the lowest Ritz value. M keeps the one whose spectrum is known, and takes
/// another in the second, fourth, eighth application and so on, where it is no longer near.
template <typename Scalar>
void InnerSteps<Scalar>::FollowShift() const {
  const SpectralShift shift = m_shift();
  const bool isDue = (m_nApplied & (m_nApplied + 1)) == 0;
  const bool isNear = std::abs(shift.sigma - m_shifted.sigma) <= shift.distance;
  if (m_nApplied++ > 0 && (!isDue || isNear)) return;
  m_shifted.sigma = shift.sigma;
  m_spectrum = m_lanczos.Run(m_shifted, m_matT, stepsOfLanczos);
}

template <typename Scalar>
int InnerSteps<Scalar>::Allowed(int steps) const {
  if (!(std::isfinite(m_spectrum.norm) && m_spectrum.norm > 0.0)) return 0;
  while (steps > 0 && Growth(steps + 1) > mostGrowth)
    --steps;
  return steps;
}

/// Of the polynomial of that degree on what is known of the spectrum, at most.
template <typename Scalar>
double InnerSteps<Scalar>::Growth(int degree) const {
  return Chebyshev::Growth(degree, m_spectrum.norm, std::min(m_spectrum.lowest, 0.0));
}

/// Solution holds T r.
template <typename Scalar>
void InnerSteps<Scalar>::Improve(const Block& residuals, Block& solution, int steps) const {
  const int n = residuals.nRows, k = residuals.nCols;
  Block r(m_r, 0, 0, n, k), d(m_d, 0, 0, n, k), q(m_q, 0, 0, n, k);
  const bool hasT = m_matT.IsPresent();
  const Block& y = hasT ? q : r;
  Chebyshev chebyshev(m_spectrum.norm, steps + 1);
  Numbers products(static_cast<std::size_t>(2 * k));
  AddProducts(residuals, solution, products.data());
  VES_ASSERT_GOOD(r.CopyData(residuals));
  VES_ASSERT_GOOD(solution.ScaleByVal(static_cast<RealType<Scalar>>(1.0 / chebyshev.theta)));
  VES_ASSERT_GOOD(d.CopyData(solution));
  for (int step = 1; step <= steps; ++step) {
    const auto [ofDirection, ofResidual] = chebyshev.Next();
    const auto advance = [&, d1 = ofDirection, r1 = ofResidual](int j, int first, int count) {
      Combine(count, d1, r1, At(y, j, first), At(d, j, first));
      Combine(count, 1.0, 1.0, At(d, j, first), At(solution, j, first));
    };
    const Block& image = m_shifted.ApplyParts(d, q);
    ForEachPiece(n, k, [&](int j, int first, int count) {
      Combine(count, 1.0, -1.0, At(q, j, first), At(r, j, first));
      Combine(count, 1.0, m_shifted.sigma, At(image, j, first), At(r, j, first));
      if (!hasT) advance(j, first, count);
    });
    if (!hasT) continue;
    Precondition(r, q);
    ForEachPiece(n, k, advance);
  }
  AddProducts(r, y, products.data() + k);
  Sum(products);
  const double growth = 2.0 * Growth(steps + 1);
  for (int j = 0; j < k; ++j) {
    const auto at = static_cast<std::size_t>(j);
    const double before = products[at], after = products[at + static_cast<std::size_t>(k)];
    const bool isSound = std::isfinite(before) && std::abs(after) <= growth * growth * before;
    if (isSound) continue;
    LearnFrom(Block(y, 0, j, n, 1), after);
    Block column(solution, 0, j, n, 1);
    Precondition(Block(residuals, 0, j, n, 1), column);
  }
}

/// What has grown in y = T r tells of a value beyond the spectrum that was found: near the Rayleigh
/// quotient y^H M y / r^H y.
template <typename Scalar>
void InnerSteps<Scalar>::LearnFrom(const Block& y, double product) const {
  if (!std::isfinite(product)) return;
  Block image(m_d, 0, 0, y.nRows, 1);
  VES_ASSERT_GOOD(m_shifted.Apply(y, image));
  Numbers curvature(1);
  AddProducts(y, image, curvature.data());
  Sum(curvature);
  const double value = curvature.front() / product;
  if (!std::isfinite(value)) return;
  m_spectrum.norm = std::max(m_spectrum.norm, 1.05 * value);
  m_spectrum.lowest = std::min(m_spectrum.lowest, value);
}

/// Root mean square of the norms of columns. Collective as Sum.
template <typename Scalar>
double InnerSteps<Scalar>::MeanSize(const Block& residuals) const {
  Numbers products(static_cast<std::size_t>(residuals.nCols));
  AddProducts(residuals, residuals, products.data());
  Sum(products);
  return std::sqrt(std::accumulate(products.begin(), products.end(), 0.0) / residuals.nCols);
}

/// Over all processes, and the same on all of them. Collective: a reduction, and broadcasts over
/// both communicators.
template <typename Scalar>
void InnerSteps<Scalar>::Sum(Numbers& products) const {
  MpiWrapper<double>::AllReduce(products.data(), products.size(), MPI_SUM, m_r.comm);
  Replicate(products.data(), static_cast<int>(products.size()), m_r.comm, m_r.auxComm);
}

/// T r, or r where there is no T.
template <typename Scalar>
void InnerSteps<Scalar>::Precondition(const Block& r, Block& y) const {
  VES_ASSERT_GOOD(m_matT.IsPresent() ? m_matT.Apply(r, y) : y.CopyData(r));
}

VES_INSTANTIATE(InnerSteps);

} // namespace Ves
