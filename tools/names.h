#ifndef VES_TOOLS_NAMES_H
#define VES_TOOLS_NAMES_H

#include "options.h"

#include <ves.h>

#include <map>
#include <string>

namespace VesTools {

/// The choices of the options and of result files, by name.
template <typename Choice>
using Names = std::map<std::string, Choice>;

extern const Names<VesScalarType> scalarNames;
extern const Names<VesSolverType> solverNames;
extern const Names<VesConvergeDetectorType> detectorNames; ///< made from the table of detectors.cpp
extern const Names<VesDenseEigenSolverType> denseNames;
extern const Names<Precision> precisionNames;
extern const Names<VesOrthogonalizerType> orthogonalizerNames;
extern const Names<VesOrthoProjectorType> projectorNames;
extern const Names<Preconditioner> preconditionerNames;

/// The name of a choice; each is in its table.
template <typename Choice>
std::string NameOf(const Names<Choice>& names, Choice choice) {
  for (const auto& [name, value] : names)
    if (value == choice) return name;
  return "";
}

} // namespace VesTools

#endif
