#ifndef VES_SOLVER_SHORT_LANCZOS_H
#define VES_SOLVER_SHORT_LANCZOS_H

#include "../data/vector_dense.h"

#include <vector>

namespace Ves {

/// What is known of a Hermitian operator.
struct Spectrum {
  double norm = 0.0;   ///< an estimate of the 2-norm from above in all but contrived cases
  double lowest = 0.0; ///< a Ritz value: not below the lowest eigenvalue, but for rounding
};

/// The Lanczos process from a random vector, short enough to go without orthogonalization:
///   w = A v_j, alpha_j = v_j^H w, w = w - alpha_j v_j - beta_(j-1) v_(j-1), beta_j = ||w||,
///   v_(j+1) = w / beta_j.
/// Vectors are distributed over comm; the processes of auxComm hold replicas.
template <typename Scalar>
class VES_EXPORT ShortLanczos {
public:
  static constexpr int mostSteps = 20;

  /// For vectors that are distributed as those of like.
  explicit ShortLanczos(const VesVectorBase& like);
  /// Local. Throws std::bad_alloc.
  void Allocate();
  /// One product with one column and two reductions a step. Neither number is finite where a
  /// product, or its square, is not. Collective over comm, then over auxComm.
  Spectrum Run(const VesMatrixBase& matA);

private:
  using Block = VectorDense<Scalar>;

  /// Storage of v_j, which that of v_(j+3) takes over.
  Block V(int j) const { return Block(m_ring, 0, j % 3, m_ring.nRows, 1); }
  bool Start();
  void Step(const VesMatrixBase& matA);
  double NormOf(const Block& column);
  Spectrum RitzBounds() const;

  Block m_ring;                        ///< three columns
  Block m_number;                      ///< 1 x 1
  std::vector<double> m_alpha, m_beta; ///< the same on all processes
};

VES_EXTERN_TEMPLATE(ShortLanczos);

} // namespace Ves

#endif
