#include "k_points.h"

#include "error.h"

#include <ves.hpp>
#include <ves_groups.hpp>

#include <algorithm>
#include <iterator>

namespace silicon {

namespace {

// Levels as numbers that processes exchange: three counts, the energies, the residuals.
std::vector<double> Pack(const Levels& levels) {
  std::vector<double> numbers = {double(levels.iterations), double(levels.converged),
                                 double(levels.columns)};
  numbers.insert(numbers.end(), levels.energies.begin(), levels.energies.end());
  numbers.insert(numbers.end(), levels.residuals.begin(), levels.residuals.end());
  return numbers;
}

Levels Unpack(const std::vector<double>& numbers) {
  const auto energies = numbers.begin() + 3, residuals = energies + (numbers.end() - energies) / 2;
  Levels levels;
  levels.iterations = int(numbers[0]);
  levels.converged = int(numbers[1]);
  levels.columns = long(numbers[2]);
  levels.energies.assign(energies, residuals);
  levels.residuals.assign(residuals, numbers.end());
  return levels;
}

} // namespace

std::vector<Levels> SolvePoints(const Crystal& crystal, const std::vector<Vec3>& points,
                                double cutoff, int bands, const SolverOptions& options,
                                std::ostream& out, MPI_Comm comm) {
  ves::GroupOptions sharing;
  sharing.progress = &out;
  sharing.name = "k points";
  const ves::Groups groups(comm, int(points.size()), sharing);
  Bands previous;
  const auto solve = [&](int point) {
    const Vec3& k = points[std::size_t(point)];
    const int count = std::min(bands, CountPlaneWaves(crystal, k, cutoff));
    const Bands* start = previous.levels.Count() == count ? &previous : nullptr;
    previous = SolveBands(crystal, k, cutoff, count, options, start, groups.comm());
    return Pack(previous.levels);
  };
  const auto packed = groups.run([&](int point) {
    try {
      return solve(point);
    } catch (const Error&) { // these two leave SolveBands on the whole group
      throw;
    } catch (const ves::Error&) {
      throw;
    } catch (const std::exception& error) {
      EndAll(error);
    }
  });
  std::vector<Levels> all;
  std::transform(packed.begin(), packed.end(), std::back_inserter(all), Unpack);
  return all;
}

} // namespace silicon
