#include "band_solver.h"

#include "error.h"
#include "hamiltonian.h"

#include <ves.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <string>

namespace silicon {

namespace {

// Bands that cross change their symmetry from one k to the next, and the iteration keeps the
// symmetries of its starting block: without some of everything it would follow the wrong band.
constexpr double noiseInCarriedBands = 1e-2;

ves::Options ForLibrary(const SolverOptions& options) {
  ves::Options settings;
  settings.type = options.type;
  settings.threshold = options.threshold;
  settings.maxIter = options.maxIterations;
  if (options.batch > 0 && options.type == VES_LOBPCG_BATCH) settings.batchLimit = options.batch;
  if (options.batch > 0 && options.type == VES_PPCG) settings.ppcgBatch = options.batch;
  return settings;
}

Coefficients StartingBands(const PlaneWaves& basis, const Crystal& crystal, int bands,
                           const Bands* previous, MPI_Comm comm) {
  Coefficients start = RandomBands(basis, bands);
  if (previous == nullptr) return start;
  const Coefficients carried =
      CarryOver(previous->coefficients, *previous->basis, basis, crystal, previous->computed, comm);
  // Bands beyond those of the previous wave vector stay random.
  const std::size_t common = std::min(start.size(), carried.size());
  for (std::size_t i = 0; i < common; ++i)
    start[i] = carried[i] + noiseInCarriedBands * start[i];
  return start;
}

// A starting block that lacks independent columns yields fewer levels; the others are infinite.
void CheckFinite(const std::vector<double>& energies) {
  const auto found = std::count_if(energies.begin(), energies.end(),
                                   [](double energy) { return std::isfinite(energy); });
  if (found == static_cast<std::ptrdiff_t>(energies.size())) return;
  throw Error("the solver found only " + std::to_string(found) + " of " +
              std::to_string(energies.size()) + " bands");
}

// || H x - E x || / || x || of every column, afresh from the bands that the solver returned; not a
// number for a column of zeros.
std::vector<double> Residuals(const ves::Operator<Complex>& hamiltonian,
                              const ves::Block<Complex>& x, const std::vector<double>& energies) {
  std::vector<double> norms = columnNorms(eigResidual(hamiltonian, {}, x, energies));
  const std::vector<double> lengths = columnNorms(x);
  std::transform(norms.begin(), norms.end(), lengths.begin(), norms.begin(), std::divides<>());
  return norms;
}

} // namespace

double Larger(double a, double b) {
  return b > a || std::isnan(b) ? b : a;
}

double Levels::LargestResidual() const {
  return std::accumulate(residuals.begin(), residuals.end(), 0.0, Larger);
}

bool Levels::Accepted(double threshold) const {
  return converged == Count() && LargestResidual() <= threshold;
}

double LargestDeviation(const std::vector<double>& levels, const double* reference,
                        std::size_t count) {
  double largest = 0.0;
  for (std::size_t i = 0; i < std::min(count, levels.size()); ++i) {
    largest = Larger(largest, std::abs(levels[i] - reference[i]));
  }
  return largest;
}

double EnergyTolerance(int bands, double threshold) {
  return std::sqrt(double(bands)) * threshold + 1e-12;
}

void CheckBandCount(const Crystal& crystal, const Vec3& k, double cutoff, int bands) {
  const int waves = CountPlaneWaves(crystal, k, cutoff);
  if (bands <= waves) return;
  throw Error(std::to_string(bands) + " bands do not fit into the " + std::to_string(waves) +
              " plane waves below the cut-off");
}

Bands SolveBands(const Crystal& crystal, const Vec3& k, double cutoff, int bands,
                 const SolverOptions& options, const Bands* previous, MPI_Comm comm) {
  Bands result;
  Levels& levels = result.levels;
  CheckBandCount(crystal, k, cutoff, bands);
  result.basis = std::make_shared<PlaneWaves>(crystal, k, cutoff, comm);
  const PlaneWaves& basis = *result.basis;
  const int computed = std::min(bands + options.spareBands, basis.Size());
  result.computed = computed;
  Hamiltonian<double> hamiltonian(crystal, basis, comm);
  const ves::Operator<Complex> a(
      [&](auto x, auto y) { hamiltonian.Apply(x.data(), y.data(), x.cols(), x.ld()); });
  const ves::Operator<Complex> t(
      [&](auto x, auto y) { hamiltonian.Precondition(x.data(), y.data(), x.cols(), x.ld()); });
  result.coefficients = StartingBands(basis, crystal, computed, previous, comm);
  const ves::Block<Complex> x(ves::View(result.coefficients.data(), basis.LocalSize(), computed),
                              comm);
  const ves::Outcome<Complex> found = ves::Solver<Complex>(ForLibrary(options)).solve(a, {}, t, x);
  levels.columns = hamiltonian.AppliedColumns();
  MPI_Allreduce(MPI_IN_PLACE, &levels.columns, 1, MPI_LONG, MPI_MAX, comm);
  levels.iterations = found.iterations;
  levels.converged = std::min(found.converged, bands);
  levels.energies = found.values;
  levels.residuals = Residuals(a, x, found.values);
  levels.energies.resize(static_cast<std::size_t>(bands));
  levels.residuals.resize(static_cast<std::size_t>(bands));
  CheckFinite(levels.energies);
  return result;
}

} // namespace silicon
