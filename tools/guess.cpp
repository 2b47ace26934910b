#include "guess.h"

#include "matrix_market.h"
#include "parallel.h"

#include <cmath>
#include <cstdint>

namespace VesTools {
namespace {

// The SplitMix64 finalizer: a well mixed value for every state.
std::uint64_t Mix(std::uint64_t state) {
  state += 0x9e3779b97f4a7c15u;
  state = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9u;
  state = (state ^ (state >> 27)) * 0x94d049bb133111ebu;
  return state ^ (state >> 31);
}

// Collective.
template <typename Scalar, typename Read>
ves::Block<Scalar> BlockOf(EntryList<Read>& block, const Problem<Scalar>& problem) {
  const auto refuse = [&](const std::string& why) {
    throw Error(exitInput, block.name + ": " + why);
  };
  if (block.rows != problem.Order())
    refuse("a block of " + std::to_string(block.rows) + " rows does not fit a problem of order " +
           std::to_string(problem.Order()));
  if (!std::is_floating_point_v<Read> && std::is_floating_point_v<Scalar>)
    refuse("a complex block does not fit a real problem");
  MoveToOwners(block, problem.offsets, problem.comm);
  ves::Block<Scalar> result(problem.LocalRows(), block.columns, problem.comm);
  for (const Entry<Read>& entry : block.entries)
    result(entry.row - problem.FirstRow(), entry.column) = Convert<Scalar>(entry.value);
  return result;
}

// Uniform in [-1, 1).
double ToUnit(std::uint64_t bits) {
  return std::ldexp(double(bits >> 11), -52) - 1.0;
}

} // namespace

template <typename Scalar>
void FillRandom(Scalar* values, int rows, int columns, int firstRow, unsigned long long seed,
                const std::vector<double>& weights) {
  for (int j = 0; j < columns; ++j) {
    for (int i = 0; i < rows; ++i) {
      const std::uint64_t bits =
          Mix(Mix(Mix(seed) ^ static_cast<std::uint64_t>(j)) ^
              (static_cast<std::uint64_t>(firstRow) + static_cast<std::uint64_t>(i)));
      const double weight = weights.empty() ? 1.0 : weights[static_cast<std::size_t>(i)];
      *values++ = Convert<Scalar>({weight * ToUnit(bits), weight * ToUnit(Mix(bits))});
    }
  }
}

template <typename Scalar>
ves::Block<Scalar> ReadBlock(const std::string& path, const Problem<Scalar>& problem) {
  AnyEntries read = ReadMatrixMarket(path, problem.comm);
  return std::visit([&](auto& block) { return BlockOf(block, problem); }, read);
}

template void FillRandom(double*, int, int, int, unsigned long long, const std::vector<double>&);
template void FillRandom(float*, int, int, int, unsigned long long, const std::vector<double>&);
template void FillRandom(std::complex<double>*, int, int, int, unsigned long long,
                         const std::vector<double>&);
template void FillRandom(std::complex<float>*, int, int, int, unsigned long long,
                         const std::vector<double>&);
template ves::Block<double> ReadBlock(const std::string&, const Problem<double>&);
template ves::Block<float> ReadBlock(const std::string&, const Problem<float>&);
template ves::Block<std::complex<double>> ReadBlock(const std::string&,
                                                    const Problem<std::complex<double>>&);
template ves::Block<std::complex<float>> ReadBlock(const std::string&,
                                                   const Problem<std::complex<float>>&);

} // namespace VesTools
