#ifndef VES_DETECTOR_CONVERGE_DETECTOR_H
#define VES_DETECTOR_CONVERGE_DETECTOR_H

#include "../data/vector_base.h"

#include <vector>

namespace Ves {

/// Decides which of the k current eigenpairs pass a test; serves for convergence and for locking.
class VES_EXPORT VesConvergeDetector {
public:
  VesConvergeDetectorType detectorType = VES_RESIDUALS;
  VesScalarType scalarType = VES_DOUBLE;
  std::vector<double> residualNorms; ///< of the last run; empty where the test reads no residuals
  /// Norms of the residuals that the next run is to test, where they are known: it uses them up and
  /// is spared their reduction. None, or other than one a column: it forms them.
  std::vector<double> knownNorms;

  virtual ~VesConvergeDetector() = default;

  /// Marks the pairs that pass and counts them.
  /// \param vecR       n x k residuals, rows distributed
  /// \param workD      k x 1 eigenvalue estimates of this iteration
  /// \param vecD       k x 1 eigenvalue estimates of the previous iteration
  /// \param threshold  tolerance of the test; the comparison is strict, a NaN never passes
  /// \param idxs       k x 1, receives 2 for a pair that passes and 0 otherwise
  /// \param dummy      receives the number of pairs that pass
  /// \param nLeading   receives the number of leading pairs up to the first that fails
  /// Collective over vecR's comm when norms are computed, then over idxs's auxComm, where the
  /// flags of process 0 are broadcast.
  /// \return -1 shapes disagree; -5 not dense blocks of the scalar type; -7 a block that is read
  ///         has no values; 0
  virtual VesReturnCode Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                            const VesVectorBase& vecD, double threshold, VesVectorBase& idxs,
                            int& dummy, int& nLeading) = 0;

  /// \name What the test is
  /// @{
  /// It reads residuals, which a solver then has to form in every iteration.
  virtual bool ReadsResiduals() const { return true; }
  /// A pair may pass on its value alone, whatever its residual.
  virtual bool PassesOnValues() const { return false; }
  /// What the residual of a pair of this value that passes is below; where values alone are tested,
  /// what its value may have moved by.
  virtual double ClaimBound(double /*value*/, double threshold) const { return threshold; }
  /// @}
};

} // namespace Ves

#endif
