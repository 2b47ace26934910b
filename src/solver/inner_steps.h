#ifndef VES_SOLVER_INNER_STEPS_H
#define VES_SOLVER_INNER_STEPS_H

#include "inner_pace.h"
#include "workspace_plan.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace Ves {

/// A preconditioner made of others: some steps of preconditioned conjugate gradients for
///   (A - sigma B) z = r
/// from z = 0, with T inside, every column with scalars of its own:
///   y = T r, p = y + (r^H y / r'^H y') p, q = (A - sigma B) p, alpha = r^H y / p^H q,
///   z += alpha p, r -= alpha q.
/// A column whose curvature p^H q or product r^H y is not positive, or not a number, keeps the z it
/// has, in the first step T r; one that leaves the range of numbers is r itself. Sigma is asked for
/// at every application; it belongs below the lowest value, where A - sigma B is positive definite.
/// Two reductions a step, of a number a column.
template <typename Scalar>
class VES_EXPORT InnerSteps final : public VesMatrixBase {
public:
  using Block = VectorDense<Scalar>;

  /// B is read where the problem is generalized alone; T may be absent.
  InnerSteps(const VesMatrixBase& matA, const VesMatrixBase& matB, const VesMatrixBase& matT,
             bool generalized, const InnerPace& pace, std::function<double()> sigma);
  /// The scratch, for so many local rows: of a few columns, which are improved at a time.
  WorkspacePlan<Scalar> Plan(int rows, int ld, int cols);
  static std::size_t Bytes(int rows, int cols, bool generalized);
  /// Collective over the communicators of x.
  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override;

private:
  using Numbers = std::vector<double>;

  void Improve(const Block& residuals, const Block& solution, double sigma, int steps) const;
  void KeepWithinRange(const Block& residuals, const Block& solution) const;
  void Precondition(const Block& r, Block& y) const;
  Numbers Curvatures(const Block& p, Block& q, double sigma) const;
  Numbers Products(const Block& x, const Block& y) const;
  void Sum(Numbers& products) const;
  Numbers Quotients(const Numbers& over, const Numbers& under) const;
  bool IsAnyOpen() const { return std::count(m_isOpen.begin(), m_isOpen.end(), true) > 0; }
  template <typename Change>
  void ForEachOpen(int rows, Change change) const;

  static constexpr int mostColumns = 16;
  const VesMatrixBase &m_matA, &m_matB, &m_matT;
  bool m_isGeneralized;
  mutable InnerPace m_pace;
  std::function<double()> m_sigma;
  mutable Block m_r, m_y, m_p, m_q, m_bp;
  /// Of the columns at hand those that are still improved, and those that ever were.
  mutable std::vector<bool> m_isOpen, m_isImproved;
};

VES_EXTERN_TEMPLATE(InnerSteps);

} // namespace Ves

#endif
