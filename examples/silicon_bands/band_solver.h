#ifndef SILICON_BAND_SOLVER_H
#define SILICON_BAND_SOLVER_H

#include "crystal.h"
#include "plane_waves.h"
#include "starting_bands.h"

#include <mpi.h>
#include <ves.h>

#include <memory>
#include <vector>

namespace silicon {

struct SolverOptions {
  VesSolverType type = VES_LOBPCG;
  double threshold = 1e-6; ///< on the residual norms, Ry
  int maxIterations = 1000;
  int batch = 0;      ///< bands iterated at once, or width of a sub-block; 0: the library's default
  int spareBands = 2; ///< computed above the wanted ones, as far as plane waves go
};

/// The lowest levels at one wave vector, spare ones left out, and how they were found, the same on
/// every process.
struct Levels {
  std::vector<double> energies;  ///< Ry, ascending
  std::vector<double> residuals; ///< || H x - E x || / || x ||, recomputed, Ry
  int iterations = 0;
  int converged = 0; ///< leading bands that the solver says to have converged
  long columns = 0;  ///< that H was applied to, on the process with most

  int Count() const { return static_cast<int>(energies.size()); }
  double LargestResidual() const;

  /// Every band has converged, by the word of the solver and by its recomputed residual.
  bool Accepted(double threshold) const;
};

/// Levels with the wave functions of all computed bands, the start of the next wave vector.
struct Bands {
  Levels levels;
  std::shared_ptr<const PlaneWaves> basis;
  int computed = 0; ///< bands with the spare ones
  Coefficients coefficients;
};

/// The larger of two numbers; not a number is larger than all.
double Larger(double a, double b);

/// Largest deviation of levels from as many of a list, in Ry.
double LargestDeviation(const std::vector<double>& levels, const double* reference,
                        std::size_t count);

/// How far levels of this residual norm can lie from the exact ones, none missing: the norm of the
/// matrix of residuals, at most sqrt(bands) threshold, and rounding errors of 1e-12 Ry.
double EnergyTolerance(int bands, double threshold);

/// Throws Error when there are fewer plane waves at k than bands. Local.
void CheckBandCount(const Crystal& crystal, const Vec3& k, double cutoff, int bands);

/// Computes the lowest bands at wave vector k, starting from previous ones of the same crystal if
/// there are any. Collective over comm. Throws Error as CheckBandCount, and ves::Error when the
/// library refuses a call.
Bands SolveBands(const Crystal& crystal, const Vec3& k, double cutoff, int bands,
                 const SolverOptions& options, const Bands* previous, MPI_Comm comm);

} // namespace silicon

#endif
