#include "short_lanczos.h"

#include "../data/matrix_base.h"
#include "../data/replicate.h"
#include "../eigensolver/lapack_diag.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Ves {

template <typename Scalar>
void ShortLanczos<Scalar>::AddTo(WorkspacePlan<Scalar>& plan, bool hasT) {
  plan.AddTall(m_ring, 3);
  if (hasT) plan.AddTall(m_v, 1);
  plan.AddSmall(m_number, 1, 1);
}

template <typename Scalar>
Spectrum ShortLanczos<Scalar>::Run(const VesMatrixBase& matA, const VesMatrixBase& matT,
                                   int steps) {
  m_alpha.clear();
  m_beta.clear();
  // What is left below is rounding errors, and not orthogonal to the vectors before.
  constexpr double epsilon = std::numeric_limits<RealType<Scalar>>::epsilon();
  constexpr double smallest = std::max(1e-6, 1e3 * epsilon);
  double largest = 0.0;
  for (bool isOpen = Start(matA, matT); isOpen && static_cast<int>(m_beta.size()) < steps;) {
    Step(matA, matT);
    largest = std::max(largest, std::abs(m_alpha.back()));
    isOpen = m_beta.back() > smallest * largest; // nor is it where a number is none
  }
  return m_alpha.empty() ? Spectrum() : RitzBounds();
}

/// \return false: the vector has no length, as without entries, or none that is a number
template <typename Scalar>
bool ShortLanczos<Scalar>::Start(const VesMatrixBase& matA, const VesMatrixBase& matT) {
  int rank = 0;
  MPI_Comm_rank(m_ring.comm, &rank);
  Block u = U(0);
  VES_ASSERT_GOOD(u.Set2Random(rank));
  if (matT.IsPresent()) {
    Block v = V(0, matT);
    VES_ASSERT_GOOD(matT.Apply(u, v));
    VES_ASSERT_GOOD(matA.Apply(v, u));
  }
  return Normalize(0, matT) > 0.0;
}

template <typename Scalar>
void ShortLanczos<Scalar>::Step(const VesMatrixBase& matA, const VesMatrixBase& matT) {
  const int j = static_cast<int>(m_beta.size());
  const Block v = V(j, matT);
  Block w = U(j + 1);
  VES_ASSERT_GOOD(matA.Apply(v, w));
  VES_ASSERT_GOOD(m_number.InnerProduct(v, w));
  Replicate(m_number);
  m_number(0) = std::real(m_number(0));
  m_alpha.push_back(static_cast<double>(std::real(m_number(0))));
  VES_ASSERT_GOOD(w.ScaleAdd(w, U(j), m_number, -1));
  if (j > 0) {
    m_number(0) = static_cast<RealType<Scalar>>(m_beta.back());
    VES_ASSERT_GOOD(w.ScaleAdd(w, U(j - 1), m_number, -1));
  }
  m_beta.push_back(Normalize(j + 1, matT));
}

/// u = u / beta, v = T u. \return beta
template <typename Scalar>
double ShortLanczos<Scalar>::Normalize(int j, const VesMatrixBase& matT) {
  Block u = U(j), v = V(j, matT);
  if (matT.IsPresent()) {
    VES_ASSERT_GOOD(matT.Apply(u, v));
    VES_ASSERT_GOOD(m_number.InnerProduct(u, v));
    m_number(0) = std::sqrt(std::real(m_number(0)));
  } else
    VES_ASSERT_GOOD(m_number.Norm(u));
  Replicate(m_number);
  const auto norm = std::real(m_number(0));
  VES_ASSERT_GOOD(u.ScaleByVal(1 / norm));
  if (matT.IsPresent()) VES_ASSERT_GOOD(v.ScaleByVal(1 / norm));
  return static_cast<double>(norm);
}

/// With T the tridiagonal matrix of alpha and beta and T s = theta s, some eigenvalue is within
/// beta_last |s_last| of theta.
template <typename Scalar>
Spectrum ShortLanczos<Scalar>::RitzBounds() const {
  const int order = static_cast<int>(m_alpha.size());
  VectorDense<double> matrix(m_ring.comm, m_ring.auxComm, order, order, order),
      theta(m_ring.comm, m_ring.auxComm, order, 1, order);
  for (VectorDense<double>* const block : {&matrix, &theta}) {
    VES_ASSERT_GOOD(block->AllocateMem());
    VES_ASSERT_GOOD(block->Set2Zero());
  }
  for (int j = 0; j < order; ++j) {
    matrix(j, j) = m_alpha[static_cast<std::size_t>(j)];
    if (j > 0) matrix(j - 1, j) = m_beta[static_cast<std::size_t>(j) - 1];
  }
  int info = 0;
  VES_ASSERT_GOOD(LapackDiag<double>().RunEvd(matrix, theta, info));
  constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
  if (info != 0 || !std::isfinite(m_beta.back())) return {unknown, unknown};
  Spectrum found{0.0, theta(0)};
  for (int j = 0; j < order; ++j)
    found.norm =
        std::max(found.norm, std::abs(theta(j)) + m_beta.back() * std::abs(matrix(order - 1, j)));
  return found;
}

VES_INSTANTIATE(ShortLanczos);

} // namespace Ves
