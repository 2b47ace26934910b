#ifndef SILICON_SLAB_FFT_H
#define SILICON_SLAB_FFT_H

#include "crystal.h"
#include "fftw_of.h"

#include <complex>
#include <cstddef>

namespace silicon {

/// Three-dimensional FFT of several functions at once, distributed by slabs. Reciprocal space is
/// distributed along the first axis, real space along the second one, which saves a transposition
/// on either way; both lie in the same storage:
///   reciprocal  data[((i0 - FirstPlane()) n1 + i1) n2 + i2) width + f]
///   real        data[((i1 - first) n0 + i0) n2 + i2) width + f], RealPoints() points here
/// Construction, destruction and transforms are collective over comm. Real is double or float.
template <typename Real>
class SlabFft {
public:
  using Number = std::complex<Real>;

  /// \param block  planes of the first axis per process
  /// \param width  number of functions
  SlabFft(MPI_Comm comm, const Index3& n, int block, int width);
  ~SlabFft();
  SlabFft(const SlabFft&) = delete;
  SlabFft& operator=(const SlabFft&) = delete;

  Number* Data() { return data_; }
  std::ptrdiff_t Points() const { return planes_ * n_[1] * n_[2]; }
  std::ptrdiff_t RealPoints() const { return realPlanes_ * n_[0] * n_[2]; }
  std::ptrdiff_t FirstPlane() const { return firstPlane_; }
  int Width() const { return width_; }

  /// sum_G c(G) exp(i G.r), without a factor.
  void ToRealSpace() { Fftw::execute(toReal_); }

  /// sum_r f(r) exp(-i G.r): the inverse times the number of grid points.
  void ToReciprocalSpace() { Fftw::execute(toReciprocal_); }

private:
  using Fftw = FftwOf<Real>;

  Index3 n_;
  int width_;
  std::ptrdiff_t planes_ = 0;
  std::ptrdiff_t firstPlane_ = 0;
  std::ptrdiff_t realPlanes_ = 0;
  Number* data_ = nullptr;
  typename Fftw::Plan toReal_ = nullptr;
  typename Fftw::Plan toReciprocal_ = nullptr;
};

extern template class SlabFft<double>;
extern template class SlabFft<float>;

} // namespace silicon

#endif
