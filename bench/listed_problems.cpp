// Problems whose reference values are listed, and the list of all problems.
#include "problems.h"

#include <array>
#include <cmath>
#include <map>
#include <stdexcept>

namespace VesBench {
namespace {

const double pi = std::acos(-1.0);

/// Points of the membrane, numbered; the quadrant i >= 0, j <= 0 is cut out.
std::map<std::pair<int, int>, int> MembranePoints(int grid) {
  std::map<std::pair<int, int>, int> number;
  for (int i = 1 - grid; i < grid; ++i)
    for (int j = 1 - grid; j < grid; ++j)
      if (i < 0 || j > 0) number.emplace(std::pair(i, j), static_cast<int>(number.size()));
  return number;
}

/// -d^2/dx^2 between two points of a sinc grid that lie apart by steps of h.
double SincKinetic(int steps, double h) {
  if (steps == 0) return pi * pi / (3.0 * h * h);
  return (steps % 2 == 0 ? 2.0 : -2.0) / (h * h * steps * steps);
}

/// The local empirical pseudopotential of silicon in Rydberg units.
struct SiliconModel {
  using Triple = std::array<int, 3>;

  static double Unit() { // (2 pi / a)^2 in Ry, for a = 5.43 Angstrom in Bohr radii
    const double a = 5.43 / 0.529177210903;
    return 4.0 * pi * pi / (a * a);
  }

  static double Kinetic(const Triple& g, const std::array<double, 3>& k) {
    double sum = 0.0;
    for (std::size_t d = 0; d < 3; ++d)
      sum += (g[d] + k[d]) * (g[d] + k[d]);
    return Unit() * sum;
  }

  /// Waves g with |k + g|^2 up to the cut-off, indices all even or all odd.
  static std::vector<Triple> Waves(const std::array<double, 3>& k, double cutoff) {
    const int most = 12;
    std::vector<Triple> waves;
    for (int h = -most; h <= most; ++h)
      for (int m = -most; m <= most; ++m)
        for (int l = -most; l <= most; ++l) {
          const bool oneParity = (h - m) % 2 == 0 && (m - l) % 2 == 0;
          if (oneParity && Kinetic({h, m, l}, k) <= cutoff) waves.push_back({h, m, l});
        }
    return waves;
  }

  /// V at the difference of two waves, origin shifted by shift (1, 1, 1) a: a shift of zero leaves
  /// it between two atoms, where V is real.
  static Complex Potential(const Triple& from, const Triple& to, double shift) {
    int square = 0, sum = 0;
    for (std::size_t d = 0; d < 3; ++d) {
      const int g = to[d] - from[d];
      square += g * g;
      sum += g;
    }
    const double form = square == 3 ? -0.21 : square == 8 ? 0.04 : square == 11 ? 0.08 : 0.0;
    return form * std::cos(pi * sum / 4.0) * std::polar(1.0, -2.0 * pi * sum * shift);
  }
};

struct SiliconPoint {
  const char* name;
  std::array<double, 3> k; // in 2 pi / a
  double cutoff, shift;    // Ry, a
  int waves;
  std::vector<double> energies; // Ry
};

/// Empirical pseudopotential of Cohen and Bergstresser, Phys. Rev. 141, 789 (1966): dense
/// diagonalization of the same matrix, to 14 digits.
const std::vector<SiliconPoint>& SiliconPoints() {
  static const std::vector<SiliconPoint> points = {
      {"Gamma",
       {0.0, 0.0, 0.0},
       10.0,
       0.0,
       137,
       {-0.15840421299604, 0.7691978317125, 0.7691978317125, 0.76919783171251, 1.0205287603129,
        1.0205287603129, 1.0205287603129, 1.0548509491956, 1.3234479157675, 1.3557449601924}},
      {"X",
       {1.0, 0.0, 0.0},
       10.0,
       0.0,
       150,
       {0.1562326016995, 0.15623260169951, 0.54776486680643, 0.54776486680643, 0.8383769601766,
        0.83837696017661, 1.6613733140135, 1.6613733140136, 1.7243025838129, 1.724302583813}},
      {"L",
       {0.5, 0.5, 0.5},
       10.0,
       0.0,
       138,
       {0.016367171526914, 0.22731243597461, 0.67668477919104, 0.67668477919104, 0.90656188522252,
        1.0614476356884, 1.0614476356884, 1.3548592706093, 1.6146737858655, 1.6146737858655}},
      {"k = (0.2, 0.1, 0.35)",
       {0.2, 0.1, 0.35},
       5.0,
       0.125,
       55,
       {-0.099464825284968, 0.51704987551654, 0.66091582679983, 0.71907416287722, 0.99994301849042,
        1.0851666767721, 1.1522503340218, 1.1876801579305, 1.3460068260781, 1.4342250990077}}};
  return points;
}

/// Largest sum of moduli of a row: a bound of the 2-norm of a Hermitian matrix.
double LargestRowSum(const Problem& p) {
  double largest = 0.0;
  for (int i = 0; i < p.order; ++i) {
    double sum = 0.0;
    for (const auto& entry : p.a(i))
      sum += std::abs(entry.second);
    largest = std::max(largest, sum);
  }
  return largest;
}

} // namespace

Problem LShapedMembrane(int grid, int pairs) {
  // L-shaped membrane: discrete values computed in 40 digits.
  static const std::map<int, std::vector<double>> values = {
      {8,
       {9.693162213551151, 14.993152849379078, 19.48683967711059, 28.806926428398857,
        31.373299049276238, 39.936514468038524, 42.7800634244973, 47.233751846677215,
        47.233751846677215, 54.68062547314123, 61.79517458522398, 66.36324914610908}},
      {16,
       {9.673506476037202, 15.146844693474032, 19.67587286709202, 29.341832412338146,
        31.826884898116877, 41.12622610509536, 44.40254329362545, 48.81161578776719,
        48.81161578776719, 56.2402688916669, 64.48721784008804, 69.90275905708484}}};
  const auto number = MembranePoints(grid);
  std::vector<std::pair<int, int>> points;
  for (const auto& [point, at] : number)
    points.push_back(point);
  Problem p;
  p.name = "L-shaped membrane, grid " + std::to_string(grid);
  p.source = "L-shaped membrane: discrete values computed in 40 digits";
  p.order = static_cast<int>(number.size());
  p.pairs = pairs;
  p.exact = values.at(grid);
  const double perSquare = static_cast<double>(grid) * grid;
  p.normA = 8.0 * perSquare;
  p.a = [=](int row) {
    const auto [i, j] = points[static_cast<std::size_t>(row)];
    Row entries{{row, 4.0 * perSquare}};
    for (const auto& neighbour :
         {std::pair(i - 1, j), std::pair(i + 1, j), std::pair(i, j - 1), std::pair(i, j + 1)}) {
      const auto found = number.find(neighbour);
      if (found != number.end()) entries.emplace_back(found->second, -perSquare);
    }
    return entries;
  };
  return p;
}

Problem HarmonicOscillator(int dimension, int pairs) {
  // Sinc grid: in 1 dimension the odd integers up to 3e-14; in 3 the values of the grid itself, as
  // sums of those of one axis.
  static const std::map<int, std::vector<double>> values = {
      {1, {1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23}},
      {3,
       {3.0000002006292, 4.9999979879626, 4.9999979879626, 4.9999979879626, 6.9999957752961,
        6.9999957752961, 6.9999957752961, 7.0000414904436, 7.0000414904436, 7.0000414904436,
        8.9996282951616, 8.9996282951616, 8.9996282951616, 8.9999935626295}}};
  const int n = dimension == 1 ? 48 : 12;
  const double h = std::sqrt(2.0 * pi / n);
  Problem p;
  p.name = "Harmonic oscillator in " + std::to_string(dimension) +
           (dimension == 1 ? " dimension" : " dimensions");
  p.source = "harmonic oscillator on a sinc grid: the levels of that grid";
  p.order = dimension == 1 ? n : n * n * n;
  p.pairs = pairs;
  p.exact = values.at(dimension);
  p.exactError = 5e-14; // the grid against the odd integers, or the last of 14 digits
  p.a = [=](int row) {
    std::map<int, double> entries;
    for (int d = 0, stride = 1; d < dimension; ++d, stride *= n) {
      const int at = row / stride % n;
      const double x = (at - (n - 1) / 2.0) * h;
      for (int other = 0; other < n; ++other)
        entries[row + (other - at) * stride] += SincKinetic(other - at, h);
      entries[row] += x * x;
    }
    return Row(entries.begin(), entries.end());
  };
  p.normA = LargestRowSum(p);
  return p;
}

Problem Silicon(const std::string& point, int pairs) {
  for (const SiliconPoint& reference : SiliconPoints()) {
    if (point != reference.name) continue;
    const auto waves = SiliconModel::Waves(reference.k, reference.cutoff);
    if (static_cast<int>(waves.size()) != reference.waves)
      throw std::logic_error("the basis of silicon differs from that of the reference");
    Problem p;
    p.name = "Silicon, " + point + ", " + std::to_string(static_cast<int>(reference.cutoff)) +
             " Ry, " + std::to_string(reference.waves) + " plane waves";
    p.source = "empirical pseudopotential of Cohen and Bergstresser, Phys. Rev. 141, 789 (1966): "
               "dense diagonalization of the same matrix";
    p.order = reference.waves;
    p.pairs = pairs;
    p.isComplex = reference.shift != 0.0;
    p.exact = reference.energies;
    p.exactError = 5e-14; // their residuals in Ry
    for (const auto& wave : waves)
      p.preconditioner.push_back(1.0 / (SiliconModel::Kinetic(wave, reference.k) + 1.0));
    p.a = [waves, k = reference.k, shift = reference.shift](int row) {
      const auto& own = waves[static_cast<std::size_t>(row)];
      Row entries{{row, SiliconModel::Kinetic(own, k)}};
      for (int j = 0; j < static_cast<int>(waves.size()); ++j) {
        // H at row g and column g' is V(g - g').
        const Complex v = SiliconModel::Potential(waves[static_cast<std::size_t>(j)], own, shift);
        if (v != 0.0) entries.emplace_back(j, v);
      }
      return entries;
    };
    p.normA = LargestRowSum(p);
    return p;
  }
  throw std::invalid_argument("no reference at " + point);
}

std::vector<Problem> AllProblems() {
  return {BoxByDifferences({30, 30}, 8),
          BoxByDifferences({31, 20}, 8),
          BoxByDifferences({12, 12, 12}, 10),
          BoxByDifferences({20, 21, 22}, 10),
          BoxByElements({100}, 6),
          BoxByElements({10, 11, 12}, 10),
          LShapedMembrane(8, 7),
          LShapedMembrane(16, 10),
          HarmonicOscillator(1, 8),
          HarmonicOscillator(3, 10),
          Silicon("Gamma", 8),
          Silicon("X", 6),
          Silicon("L", 8),
          Silicon("k = (0.2, 0.1, 0.35)", 8)};
}

} // namespace VesBench
