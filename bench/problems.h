// Eigenproblems whose values are known from elsewhere: by a closed form, or from another method in
// higher precision.
#ifndef VES_BENCH_PROBLEMS_H
#define VES_BENCH_PROBLEMS_H

#include <complex>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace VesBench {

using Complex = std::complex<double>;
using Row = std::vector<std::pair<int, Complex>>;

struct Problem {
  std::string name, source;           ///< what it is, and where its values come from
  int order = 0, pairs = 0;           ///< pairs do not cut a group of equal values
  bool isComplex = false;             ///< entries are complex without further ado
  std::function<Row(int)> a, b;       ///< rows of A and B; b is empty in standard problems
  std::vector<double> preconditioner; ///< diagonal of T; empty for none
  std::vector<double> exact;          ///< ascending, more than pairs
  double exactError = 0.0;            ///< how far those may be off themselves, beside rounding
  double normA = 0.0, normB = 1.0;    ///< bounds of the 2-norms
  double smallestB = 1.0;             ///< lower bound of the eigenvalues of B

  bool IsGeneralized() const { return static_cast<bool>(b); }

  /// About the smallest residual that arithmetic with this eps can reach, for B-normalized vectors
  /// as smooth as the lowest ones are.
  double RoundingFloor(double eps) const;

  /// The power of ten that a run asks for: far above the floor in double precision, where the
  /// residual then decides how far values err, and safely above it in single precision.
  double Threshold(double eps) const;
};

/// Dirichlet Laplacian of the unit box by finite differences, dims interior points per axis.
Problem BoxByDifferences(const std::vector<int>& dims, int pairs);

/// The same by linear elements: stiffness and mass matrix of tensor products.
Problem BoxByElements(const std::vector<int>& dims, int pairs);

/// Dirichlet five-point Laplacian on the L-shaped membrane, spacing 1/grid, grid 8 or 16.
Problem LShapedMembrane(int grid, int pairs);

/// -Laplacian + |x|^2 on a sinc grid: 1 dimension and 48 points, or 3 and 12 points per axis.
Problem HarmonicOscillator(int dimension, int pairs);

/// Silicon in plane waves at Gamma, X, L (10 Ry) and at a general k with a shifted origin (5 Ry).
Problem Silicon(const std::string& point, int pairs);

/// All of the above, in the sizes that the tables show.
std::vector<Problem> AllProblems();

} // namespace VesBench

#endif
