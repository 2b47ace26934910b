#ifndef VES_EIGENSOLVER_DENSE_EIGENSOLVER_H
#define VES_EIGENSOLVER_DENSE_EIGENSOLVER_H

#include "../data/vector_base.h"

namespace Ves {

/// Eigendecomposition of a small Hermitian matrix that every process holds whole.
class VES_EXPORT VesDenseEigenSolver {
public:
  int evdType = 0; ///< 0 LAPACK, 1 ScaLAPACK
  VesScalarType scalarType = VES_DOUBLE;
  char jobz = 'V';  ///< 'V' eigenvalues and eigenvectors, 'N' eigenvalues
  char uplo = 'U';  ///< triangle of the matrix that is read
  int evdParam = 1; ///< kept for callers that construct with three arguments; not read

  virtual ~VesDenseEigenSolver() = default;

  /// Replaces vecM (k x k) by its eigenvectors, without jobz 'V' by anything, and vecD (k x 1) by
  /// its eigenvalues in ascending order, the same on every process. info is 0 on success; 1 when
  /// the matrix of process 0 has a non-finite entry: both blocks then stay as they are there, and
  /// the others may get copies of them; otherwise the library routine's, and both blocks are
  /// without meaning. Collective over vecM's comm, then over its auxComm.
  /// \return -6 shapes disagree; -5 not dense blocks of the scalar type; 0
  virtual VesReturnCode RunEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& info) = 0;
};

} // namespace Ves

#endif
