#ifndef SILICON_STARTING_BANDS_H
#define SILICON_STARTING_BANDS_H

#include "plane_waves.h"

#include <mpi.h>

#include <vector>

namespace silicon {

/// Local rows of a block of bands: basis.LocalSize() x bands, column-major without gaps.
using Coefficients = std::vector<Complex>;

/// Random bands, the same on any number of processes, damped where the kinetic energy T lies above
/// that of the lowest levels: noise / (1 + (T / Ry)^2).
Coefficients RandomBands(const PlaneWaves& basis, int bands);

/// Brings bands of one wave vector k to the basis of another, k': the coefficient of every k' + G'
/// is that of the nearest k + G, and zero where the old basis has none. The two G differ by the
/// reciprocal lattice vector nearest to k' - k, zero along a path of small steps.
/// Collective over comm: MPI_Alltoall, then MPI_Alltoallv twice.
Coefficients CarryOver(const Coefficients& old, const PlaneWaves& from, const PlaneWaves& to,
                       const Crystal& crystal, int bands, MPI_Comm comm);

} // namespace silicon

#endif
