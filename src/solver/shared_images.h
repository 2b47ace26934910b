#ifndef VES_SOLVER_SHARED_IMAGES_H
#define VES_SOLVER_SHARED_IMAGES_H

#include "../data/imaged.h"
#include "../data/metered_operator.h"
#include "deflation.h"

namespace Ves {

/// The routine of a run by which A x and B x are made in one call, where their caller has given one
/// for both.
template <typename Scalar>
class SharedImages {
public:
  SharedImages() = default;
  /// The counters of the run take what is multiplied here. Absent, where A and B have no routine in
  /// common.
  SharedImages(const VesMatrixBase& matA, const VesMatrixBase& matB, const MeteredOperator& a,
               const MeteredOperator& b, const Deflation<Scalar>& outside)
      : m_routine(matA.shared == matB.shared ? matA.shared.get() : nullptr), m_a(&a), m_b(&b),
        m_outside(&outside), m_isCalledEverywhere(matA.isCalledEverywhere) {}

  bool IsPresent() const { return m_routine != nullptr; }

  /// Both images of the columns made afresh. Collective as far as the routine is, and over their
  /// communicators where a space is deflated.
  void Refresh(const Imaged<Scalar>& pairs) const {
    const double start = MPI_Wtime();
    const Block& x = pairs.X;
    if (x.nCols > 0 && (x.nRows > 0 || m_isCalledEverywhere))
      m_routine->call(m_routine->data, x.values, pairs.AX.values, pairs.BX.values, x.nRows, x.nCols,
                      x.ld);
    m_a->seconds += MPI_Wtime() - start;
    m_a->columns += x.nCols;
    m_b->columns += x.nCols;
    m_outside->ProjectImage(pairs.AX);
  }

private:
  using Block = VectorDense<Scalar>;
  const VesMatrixBase::SharedRoutine* m_routine = nullptr;
  const MeteredOperator *m_a = nullptr, *m_b = nullptr;
  const Deflation<Scalar>* m_outside = nullptr;
  bool m_isCalledEverywhere = false;
};

} // namespace Ves

#endif
