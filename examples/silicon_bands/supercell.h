#ifndef SILICON_SUPERCELL_H
#define SILICON_SUPERCELL_H

#include "band_solver.h"

#include <ostream>
#include <vector>

namespace silicon {

/// The 4 n^3 wave vectors of the primitive cell that fold onto Gamma of n x n x n cubic cells: all
/// of (1/n) Z^3 modulo the body-centred cubic reciprocal lattice.
std::vector<Vec3> FoldedPoints(int n);

/// The lowest levels of the primitive cell at all folded points taken together, in ascending order
/// and at the cut-off of the supercell: the levels that the supercell must have at Gamma. Throws
/// Error when the solver fails on them. Collective over comm.
std::vector<double> FoldedLevels(int n, double cutoff, int count, const SolverOptions& options,
                                 std::ostream& out, MPI_Comm comm);

} // namespace silicon

#endif
