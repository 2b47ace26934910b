#ifndef SILICON_BAND_STRUCTURE_H
#define SILICON_BAND_STRUCTURE_H

#include "band_path.h"
#include "band_solver.h"

#include <optional>
#include <ostream>
#include <string_view>
#include <vector>

namespace silicon {

/// Bands that the eight valence electrons of the primitive cell fill.
constexpr int valenceBands = 4;

struct BandPoint {
  PathPoint point;
  Levels levels;
};
using BandStructure = std::vector<BandPoint>;

/// Solves along a path as SolvePoints does. Throws Error when the bands do not fit into the plane
/// waves of some point. Collective over comm.
BandStructure SolvePath(const std::vector<PathPoint>& path, double cutoff, int bands,
                        const SolverOptions& options, std::ostream& out, MPI_Comm comm);

/// The first point with this label; throws std::out_of_range when there is none.
const BandPoint& FindPoint(const BandStructure& structure, std::string_view label);

/// Highest valence level of a structure, or its highest level when it has fewer bands; Ry.
double ValenceTop(const BandStructure& structure);

/// The lowest gap between the sampled valence and conduction bands.
struct Gap {
  const BandPoint* top;
  const BandPoint* bottom;
  double valenceTop;       ///< Ry
  double conductionBottom; ///< Ry
};

/// Empty without conduction bands. Refers to the structure.
std::optional<Gap> FindGap(const BandStructure& structure);

} // namespace silicon

#endif
