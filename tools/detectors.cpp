#include "detectors.h"

#include "error.h"
#include "names.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace VesTools {
namespace {

// Vectors have unit norm in B, that is a 2-norm of about 1 / sqrt(||B||), with which residuals
// grow; values are of the size of ||A|| / ||B||. B x is of the size of sqrt(||B||), and so is a
// residual over its value.
double SizeOfResiduals(double normA, double normB) {
  return normA / std::sqrt(normB);
}

double SizeOfRelativeResiduals(double, double normB) {
  return std::sqrt(normB);
}

double SizeOfValues(double normA, double normB) {
  return normA / normB;
}

double SmallerSize(double normA, double normB) {
  return std::min(SizeOfResiduals(normA, normB), SizeOfValues(normA, normB));
}

constexpr Detector detectors[] = {
    {"residuals", VES_RESIDUALS, ResidualBound::absolute, SizeOfResiduals},
    {"relative-residuals", VES_RELATIVE_RESIDUALS, ResidualBound::relative,
     SizeOfRelativeResiduals},
    {"eigenvalues", VES_EIGENVALUES, ResidualBound::none, SizeOfValues},
    {"residuals-or-eigenvalues", VES_RESIDUALS_OR_EIGENVALUES, ResidualBound::none, SmallerSize}};

Names<VesConvergeDetectorType> NamesOfDetectors() {
  Names<VesConvergeDetectorType> names;
  for (const Detector& detector : detectors)
    names[detector.name] = detector.kind;
  return names;
}

} // namespace

const Names<VesConvergeDetectorType> detectorNames = NamesOfDetectors();

const Detector& DetectorOf(VesConvergeDetectorType kind) {
  for (const Detector& detector : detectors)
    if (detector.kind == kind) return detector;
  throw Error(exitInternal, "unknown kind of detector " + std::to_string(kind));
}

double AcceptedResidual(VesConvergeDetectorType kind, double threshold, double value) {
  switch (DetectorOf(kind).bound) {
  case ResidualBound::absolute:
    return 2.0 * threshold;
  case ResidualBound::relative:
    return 2.0 * threshold * std::abs(value);
  case ResidualBound::none:
    break;
  }
  return std::numeric_limits<double>::infinity();
}

} // namespace VesTools
