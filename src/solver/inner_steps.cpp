#include "inner_steps.h"

#include "../data/replicate.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace Ves {
namespace {

/// y += factor x
template <typename Scalar>
void Add(int count, double times, const Scalar* x, Scalar* y) {
  const auto factor = static_cast<RealType<Scalar>>(times);
  for (int i = 0; i < count; ++i)
    y[i] += factor * x[i];
}

/// Re x^H y
template <typename Scalar>
double Product(int count, const Scalar* x, const Scalar* y) {
  const int one = MathConstants<int>::ONE;
  return static_cast<double>(std::real(MathKernel<Scalar>::Dot(&count, x, &one, y, &one)));
}

template <typename Scalar>
Scalar* At(const VectorDense<Scalar>& block, std::size_t column, int row) {
  return block.Column(static_cast<int>(column)) + row;
}

/// y = x + factor y
template <typename Scalar>
void Extend(int count, double times, const Scalar* x, Scalar* y) {
  const auto factor = static_cast<RealType<Scalar>>(times);
  for (int i = 0; i < count; ++i)
    y[i] = x[i] + factor * y[i];
}

} // namespace

template <typename Scalar>
InnerSteps<Scalar>::InnerSteps(const VesMatrixBase& matA, const VesMatrixBase& matB,
                               const VesMatrixBase& matT, bool generalized, const InnerPace& pace,
                               std::function<double()> sigma)
    : m_matA(matA), m_matB(matB), m_matT(matT), m_isGeneralized(generalized), m_pace(pace),
      m_sigma(std::move(sigma)) {
  scalarType = matA.scalarType;
  matrixType = VES_MATRIX_SHELL;
}

template <typename Scalar>
WorkspacePlan<Scalar> InnerSteps<Scalar>::Plan(int rows, int ld, int cols) {
  WorkspacePlan<Scalar> plan(rows, ld);
  const int width = std::min(cols, mostColumns);
  for (Block* const block : {&m_r, &m_y, &m_p, &m_q})
    plan.AddTall(*block, width);
  if (m_isGeneralized) plan.AddTall(m_bp, width);
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
  const int steps = m_pace.Begin(x);
  const double sigma = m_sigma();
  for (int first = 0; first < x.nCols; first += m_r.nCols) {
    const int count = std::min(x.nCols - first, m_r.nCols);
    const Block from(residuals, 0, first, x.nRows, count);
    Block to(solution, 0, first, x.nRows, count);
    Precondition(from, to);
    if (steps > 0) Improve(from, to, sigma, steps);
  }
  m_pace.End();
  return VES_GOOD;
}

/// Solution holds T r, which is z until the first step.
template <typename Scalar>
void InnerSteps<Scalar>::Improve(const Block& residuals, const Block& solution, double sigma,
                                 int steps) const {
  const int n = residuals.nRows, k = residuals.nCols;
  Block r(m_r, 0, 0, n, k), p(m_p, 0, 0, n, k), q(m_q, 0, 0, n, k);
  Block y(m_matT.IsPresent() ? m_y : m_r, 0, 0, n, k);
  VES_ASSERT_GOOD(r.CopyData(residuals));
  VES_ASSERT_GOOD(p.CopyData(solution));
  m_isOpen.assign(static_cast<std::size_t>(k), true);
  Numbers product = Products(r, p);
  for (int step = 1;; ++step) {
    const Numbers alpha = Quotients(product, Curvatures(p, q, sigma));
    ForEachOpen(n, [&](std::size_t j, int first, int count) {
      if (step == 1) std::fill_n(At(solution, j, first), count, Scalar(0)); // p until now
      Add(count, alpha[j], At(p, j, first), At(solution, j, first));
      Add(count, -alpha[j], At(q, j, first), At(r, j, first));
    });
    if (step == 1) m_isImproved = m_isOpen;
    if (step == steps || !IsAnyOpen()) break;
    if (m_matT.IsPresent()) Precondition(r, y);
    const Numbers next = Products(r, y), beta = Quotients(next, product);
    ForEachOpen(n, [&](std::size_t j, int first, int count) {
      Extend(count, beta[j], At(y, j, first), At(p, j, first));
    });
    product = next;
  }
  KeepWithinRange(residuals, solution);
}

/// T r, or r where there is no T.
template <typename Scalar>
void InnerSteps<Scalar>::Precondition(const Block& r, Block& y) const {
  VES_ASSERT_GOOD(m_matT.IsPresent() ? m_matT.Apply(r, y) : y.CopyData(r));
}

/// q = (A - sigma B) p. \return p^H q of each column
template <typename Scalar>
auto InnerSteps<Scalar>::Curvatures(const Block& p, Block& q, double sigma) const -> Numbers {
  VES_ASSERT_GOOD(m_matA.Apply(p, q));
  Block image(m_isGeneralized ? m_bp : m_p, 0, 0, p.nRows, p.nCols);
  if (m_isGeneralized) VES_ASSERT_GOOD(m_matB.Apply(p, image));
  Numbers products(m_isOpen.size());
  ForEachOpen(p.nRows, [&](std::size_t j, int first, int count) {
    Add(count, -sigma, At(image, j, first), At(q, j, first));
    products[j] += Product(count, At(p, j, first), At(q, j, first));
  });
  Sum(products);
  return products;
}

template <typename Scalar>
auto InnerSteps<Scalar>::Products(const Block& x, const Block& y) const -> Numbers {
  Numbers products(m_isOpen.size());
  ForEachOpen(x.nRows, [&](std::size_t j, int first, int count) {
    products[j] += Product(count, At(x, j, first), At(y, j, first));
  });
  Sum(products);
  return products;
}

/// Over all processes, and the same on all of them, since a column is closed on all or on none.
/// Collective: one reduction, and broadcasts over both communicators.
template <typename Scalar>
void InnerSteps<Scalar>::Sum(Numbers& products) const {
  MpiWrapper<double>::AllReduce(products.data(), products.size(), MPI_SUM, m_r.comm);
  Replicate(products.data(), static_cast<int>(products.size()), m_r.comm, m_r.auxComm);
}

/// Of products that must be positive: a column without closes.
template <typename Scalar>
auto InnerSteps<Scalar>::Quotients(const Numbers& over, const Numbers& under) const -> Numbers {
  constexpr auto largest = static_cast<double>(std::numeric_limits<RealType<Scalar>>::max());
  Numbers quotients(over.size());
  for (std::size_t j = 0; j < over.size(); ++j) {
    quotients[j] = over[j] / under[j];
    const bool isPositive = over[j] > 0.0 && under[j] > 0.0;
    m_isOpen[j] = m_isOpen[j] && isPositive && quotients[j] > 0.0 && quotients[j] < largest;
  }
  return quotients;
}

template <typename Scalar>
void InnerSteps<Scalar>::KeepWithinRange(const Block& residuals, const Block& solution) const {
  m_isOpen = m_isImproved; // what T makes is for the solver to judge
  const Numbers squares = Products(solution, solution);
  for (int j = 0; j < solution.nCols; ++j)
    if (!std::isfinite(squares[static_cast<std::size_t>(j)])) // 0 where nothing was improved
      std::copy_n(residuals.Column(j), residuals.nRows, solution.Column(j));
}

/// Calls change(j, first, count) for the columns that are open, by rows that stay in the cache from
/// one vector operation to the next.
template <typename Scalar>
template <typename Change>
void InnerSteps<Scalar>::ForEachOpen(int rows, Change change) const {
  constexpr int most = 1024;
  for (std::size_t j = 0; j < m_isOpen.size(); ++j)
    for (int first = 0; m_isOpen[j] && first < rows; first += most)
      change(j, first, std::min(most, rows - first));
}

VES_INSTANTIATE(InnerSteps);

} // namespace Ves
