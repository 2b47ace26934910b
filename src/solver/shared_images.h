#ifndef VES_SOLVER_SHARED_IMAGES_H
#define VES_SOLVER_SHARED_IMAGES_H

#include "../data/imaged.h"
#include "../data/panelled_operator.h"
#include "../data/replicate.h"
#include "../parallel/thread_team.h"
#include "deflation.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <vector>

namespace Ves {

/// The routine of a run by which A x and B x are made in one call, where their caller has given one
/// for both. One that contradicts A and B when it is first called is not called again.
template <typename Scalar>
class SharedImages {
public:
  using Operator = PanelledOperator<Scalar>;
  SharedImages() = default;
  /// The counters of the run take what is multiplied here. Absent, where A and B have no routine in
  /// common.
  SharedImages(const VesMatrixBase& matA, const VesMatrixBase& matB, const Operator& a,
               const Operator& b, const Deflation<Scalar>& outside)
      : m_a(&a), m_b(&b), m_outside(&outside), m_isCalledEverywhere(matA.isCalledEverywhere) {
    const bool isOfBoth = matA.shared != nullptr && matA.shared == matB.shared &&
                          matA.shared->A == &matA && matA.shared->B == &matB;
    if (isOfBoth) m_routine = matA.shared;
  }

  bool IsPresent() const { return m_routine != nullptr; }

  /// Both images of the columns made afresh. Collective as far as the routine is, and over their
  /// communicators where a space is deflated and in the first call.
  void Refresh(const Imaged<Scalar>& pairs) {
    Call(pairs);
    if (!m_isTried && pairs.Count() > 0) {
      m_isTried = true;
      if (!AgreesOn(pairs.Columns(0, 1))) {
        m_routine = nullptr;
        pairs.Refresh(*m_a, *m_b);
      }
    }
    m_outside->ProjectImage(pairs.AX);
  }

private:
  using Block = VectorDense<Scalar>;

  void Call(const Imaged<Scalar>& pairs) const {
    const double start = MPI_Wtime();
    const Block& x = pairs.X;
    const ThreadTeam::Rest rest;
    if (x.nRows > 0 || m_isCalledEverywhere)
      InPieces(x.nCols, m_a->Panels().width, [&](int first, int count) {
        m_routine->call(m_routine->data, x.Column(first), pairs.AX.Column(first),
                        pairs.BX.Column(first), x.nRows, count, x.ld);
      });
    m_a->seconds += MPI_Wtime() - start;
    m_a->columns += x.nCols;
    m_b->columns += x.nCols;
  }

  /// Makes the images of a column by A and B instead. \return they were those, up to half the digits
  bool AgreesOn(const Imaged<Scalar>& column) const {
    std::array<double, 4> squares{}; // of differences and sizes
    const auto compare = [&](const Operator& op, Block& image, std::size_t at) {
      const std::vector<Scalar> given(image.Column(0), image.Column(0) + image.nRows);
      VES_ASSERT_GOOD(op.Apply(column.X, image));
      for (int i = 0; i < image.nRows; ++i) {
        squares[at] +=
            static_cast<double>(std::norm(given[static_cast<std::size_t>(i)] - image(i)));
        squares[at + 1] += static_cast<double>(std::norm(image(i)));
      }
    };
    compare(*m_a, column.AX, 0);
    compare(*m_b, column.BX, 2);
    const int count = static_cast<int>(squares.size());
    MpiWrapper<double>::AllReduce(squares.data(), squares.size(), MPI_SUM, column.X.comm);
    Replicate(squares.data(), count, column.X.comm, column.X.auxComm);
    constexpr double digits = std::numeric_limits<RealType<Scalar>>::epsilon();
    return squares[0] <= digits * squares[1] && squares[2] <= digits * squares[3];
  }

  std::shared_ptr<const VesMatrixBase::SharedRoutine> m_routine;
  const Operator *m_a = nullptr, *m_b = nullptr;
  const Deflation<Scalar>* m_outside = nullptr;
  bool m_isCalledEverywhere = false, m_isTried = false;
};

} // namespace Ves

#endif
