#ifndef SILICON_CRYSTAL_H
#define SILICON_CRYSTAL_H

#include <array>
#include <complex>
#include <vector>

namespace silicon {

using Complex = std::complex<double>;
using Vec3 = std::array<double, 3>;
using Index3 = std::array<int, 3>;

constexpr double bohrInAngstrom = 0.529177210903;
constexpr double rydbergInEv = 13.605693122994;

double Dot(const Vec3& a, const Vec3& b);
double Distance(const Vec3& a, const Vec3& b);

/// Kinetic energy (2 pi / a)^2 in Ry of a wave vector of length 2 pi / a.
double KineticUnit();

/// Fourier coefficient of the empirical pseudopotential at G = (2 pi / a)(h, k, l), in Ry:
/// V(G) = VS(|G|^2) / 2 sum_atoms exp(-i G.r), the atoms of the primitive cell at r = 0 and
/// (1,1,1) a/4. Zero unless h, k, l are all even or all odd.
Complex PotentialCoefficient(const Index3& hkl);

/// One term of the potential of a crystal.
struct FourierTerm {
  Index3 g; ///< coordinates of G along the reciprocal vectors of the cell
  Complex value;
};

/// Silicon, described by a cell that repeats it. Lengths in units of the cubic lattice constant a,
/// wave vectors in units of 2 pi / a; reciprocal lattice vectors are written by their integer
/// coordinates g along the reciprocal vectors b of the cell, a_i . b_j = delta_ij.
class Crystal {
public:
  /// The face-centred cubic cell of two atoms.
  static Crystal PrimitiveCell();

  /// n x n x n cubic cells of eight atoms each.
  static Crystal Supercell(int n);

  /// k + G in Cartesian coordinates.
  Vec3 WaveVector(const Vec3& k, const Index3& g) const;

  /// |k + G|^2 in Ry.
  double KineticEnergy(const Vec3& k, const Index3& g) const;

  /// Coordinates of a Cartesian wave vector along the reciprocal vectors: q_i = a_i . q.
  Vec3 ReciprocalCoordinates(const Vec3& q) const;

  /// Half widths of the box in reciprocal coordinates around a sphere of this radius.
  Vec3 SphereExtent(double radius) const;

  /// Number of cubic cells' worth of crystal in the cell: 1/4 for the primitive one.
  double Volume() const;

  const std::vector<FourierTerm>& Potential() const { return potential_; }

private:
  using Matrix3 = std::array<Vec3, 3>;
  Crystal(const Matrix3& direct, const Matrix3& reciprocal);

  Matrix3 direct_;
  Matrix3 reciprocal_;
  std::vector<FourierTerm> potential_;
};

} // namespace silicon

#endif
