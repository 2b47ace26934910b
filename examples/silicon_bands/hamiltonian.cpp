#include "hamiltonian.h"

#include <algorithm>

namespace silicon {

namespace {

// Columns that one FFT transforms at a time.
constexpr int batchWidth = 8;

} // namespace

template <typename Real>
Hamiltonian<Real>::Hamiltonian(const Crystal& crystal, const PlaneWaves& basis, MPI_Comm comm)
    : group_(comm, basis.LocalSize() > 0 ? 0 : MPI_UNDEFINED) {
  if (basis.LocalSize() == 0) return;
  const Index3& n = basis.Grid();
  fft_ = std::make_unique<SlabFft<Real>>(group_.get(), n, basis.Layout().block, batchWidth);
  for (const PlaneWave& wave : basis.Local()) {
    const Index3 i = basis.GridPoint(wave.g);
    kinetic_.push_back(static_cast<Real>(wave.kinetic));
    position_.push_back(((i[0] - fft_->FirstPlane()) * n[1] + i[1]) * n[2] + i[2]);
  }
  SetPotential(crystal, basis);
}

// V(r) = sum_G V(G) exp(i G.r), in the layout of real space. Terms that the grid folds onto one
// point are added: its size keeps both from the differences G - G' of the sphere.
template <typename Real>
void Hamiltonian<Real>::SetPotential(const Crystal& crystal, const PlaneWaves& basis) {
  const Index3& n = basis.Grid();
  const int width = fft_->Width();
  Number* data = fft_->Data();
  std::fill(data, data + fft_->Points() * width, Number(0));
  for (const FourierTerm& term : crystal.Potential()) {
    Index3 i{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      i[axis] = (term.g[axis] % n[axis] + n[axis]) % n[axis];
    }
    const std::ptrdiff_t point = ((i[0] - fft_->FirstPlane()) * n[1] + i[1]) * n[2] + i[2];
    if (point >= 0 && point < fft_->Points()) data[point * width] += Number(term.value);
  }
  fft_->ToRealSpace();
  const auto scale = static_cast<Real>(1.0 / (double(n[0]) * n[1] * n[2]));
  potential_.resize(static_cast<std::size_t>(fft_->RealPoints()));
  for (std::size_t r = 0; r < potential_.size(); ++r) {
    potential_[r] = scale * data[r * static_cast<std::size_t>(width)].real();
  }
}

template <typename Real>
void Hamiltonian<Real>::Apply(const Number* x, Number* y, int nCols, int ld) {
  if (!fft_) return;
  appliedColumns_ += nCols;
  for (int first = 0; first < nCols; first += batchWidth) {
    const std::ptrdiff_t offset = std::ptrdiff_t(first) * ld;
    ApplyBatch(x + offset, y + offset, std::min(batchWidth, nCols - first), ld);
  }
}

// The last batch of a block may have fewer columns than the FFT; the others are zero.
template <typename Real>
void Hamiltonian<Real>::ApplyBatch(const Number* x, Number* y, int nCols, int ld) {
  const int width = fft_->Width();
  Number* data = fft_->Data();
  std::fill(data, data + fft_->Points() * width, Number(0));
  for (int j = 0; j < nCols; ++j) {
    const Number* column = x + std::ptrdiff_t(j) * ld;
    for (std::size_t i = 0; i < position_.size(); ++i)
      data[position_[i] * width + j] = column[i];
  }
  fft_->ToRealSpace();
  for (std::size_t r = 0; r < potential_.size(); ++r) {
    Number* values = data + static_cast<std::ptrdiff_t>(r) * width;
    for (int j = 0; j < width; ++j)
      values[j] *= potential_[r];
  }
  fft_->ToReciprocalSpace();
  for (int j = 0; j < nCols; ++j) {
    const Number* column = x + std::ptrdiff_t(j) * ld;
    Number* result = y + std::ptrdiff_t(j) * ld;
    for (std::size_t i = 0; i < position_.size(); ++i) {
      result[i] = kinetic_[i] * column[i] + data[position_[i] * width + j];
    }
  }
}

template <typename Real>
void Hamiltonian<Real>::Precondition(const Number* x, Number* y, int nCols, int ld) const {
  for (int j = 0; j < nCols; ++j) {
    const std::ptrdiff_t offset = std::ptrdiff_t(j) * ld;
    for (std::size_t i = 0; i < kinetic_.size(); ++i) {
      y[offset + std::ptrdiff_t(i)] = x[offset + std::ptrdiff_t(i)] / (kinetic_[i] + Real(1));
    }
  }
}

template class Hamiltonian<double>;
template class Hamiltonian<float>;

} // namespace silicon
