#ifndef VES_TOOLS_GUESS_H
#define VES_TOOLS_GUESS_H

#include "problem.h"

#include <ves.hpp>

#include <string>
#include <vector>

namespace VesTools {

/// Random numbers by seed, row and column, the same on any number of processes: rows from firstRow
/// on, column-major without gaps, each row times its weight if there are weights.
template <typename Scalar>
void FillRandom(Scalar* values, int rows, int columns, int firstRow, unsigned long long seed,
                const std::vector<double>& weights);

/// A block of as many rows as the problem from a file. Throws Error. Collective.
template <typename Scalar>
ves::Block<Scalar> ReadBlock(const std::string& path, const Problem<Scalar>& problem);

} // namespace VesTools

#endif
