#ifndef SILICON_OPTIONS_H
#define SILICON_OPTIONS_H

#include "band_solver.h"

#include <optional>
#include <ostream>
#include <string>

namespace silicon {

struct Options {
  double cutoff = 10.0; ///< Ry
  int bands = 0;
  int points = 40;   ///< intervals on Gamma - X
  int supercell = 0; ///< cubic cells along each edge; 0: primitive cell along the band path
  SolverOptions solver;
  std::string output = ".";
};

/// Reads the command line. Help and complaints go to the streams.
/// \return the exit code when the program should end here
std::optional<int> ParseOptions(int argc, char** argv, Options& options, std::ostream& out,
                                std::ostream& err);

} // namespace silicon

#endif
