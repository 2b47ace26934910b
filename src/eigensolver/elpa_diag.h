#ifndef VES_EIGENSOLVER_ELPA_DIAG_H
#define VES_EIGENSOLVER_ELPA_DIAG_H

#include "../parallel/blacs_wrapper.h"
#include "lapack_diag.h"

#include <vector>

namespace Ves {

class ElpaGrid;

/// Diagonalizes with ELPA on all processes from order threshold on, and as LapackDiag below it.
/// Single precision is computed in double. Nothing is kept between calls.
template <typename Scalar>
class VES_EXPORT ElpaDiag : public LapackDiag<Scalar> {
public:
  int threshold = gridFrom;

  /// kind: VES_ELPA_DIAG or VES_ELPA_TWO_STAGE_DIAG.
  explicit ElpaDiag(VesDenseEigenSolverType kind);
  VesReturnCode RunEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& info) override;
  VesReturnCode RunLowestEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& nVectors,
                             int& info) override;

private:
  using High = std::conditional_t<isComplex<Scalar>, std::complex<double>, double>;

  void DecomposeLowest(VectorDense<Scalar>& vecM, VectorDense<Scalar>& vecD, int& nVectors,
                       int& info) const;
  std::vector<High> LocalPiece(const ElpaGrid& grid, const VectorDense<Scalar>& vecM) const;
  int RunElpa(const ElpaGrid& grid, const VectorDense<Scalar>& vecM, High* localZ,
              VectorDense<Scalar>& vecD, int nVectors) const;
};

VES_EXTERN_TEMPLATE(ElpaDiag);

} // namespace Ves

#endif
