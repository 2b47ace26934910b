#ifndef SILICON_PLANE_WAVES_H
#define SILICON_PLANE_WAVES_H

#include "crystal.h"

#include <mpi.h>

#include <vector>

namespace silicon {

/// One plane wave exp(i (k + G).r), a row of the distributed eigenproblem.
struct PlaneWave {
  Index3 g;       ///< reciprocal coordinates of G
  double kinetic; ///< |k + G|^2 in Ry
};

/// Distribution of the grid planes along the first axis over the first processes: plane p of
/// the grid belongs to process p / block. The sphere of plane waves, of fewer planes than the
/// grid, starts at plane shift and goes round the end of the grid.
struct SlabLayout {
  int block;
  int shift;
  int processes; ///< processes that own planes, every one of them at least one plane wave
};

/// Chooses the layout with the smallest largest number of plane waves on a process among those
/// that give every process with planes some plane wave.
/// \param wavesOfPlane  number of plane waves on each plane of the sphere
/// \param planes        planes of the grid, at least as many
SlabLayout ChooseSlabs(const std::vector<int>& wavesOfPlane, int planes, int maxProcesses);

/// The plane waves with |k + G|^2 up to a cut-off. Each lives on the process that owns its plane of
/// the FFT grid; processes beyond the layout's hold none.
///
/// On the grid the sphere keeps its shape but not its origin: G sits at the index
/// g - (lowest g) + shift. That multiplies functions of r by a phase, which a local potential
/// leaves alone, and packs the occupied planes together whatever k is. An axis of at least
/// width + reach points, for width of the sphere and reach of the potential, keeps products V psi
/// from being aliased back onto the sphere.
class PlaneWaves {
public:
  /// Throws Error when there is no plane wave, or more than can be handled. Local, the same
  /// sequence on every process of comm.
  PlaneWaves(const Crystal& crystal, const Vec3& k, double cutoff, MPI_Comm comm);

  const Vec3& WaveVector() const { return k_; }
  int Size() const { return size_; } ///< plane waves on all processes
  const std::vector<PlaneWave>& Local() const { return local_; }
  int LocalSize() const { return static_cast<int>(local_.size()); }
  const Index3& Grid() const { return grid_; }
  const SlabLayout& Layout() const { return layout_; }

  bool Contains(const Index3& g) const { return crystal_.KineticEnergy(k_, g) <= cutoff_; }

  /// Grid indices of a plane wave.
  Index3 GridPoint(const Index3& g) const;

  /// The process that holds a plane wave of the basis.
  int Owner(const Index3& g) const { return GridPoint(g)[0] / layout_.block; }

  /// Local row of a plane wave that this process holds.
  int Row(const Index3& g) const;

private:
  Crystal crystal_;
  Vec3 k_;
  double cutoff_;
  int size_ = 0;
  Index3 lowest_{};
  Index3 grid_{};
  SlabLayout layout_{};
  std::vector<PlaneWave> local_; ///< in lexicographical order of g
};

/// Number of plane waves up to a cut-off; a local count. Throws as the constructor of PlaneWaves.
int CountPlaneWaves(const Crystal& crystal, const Vec3& k, double cutoff);

} // namespace silicon

#endif
