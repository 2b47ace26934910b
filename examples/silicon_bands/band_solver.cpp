#include "band_solver.h"

#include "error.h"
#include "hamiltonian.h"
#include "ves_handles.h"

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

SolverHandle MakeSolver(const SolverOptions& options) {
  VesSolver solver = nullptr;
  Check(VesSolverCreate(&solver, VES_COMPLEX_DOUBLE, options.type), "VesSolverCreate");
  SolverHandle handle(solver);
  Check(VesSolverSetThreshold(solver, options.threshold), "VesSolverSetThreshold");
  Check(VesSolverSetMaxIter(solver, options.maxIterations), "VesSolverSetMaxIter");
  if (options.batch > 0 && options.type == VES_LOBPCG_BATCH)
    Check(VesSolverSetBatchLimit(solver, options.batch), "VesSolverSetBatchLimit");
  if (options.batch > 0 && options.type == VES_PPCG)
    Check(VesSolverSetPPCGBatch(solver, options.batch), "VesSolverSetPPCGBatch");
  return handle;
}

void ApplyHamiltonian(void* data, void* x, void* y, int, int nCols, int ld) {
  static_cast<Hamiltonian*>(data)->Apply(static_cast<Complex*>(x), static_cast<Complex*>(y), nCols,
                                         ld);
}

void ApplyPreconditioner(void* data, void* x, void* y, int, int nCols, int ld) {
  static_cast<Hamiltonian*>(data)->Precondition(static_cast<Complex*>(x), static_cast<Complex*>(y),
                                                nCols, ld);
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

std::vector<double> RealParts(const std::vector<Complex>& values) {
  std::vector<double> parts;
  for (const Complex& value : values)
    parts.push_back(value.real());
  return parts;
}

// A starting block that lacks independent columns yields fewer levels; the others are infinite.
void CheckFinite(const std::vector<double>& energies) {
  const auto found = std::count_if(energies.begin(), energies.end(),
                                   [](double energy) { return std::isfinite(energy); });
  if (found == static_cast<std::ptrdiff_t>(energies.size())) return;
  throw Error("the solver found only " + std::to_string(found) + " of " +
              std::to_string(energies.size()) + " bands");
}

std::vector<double> Norms(Block& block, int nCols, MPI_Comm comm) {
  Block norms(comm, nCols, 1);
  Check(VesVectorNorm(block.Get(), norms.Get()), "VesVectorNorm");
  return RealParts(norms.Values());
}

// || H x - E x || / || x || of every column, afresh from the bands that the solver returned; not a
// number for a column of zeros.
std::vector<double> Residuals(VesMatrix hamiltonian, Block& x, Block& energies, int nRows,
                              MPI_Comm comm) {
  const int nCols = static_cast<int>(energies.Values().size());
  Block residual(comm, nRows, nCols);
  Check(VesEigResidual(hamiltonian, nullptr, x.Get(), energies.Get(), residual.Get()),
        "VesEigResidual");
  std::vector<double> norms = Norms(residual, nCols, comm);
  const std::vector<double> lengths = Norms(x, nCols, comm);
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
  Hamiltonian hamiltonian(crystal, basis, comm);
  const MatrixHandle a = MakeOperator(&hamiltonian, ApplyHamiltonian);
  const MatrixHandle t = MakeOperator(&hamiltonian, ApplyPreconditioner);
  Block x(comm, basis.LocalSize(), computed);
  Block energies(comm, computed, 1);
  const Coefficients start = StartingBands(basis, crystal, computed, previous, comm);
  std::copy(start.begin(), start.end(), x.Values().begin());

  const SolverHandle solver = MakeSolver(options);
  Check(VesRunSolver(solver.get(), a.get(), nullptr, t.get(), x.Get(), energies.Get()),
        "VesRunSolver");
  levels.columns = hamiltonian.AppliedColumns();
  MPI_Allreduce(MPI_IN_PLACE, &levels.columns, 1, MPI_LONG, MPI_MAX, comm);
  Check(VesGetSolverIter(solver.get(), &levels.iterations), "VesGetSolverIter");
  Check(VesGetSolverConv(solver.get(), &levels.converged), "VesGetSolverConv");
  levels.converged = std::min(levels.converged, bands);
  levels.energies = RealParts(energies.Values());
  levels.residuals = Residuals(a.get(), x, energies, basis.LocalSize(), comm);
  levels.energies.resize(static_cast<std::size_t>(bands));
  levels.residuals.resize(static_cast<std::size_t>(bands));
  CheckFinite(levels.energies);
  result.coefficients = std::move(x.Values());
  return result;
}

} // namespace silicon
