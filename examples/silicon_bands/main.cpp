#include "band_structure.h"
#include "error.h"
#include "options.h"
#include "output_files.h"
#include "report.h"
#include "supercell.h"
#include "svg.h"

#include <ves.hpp>
#include <ves_groups.hpp>

#include <exception>
#include <iomanip>
#include <iostream>

namespace {

using namespace silicon;

// \return whether all bands converged and none deviates from the reference
bool RunBandStructure(const Options& options, std::ostream& out) {
  const MPI_Comm comm = MPI_COMM_WORLD;
  const OutputDirectory directory(options.output, comm);
  directory.Probe("bands.csv");
  directory.Probe("bands.svg");
  const BandStructure structure =
      SolvePath(BandPath(options.points), options.cutoff, options.bands, options.solver, out, comm);
  PrintTable(out, structure, options.cutoff);
  directory.Write("bands.csv", [&](std::ostream& file) { WriteCsv(file, structure); });
  directory.Write("bands.svg",
                  [&](std::ostream& file) { WriteSvg(file, structure, options.cutoff); });
  const bool converged = ReportUnconverged(out, structure, options.solver.threshold);
  return converged && DeviationFromReference(structure, options.cutoff) <=
                          EnergyTolerance(options.bands, options.solver.threshold);
}

// \return whether all bands converged and agree with those folded from the primitive cell
bool RunSupercell(const Options& options, std::ostream& out) {
  const MPI_Comm comm = MPI_COMM_WORLD;
  const int n = options.supercell;
  const double threshold = options.solver.threshold;
  const Crystal crystal = Crystal::Supercell(n);
  CheckBandCount(crystal, {}, options.cutoff, options.bands);
  const OutputDirectory directory(options.output, comm);
  directory.Probe("supercell.csv");

  out << "Primitive cell at the folded k points\n";
  const std::vector<double> folded =
      FoldedLevels(n, options.cutoff, options.bands, options.solver, out, comm);
  out << "Supercell of " << 8 * n * n * n << " atoms, "
      << CountPlaneWaves(crystal, {}, options.cutoff) << " plane waves" << std::endl;
  const double start = MPI_Wtime();
  const Levels levels =
      SolveBands(crystal, {}, options.cutoff, options.bands, options.solver, nullptr, comm).levels;
  const double seconds = MPI_Wtime() - start;
  const double deviation = LargestDeviation(levels.energies, folded.data(), folded.size());
  out << std::setprecision(3) << levels.iterations << " iterations, H applied to " << levels.columns
      << " columns, " << levels.converged << '/' << levels.Count()
      << " bands converged, largest residual " << levels.LargestResidual() << " Ry, " << seconds
      << " s\nLargest deviation from the folded bands: " << deviation << " Ry.\n";
  directory.Write("supercell.csv",
                  [&](std::ostream& file) { WriteSupercellCsv(file, levels, folded); });
  return levels.Accepted(threshold) && deviation <= 2.0 * EnergyTolerance(options.bands, threshold);
}

int Run(int argc, char** argv) {
  const bool speaks = ves::rankIn(MPI_COMM_WORLD) == 0;
  std::ostream silence(nullptr);
  std::ostream& out = speaks ? std::cout : silence;
  std::ostream& err = speaks ? std::cerr : silence;
  try {
    Options options;
    if (const auto code = ParseOptions(argc, argv, options, out, err)) return *code;
    const bool good =
        options.supercell > 0 ? RunSupercell(options, out) : RunBandStructure(options, out);
    return good ? 0 : 1;
  } catch (const Error& error) {
    err << "silicon_bands: " << error.what() << '\n';
    return 1;
  } catch (const ves::Error& error) {
    err << "silicon_bands: " << error.what() << '\n';
    return 1;
  } catch (const ves::SharedError& error) {
    err << "silicon_bands: " << error.what() << '\n';
    return 1;
  } catch (const std::exception& error) {
    EndAll(error);
  }
}

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  const int code = Run(argc, argv);
  MPI_Finalize();
  return code;
}
