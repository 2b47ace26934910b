#ifndef VES_TOOLS_GUESS_H
#define VES_TOOLS_GUESS_H

#include "problem.h"

#include <string>
#include <vector>

namespace VesTools {

/// Random numbers by seed, row and column, the same on any number of processes: rows from firstRow
/// on, column-major without gaps, each row times its weight if there are weights.
template <typename Scalar>
void FillRandom(Scalar* values, int rows, int columns, int firstRow, unsigned long long seed,
                const std::vector<double>& weights);

/// Reads the local rows of a block of as many rows as the problem and at most columns columns into
/// the first columns of values; \return how many there were. Throws Error. Collective.
template <typename Scalar>
int ReadBlock(const std::string& path, const Problem<Scalar>& problem, int columns, Scalar* values);

} // namespace VesTools

#endif
