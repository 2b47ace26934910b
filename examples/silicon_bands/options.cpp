#include "options.h"

#include "band_structure.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <map>

namespace silicon {

namespace {

// CLI11's own range checks let NaN pass.
std::string CheckPositive(const std::string& text) {
  double value = 0.0;
  const bool isNumber = CLI::detail::lexical_cast(text, value);
  return isNumber && value > 0.0 && std::isfinite(value) ? "" : text + " is not a positive number";
}

constexpr int maxCells = 50;
constexpr int maxCount = 1000000;

const std::map<std::string, VesSolverType> solvers = {
    {"lobpcg", VES_LOBPCG}, {"ppcg", VES_PPCG}, {"lobpcg-batch", VES_LOBPCG_BATCH}};

CLI::Validator CountUpTo(int limit) {
  return CLI::Range(1, limit).description("");
}

void Describe(CLI::App& app, Options& options, std::string& solver) {
  const CLI::Validator positive(CheckPositive, "");
  app.add_option("--ecut", options.cutoff, "cut-off of the plane waves in Ry")
      ->check(positive)
      ->capture_default_str();
  app.add_option("--bands", options.bands,
                 "number of bands; default 8, for a supercell its 16 N^3 valence bands")
      ->check(CountUpTo(maxCount));
  CLI::Option* points =
      app.add_option("--points", options.points,
                     "k-point intervals on Gamma-X, the other segments in proportion")
          ->check(CountUpTo(maxCount))
          ->capture_default_str();
  app.add_option("--threshold", options.solver.threshold, "largest residual norm of a band in Ry")
      ->check(positive)
      ->capture_default_str();
  app.add_option("--solver", solver, "algorithm of the library")
      ->check(CLI::IsMember(&solvers))
      ->capture_default_str();
  app.add_option("--batch", options.solver.batch,
                 "bands that lobpcg-batch iterates at once, or columns of a sub-block of ppcg")
      ->check(CountUpTo(maxCount));
  app.add_option("--max-iter", options.solver.maxIterations, "iterations of the solver at most")
      ->check(CountUpTo(maxCount))
      ->capture_default_str();
  app.add_option("--supercell", options.supercell,
                 "solve N x N x N cubic cells at Gamma and compare with the folded bands")
      ->check(CountUpTo(maxCells))
      ->excludes(points);
  app.add_option("--output", options.output, "directory of the result files")
      ->capture_default_str();
}

} // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options& options, std::ostream& out,
                                std::ostream& err) {
  CLI::App app("Band structure of silicon from the empirical pseudopotential of Cohen and\n"
               "Bergstresser in plane waves, solved by libves. Writes bands.csv and bands.svg,\n"
               "or supercell.csv. The exit code is 0 when all bands converged and agree with\n"
               "the reference, where there is one.",
               "silicon_bands");
  std::string solver = "lobpcg";
  Describe(app, options, solver);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    out << app.help();
    return 0;
  } catch (const CLI::ParseError& error) {
    err << "silicon_bands: " << error.what() << " (--help explains the options)\n";
    return 1;
  }
  options.solver.type = solvers.at(solver);
  if (options.bands == 0) {
    const int cells = options.supercell * options.supercell * options.supercell;
    options.bands = cells == 0 ? 2 * valenceBands : 4 * valenceBands * cells;
  }
  return std::nullopt;
}

} // namespace silicon
