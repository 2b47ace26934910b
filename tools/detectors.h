#ifndef VES_TOOLS_DETECTORS_H
#define VES_TOOLS_DETECTORS_H

#include <ves.h>

namespace VesTools {

/// What a converged pair promises of its residual, whatever else its detector looks at.
enum class ResidualBound {
  none,
  absolute, ///< the threshold
  relative  ///< the threshold times |lambda|
};

/// All that the program knows of a kind of detector.
struct Detector {
  const char* name;
  VesConvergeDetectorType kind;
  ResidualBound bound;
  /// Size of what is compared, by ||A|| and ||B||: the unit of a tolerance.
  double (*scale)(double normA, double normB);
};

/// What is known of a kind; throws Error for one that the program does not know.
const Detector& DetectorOf(VesConvergeDetectorType kind);

/// The bound of the residuals that IsAccepted and the check of a result file ask for: the library
/// confirms converged pairs to twice the threshold. Infinite for detectors of other quantities.
double AcceptedResidual(VesConvergeDetectorType kind, double threshold, double value);

} // namespace VesTools

#endif
