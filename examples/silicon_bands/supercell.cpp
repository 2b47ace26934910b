#include "supercell.h"

#include "error.h"
#include "k_points.h"
#include "plane_waves.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace silicon {

namespace {

// Bands computed at each k above the mean number, so that the union is complete at once as a rule.
constexpr int sparePrimitiveBands = 4;

// Levels found at some k points. All levels of these points below completeUpTo are among them.
struct Union {
  std::vector<double> levels;
  double completeUpTo = HUGE_VAL;
};

Union SolveFoldedPoints(const std::vector<Vec3>& points, double cutoff, int bands,
                        const SolverOptions& options, std::ostream& out, MPI_Comm comm) {
  const Crystal crystal = Crystal::PrimitiveCell();
  const std::vector<Levels> found = SolvePoints(crystal, points, cutoff, bands, options, out, comm);
  Union all;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Levels& levels = found[i];
    if (!levels.Accepted(options.threshold)) {
      throw Error("the bands of the primitive cell did not converge at a folded k point");
    }
    all.levels.insert(all.levels.end(), levels.energies.begin(), levels.energies.end());
    if (levels.Count() < CountPlaneWaves(crystal, points[i], cutoff))
      all.completeUpTo = std::min(all.completeUpTo, levels.energies.back());
  }
  std::sort(all.levels.begin(), all.levels.end());
  return all;
}

} // namespace

std::vector<Vec3> FoldedPoints(int n) {
  // (1,1,1) is a reciprocal lattice vector, which leaves half of the cube of side 2. Every other
  // row runs backwards, so that neighbours in the list are neighbours in space.
  std::vector<Vec3> points;
  const int m = 2 * n;
  for (int l = 0; l < n; ++l) {
    for (int row = 0; row < m; ++row) {
      const int j = l % 2 == 0 ? row : m - 1 - row;
      for (int column = 0; column < m; ++column) {
        const int i = row % 2 == 0 ? column : m - 1 - column;
        points.push_back({double(i) / n, double(j) / n, double(l) / n});
      }
    }
  }
  return points;
}

std::vector<double> FoldedLevels(int n, double cutoff, int count, const SolverOptions& options,
                                 std::ostream& out, MPI_Comm comm) {
  const std::vector<Vec3> points = FoldedPoints(n);
  const int nPoints = static_cast<int>(points.size());
  int bands = (count + nPoints - 1) / nPoints + sparePrimitiveBands;
  for (;; bands += sparePrimitiveBands) {
    Union all = SolveFoldedPoints(points, cutoff, bands, options, out, comm);
    const auto wanted = static_cast<std::size_t>(count);
    if (all.levels.size() < wanted) {
      if (all.completeUpTo == HUGE_VAL) throw Error("there are fewer folded levels than bands");
      continue;
    }
    if (all.levels[wanted - 1] <= all.completeUpTo) {
      all.levels.resize(wanted);
      return all.levels;
    }
  }
}

} // namespace silicon
