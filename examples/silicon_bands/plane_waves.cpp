#include "plane_waves.h"

#include "error.h"

#include <ves_groups.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace silicon {

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double maxPlaneWaves = 5e6;

// Every process lists the whole sphere, so that a careless cut-off must not get this far.
void CheckSphereSize(const Crystal& crystal, double radius) {
  const double expected = 4.0 / 3.0 * pi * radius * radius * radius * crystal.Volume();
  if (!(expected <= maxPlaneWaves)) {
    throw Error("the cut-off asks for more than " + std::to_string(int(maxPlaneWaves)) +
                " plane waves");
  }
}

// All G of the sphere |k + G|^2 <= cutoff, in lexicographical order.
std::vector<Index3> Sphere(const Crystal& crystal, const Vec3& k, double cutoff) {
  const double radius = std::sqrt(cutoff / KineticUnit());
  CheckSphereSize(crystal, radius);
  const Vec3 centre = crystal.ReciprocalCoordinates(k);
  const Vec3 extent = crystal.SphereExtent(radius);
  Index3 low{};
  Index3 high{};
  for (std::size_t i = 0; i < 3; ++i) {
    low[i] = int(std::floor(-centre[i] - extent[i]));
    high[i] = int(std::ceil(-centre[i] + extent[i]));
  }
  std::vector<Index3> sphere;
  for (int g0 = low[0]; g0 <= high[0]; ++g0) {
    for (int g1 = low[1]; g1 <= high[1]; ++g1) {
      for (int g2 = low[2]; g2 <= high[2]; ++g2) {
        const Index3 g = {g0, g1, g2};
        if (crystal.KineticEnergy(k, g) <= cutoff) sphere.push_back(g);
      }
    }
  }
  if (sphere.empty()) throw Error("there is no plane wave below the cut-off");
  return sphere;
}

// The next length that the FFT factors into 2, 3, 5 and 7.
int SmoothLength(int n) {
  for (;; ++n) {
    int rest = n;
    for (const int factor : {2, 3, 5, 7}) {
      while (rest % factor == 0)
        rest /= factor;
    }
    if (rest == 1) return n;
  }
}

// Largest |g| of the potential along each axis.
Index3 PotentialReach(const Crystal& crystal) {
  Index3 reach{};
  for (const FourierTerm& term : crystal.Potential()) {
    for (std::size_t i = 0; i < 3; ++i)
      reach[i] = std::max(reach[i], std::abs(term.g[i]));
  }
  return reach;
}

} // namespace

SlabLayout ChooseSlabs(const std::vector<int>& wavesOfPlane, int planes, int maxProcesses) {
  SlabLayout best = {planes, 0, 1};
  int bestLoad = std::numeric_limits<int>::max();
  for (int block = (planes + maxProcesses - 1) / maxProcesses; block <= planes; ++block) {
    const int processes = (planes + block - 1) / block;
    for (int shift = 0; shift < planes; ++shift) {
      std::vector<int> load(static_cast<std::size_t>(processes), 0);
      for (std::size_t i = 0; i < wavesOfPlane.size(); ++i) {
        const int plane = (int(i) + shift) % planes;
        load[static_cast<std::size_t>(plane / block)] += wavesOfPlane[i];
      }
      const auto [least, most] = std::minmax_element(load.begin(), load.end());
      if (*least > 0 && *most < bestLoad) {
        best = {block, shift, processes};
        bestLoad = *most;
      }
    }
  }
  return best;
}

PlaneWaves::PlaneWaves(const Crystal& crystal, const Vec3& k, double cutoff, MPI_Comm comm)
    : crystal_(crystal), k_(k), cutoff_(cutoff) {
  const std::vector<Index3> sphere = Sphere(crystal, k, cutoff);
  size_ = static_cast<int>(sphere.size());
  const Index3 reach = PotentialReach(crystal);
  Index3 width{};
  for (std::size_t i = 0; i < 3; ++i) {
    const auto [low, high] =
        std::minmax_element(sphere.begin(), sphere.end(),
                            [i](const Index3& a, const Index3& b) { return a[i] < b[i]; });
    lowest_[i] = (*low)[i];
    width[i] = (*high)[i] - (*low)[i] + 1;
    grid_[i] = SmoothLength(width[i] + reach[i]);
  }
  std::vector<int> wavesOfPlane(static_cast<std::size_t>(width[0]), 0);
  for (const Index3& g : sphere)
    ++wavesOfPlane[static_cast<std::size_t>(g[0] - lowest_[0])];
  layout_ = ChooseSlabs(wavesOfPlane, grid_[0], ves::sizeOf(comm));
  const int rank = ves::rankIn(comm);
  for (const Index3& g : sphere) {
    if (Owner(g) == rank) local_.push_back({g, crystal.KineticEnergy(k, g)});
  }
}

Index3 PlaneWaves::GridPoint(const Index3& g) const {
  return {(g[0] - lowest_[0] + layout_.shift) % grid_[0], g[1] - lowest_[1], g[2] - lowest_[2]};
}

int PlaneWaves::Row(const Index3& g) const {
  const auto position =
      std::lower_bound(local_.begin(), local_.end(), g,
                       [](const PlaneWave& wave, const Index3& key) { return wave.g < key; });
  return static_cast<int>(position - local_.begin());
}

int CountPlaneWaves(const Crystal& crystal, const Vec3& k, double cutoff) {
  return static_cast<int>(Sphere(crystal, k, cutoff).size());
}

} // namespace silicon
