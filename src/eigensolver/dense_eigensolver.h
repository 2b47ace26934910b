#ifndef VES_EIGENSOLVER_DENSE_EIGENSOLVER_H
#define VES_EIGENSOLVER_DENSE_EIGENSOLVER_H

#include "../data/vector_base.h"

namespace Ves {

/// Eigendecomposition of a small Hermitian matrix that every process holds whole.
class VES_EXPORT VesDenseEigenSolver {
public:
  int evdType = 0; ///< a VesDenseEigenSolverType
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

  /// RunEvd for a caller who reads the first nVectors vectors alone, 1 to k of them. What comes
  /// back in nVectors is how many there are, all or at least those of every value that equals one
  /// asked for up to rounding; zeros or other numbers stand behind them. All values are there.
  virtual VesReturnCode RunLowestEvd(VesVectorBase& vecM, VesVectorBase& vecD, int& nVectors,
                                     int& info) {
    nVectors = vecM.nCols;
    return RunEvd(vecM, vecD, info);
  }
};

} // namespace Ves

#endif
