#ifndef VES_SOLVER_SHORT_LANCZOS_H
#define VES_SOLVER_SHORT_LANCZOS_H

#include "workspace_plan.h"

#include <vector>

namespace Ves {

/// What is known of a Hermitian operator.
struct Spectrum {
  double norm = 0.0;   ///< an estimate of the 2-norm from above in all but contrived cases
  double lowest = 0.0; ///< a Ritz value: not below the lowest eigenvalue, but for rounding
};

/// The Lanczos process for T A from a random vector, short enough to go without orthogonalization:
///   w = A v_j, alpha_j = v_j^H w, w = w - alpha_j u_j - beta_(j-1) u_(j-1),
///   v = T w, beta_j^2 = w^H v, u_(j+1) = w / beta_j, v_(j+1) = v / beta_j,
/// where v_j = u_j without a T. Of T A, the norm is that of the product T^-1; u_1 is then A T times
/// a random vector, and so within their ranges where both are projections of operators. Vectors
/// are distributed over comm; the processes of auxComm hold replicas.
template <typename Scalar>
class VES_EXPORT ShortLanczos {
public:
  using Block = VectorDense<Scalar>;
  static constexpr int mostSteps = 20;

  /// The storage: three columns, four for runs with a T.
  void AddTo(WorkspacePlan<Scalar>& plan, bool hasT);
  /// One product with one column and two reductions a step. Neither number is finite where a
  /// product, or its square, is not, or T is seen to be indefinite; both are 0 where the random
  /// vector has no length. Collective over comm, then over auxComm.
  Spectrum Run(const VesMatrixBase& matA, const VesMatrixBase& matT, int steps = mostSteps);

private:
  /// Storage of u_j, which that of u_(j+3) takes over.
  Block U(int j) const { return Block(m_ring, 0, j % 3, m_ring.nRows, 1); }
  /// Of v = T u, which is u itself without a T.
  Block V(int j, const VesMatrixBase& matT) const {
    return matT.IsPresent() ? Block(m_v, 0, 0, m_v.nRows, 1) : U(j);
  }
  bool Start(const VesMatrixBase& matA, const VesMatrixBase& matT);
  void Step(const VesMatrixBase& matA, const VesMatrixBase& matT);
  double Normalize(int j, const VesMatrixBase& matT);
  Spectrum RitzBounds() const;

  Block m_ring; ///< three columns
  Block m_v;
  Block m_number;                      ///< 1 x 1
  std::vector<double> m_alpha, m_beta; ///< the same on all processes
};

VES_EXTERN_TEMPLATE(ShortLanczos);

} // namespace Ves

#endif
