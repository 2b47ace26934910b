#ifndef SILICON_K_POINTS_H
#define SILICON_K_POINTS_H

#include "band_solver.h"

#include <ostream>
#include <vector>

namespace silicon {

/// The lowest levels at many wave vectors, as many bands as plane waves allow, on every process.
/// The processes form groups that share the wave vectors out; in a group each starts from the bands
/// of the one before. Lines of progress go to out on process 0. Collective over comm; throws
/// ves::SharedError on all processes for what SolveBands throws on any.
std::vector<Levels> SolvePoints(const Crystal& crystal, const std::vector<Vec3>& points,
                                double cutoff, int bands, const SolverOptions& options,
                                std::ostream& out, MPI_Comm comm);

} // namespace silicon

#endif
