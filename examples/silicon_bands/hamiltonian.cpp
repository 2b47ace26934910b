#include "hamiltonian.h"

#include <algorithm>

namespace silicon {

namespace {

// Columns that one FFT transforms at a time.
constexpr int batchWidth = 8;

} // namespace

Hamiltonian::Hamiltonian(const Crystal& crystal, const PlaneWaves& basis, MPI_Comm comm)
    : group_(comm, basis.LocalSize() > 0) {
  if (basis.LocalSize() == 0) return;
  const Index3& n = basis.Grid();
  fft_ = std::make_unique<SlabFft>(group_.Get(), n, basis.Layout().block, batchWidth);
  for (const PlaneWave& wave : basis.Local()) {
    const Index3 i = basis.GridPoint(wave.g);
    kinetic_.push_back(wave.kinetic);
    position_.push_back(((i[0] - fft_->FirstPlane()) * n[1] + i[1]) * n[2] + i[2]);
  }
  SetPotential(crystal, basis);
}

// V(r) = sum_G V(G) exp(i G.r), in the layout of real space. Terms that the grid folds onto one
// point are added: its size keeps both from the differences G - G' of the sphere.
void Hamiltonian::SetPotential(const Crystal& crystal, const PlaneWaves& basis) {
  const Index3& n = basis.Grid();
  const int width = fft_->Width();
  Complex* data = fft_->Data();
  std::fill(data, data + fft_->Points() * width, 0.0);
  for (const FourierTerm& term : crystal.Potential()) {
    Index3 i{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      i[axis] = (term.g[axis] % n[axis] + n[axis]) % n[axis];
    }
    const std::ptrdiff_t point = ((i[0] - fft_->FirstPlane()) * n[1] + i[1]) * n[2] + i[2];
    if (point >= 0 && point < fft_->Points()) data[point * width] += term.value;
  }
  fft_->ToRealSpace();
  const double scale = 1.0 / (double(n[0]) * n[1] * n[2]);
  potential_.resize(static_cast<std::size_t>(fft_->RealPoints()));
  for (std::size_t r = 0; r < potential_.size(); ++r) {
    potential_[r] = scale * data[r * static_cast<std::size_t>(width)].real();
  }
}

void Hamiltonian::Apply(const Complex* x, Complex* y, int nCols, int ld) {
  if (!fft_) return;
  appliedColumns_ += nCols;
  for (int first = 0; first < nCols; first += batchWidth) {
    const std::ptrdiff_t offset = std::ptrdiff_t(first) * ld;
    ApplyBatch(x + offset, y + offset, std::min(batchWidth, nCols - first), ld);
  }
}

// The last batch of a block may have fewer columns than the FFT; the others are zero.
void Hamiltonian::ApplyBatch(const Complex* x, Complex* y, int nCols, int ld) {
  const int width = fft_->Width();
  Complex* data = fft_->Data();
  std::fill(data, data + fft_->Points() * width, 0.0);
  for (int j = 0; j < nCols; ++j) {
    const Complex* column = x + std::ptrdiff_t(j) * ld;
    for (std::size_t i = 0; i < position_.size(); ++i)
      data[position_[i] * width + j] = column[i];
  }
  fft_->ToRealSpace();
  for (std::size_t r = 0; r < potential_.size(); ++r) {
    Complex* values = data + static_cast<std::ptrdiff_t>(r) * width;
    for (int j = 0; j < width; ++j)
      values[j] *= potential_[r];
  }
  fft_->ToReciprocalSpace();
  for (int j = 0; j < nCols; ++j) {
    const Complex* column = x + std::ptrdiff_t(j) * ld;
    Complex* result = y + std::ptrdiff_t(j) * ld;
    for (std::size_t i = 0; i < position_.size(); ++i) {
      result[i] = kinetic_[i] * column[i] + data[position_[i] * width + j];
    }
  }
}

void Hamiltonian::Precondition(const Complex* x, Complex* y, int nCols, int ld) const {
  for (int j = 0; j < nCols; ++j) {
    const std::ptrdiff_t offset = std::ptrdiff_t(j) * ld;
    for (std::size_t i = 0; i < kinetic_.size(); ++i) {
      y[offset + std::ptrdiff_t(i)] = x[offset + std::ptrdiff_t(i)] / (kinetic_[i] + 1.0);
    }
  }
}

} // namespace silicon
