#include "band_structure.h"

#include "k_points.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace silicon {

BandStructure SolvePath(const std::vector<PathPoint>& path, double cutoff, int bands,
                        const SolverOptions& options, std::ostream& out, MPI_Comm comm) {
  const Crystal crystal = Crystal::PrimitiveCell();
  // A count of plane waves that is too small at some point should not be found out half-way.
  std::vector<Vec3> points;
  for (const PathPoint& point : path) {
    CheckBandCount(crystal, point.k, cutoff, bands);
    points.push_back(point.k);
  }
  const std::vector<Levels> levels =
      SolvePoints(crystal, points, cutoff, bands, options, out, comm);
  BandStructure structure;
  for (std::size_t i = 0; i < path.size(); ++i)
    structure.push_back({path[i], levels[i]});
  return structure;
}

const BandPoint& FindPoint(const BandStructure& structure, std::string_view label) {
  for (const BandPoint& entry : structure) {
    if (entry.point.label == label) return entry;
  }
  throw std::out_of_range("no such point on the path");
}

double ValenceTop(const BandStructure& structure) {
  double top = -HUGE_VAL;
  for (const BandPoint& entry : structure) {
    const auto highest = static_cast<std::size_t>(std::min(valenceBands, entry.levels.Count()));
    top = std::max(top, entry.levels.energies[highest - 1]);
  }
  return top;
}

std::optional<Gap> FindGap(const BandStructure& structure) {
  if (structure.empty() || structure.front().levels.Count() <= valenceBands) return std::nullopt;
  const auto below = [](std::size_t band) {
    return [band](const BandPoint& a, const BandPoint& b) {
      return a.levels.energies[band] < b.levels.energies[band];
    };
  };
  const auto top = std::max_element(structure.begin(), structure.end(), below(valenceBands - 1));
  const auto bottom = std::min_element(structure.begin(), structure.end(), below(valenceBands));
  return Gap{&*top, &*bottom, top->levels.energies[valenceBands - 1],
             bottom->levels.energies[valenceBands]};
}

} // namespace silicon
