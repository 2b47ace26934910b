#include "crystal.h"

#include <cmath>

namespace silicon {

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double latticeConstantInAngstrom = 5.43;

// The form factors of silicon end at |G|^2 = 11.
constexpr int maxPotentialIndex = 3;

double FormFactor(int squaredLength) {
  switch (squaredLength) {
  case 3:
    return -0.21;
  case 8:
    return 0.04;
  case 11:
    return 0.08;
  default:
    return 0.0;
  }
}

// (1 + exp(-i pi/2 (h+k+l))) / 2, exact for every residue of h+k+l modulo 4.
Complex StructureFactor(const Index3& hkl) {
  static constexpr Complex values[] = {{1.0, 0.0}, {0.5, -0.5}, {0.0, 0.0}, {0.5, 0.5}};
  return values[static_cast<unsigned>(hkl[0] + hkl[1] + hkl[2]) % 4];
}

} // namespace

double Dot(const Vec3& a, const Vec3& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

double Distance(const Vec3& a, const Vec3& b) {
  const Vec3 d = {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
  return std::sqrt(Dot(d, d));
}

double KineticUnit() {
  const double b = 2.0 * pi * bohrInAngstrom / latticeConstantInAngstrom;
  return b * b;
}

Complex PotentialCoefficient(const Index3& hkl) {
  const int parity = hkl[0] & 1;
  if ((hkl[1] & 1) != parity || (hkl[2] & 1) != parity) return 0.0;
  const int squaredLength = hkl[0] * hkl[0] + hkl[1] * hkl[1] + hkl[2] * hkl[2];
  return FormFactor(squaredLength) * StructureFactor(hkl);
}

Crystal::Crystal(const Matrix3& direct, const Matrix3& reciprocal)
    : direct_(direct), reciprocal_(reciprocal) {
  constexpr int m = maxPotentialIndex;
  for (int h = -m; h <= m; ++h) {
    for (int k = -m; k <= m; ++k) {
      for (int l = -m; l <= m; ++l) {
        const Complex value = PotentialCoefficient({h, k, l});
        if (value == 0.0) continue;
        const Vec3 g = ReciprocalCoordinates({double(h), double(k), double(l)});
        potential_.push_back(
            {{int(std::lround(g[0])), int(std::lround(g[1])), int(std::lround(g[2]))}, value});
      }
    }
  }
}

Crystal Crystal::PrimitiveCell() {
  return {{{{0.0, 0.5, 0.5}, {0.5, 0.0, 0.5}, {0.5, 0.5, 0.0}}},
          {{{-1.0, 1.0, 1.0}, {1.0, -1.0, 1.0}, {1.0, 1.0, -1.0}}}};
}

Crystal Crystal::Supercell(int n) {
  const double a = n;
  const double b = 1.0 / a;
  return {{{{a, 0.0, 0.0}, {0.0, a, 0.0}, {0.0, 0.0, a}}},
          {{{b, 0.0, 0.0}, {0.0, b, 0.0}, {0.0, 0.0, b}}}};
}

Vec3 Crystal::WaveVector(const Vec3& k, const Index3& g) const {
  Vec3 q = k;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j)
      q[j] += g[i] * reciprocal_[i][j];
  }
  return q;
}

double Crystal::KineticEnergy(const Vec3& k, const Index3& g) const {
  const Vec3 q = WaveVector(k, g);
  return KineticUnit() * Dot(q, q);
}

Vec3 Crystal::ReciprocalCoordinates(const Vec3& q) const {
  return {Dot(direct_[0], q), Dot(direct_[1], q), Dot(direct_[2], q)};
}

Vec3 Crystal::SphereExtent(double radius) const {
  Vec3 extent{};
  for (std::size_t i = 0; i < 3; ++i)
    extent[i] = radius * std::sqrt(Dot(direct_[i], direct_[i]));
  return extent;
}

double Crystal::Volume() const {
  const auto& [u, v, w] = direct_;
  const Vec3 cross = {v[1] * w[2] - v[2] * w[1], v[2] * w[0] - v[0] * w[2],
                      v[0] * w[1] - v[1] * w[0]};
  return std::abs(Dot(u, cross));
}

} // namespace silicon
