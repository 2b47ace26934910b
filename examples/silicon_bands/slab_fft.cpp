#include "slab_fft.h"

#include <new>
#include <stdexcept>

namespace silicon {

template <typename Real>
SlabFft<Real>::SlabFft(MPI_Comm comm, const Index3& n, int block, int width)
    : n_(n), width_(width) {
  static const bool initialised = (Fftw::init(), true);
  static_cast<void>(initialised);
  const std::ptrdiff_t dims[] = {n[0], n[1], n[2]};
  std::ptrdiff_t firstRealPlane = 0;
  const std::ptrdiff_t storage =
      Fftw::localSize(3, dims, width, block, FFTW_MPI_DEFAULT_BLOCK, comm, &planes_, &firstPlane_,
                      &realPlanes_, &firstRealPlane);
  typename Fftw::Number* values = Fftw::allocate(static_cast<std::size_t>(storage));
  if (values == nullptr) throw std::bad_alloc();
  data_ = reinterpret_cast<Number*>(values);
  toReal_ = Fftw::plan(3, dims, width, block, FFTW_MPI_DEFAULT_BLOCK, values, values, comm,
                       FFTW_BACKWARD, FFTW_ESTIMATE | FFTW_MPI_TRANSPOSED_OUT);
  // FFTW takes the block of the input before that of the output, transposed or not.
  toReciprocal_ = Fftw::plan(3, dims, width, FFTW_MPI_DEFAULT_BLOCK, block, values, values, comm,
                             FFTW_FORWARD, FFTW_ESTIMATE | FFTW_MPI_TRANSPOSED_IN);
  if (toReal_ == nullptr || toReciprocal_ == nullptr) throw std::runtime_error("FFT has no plan");
}

template <typename Real>
SlabFft<Real>::~SlabFft() {
  Fftw::destroy(toReciprocal_);
  Fftw::destroy(toReal_);
  Fftw::free(data_);
}

template class SlabFft<double>;
template class SlabFft<float>;

} // namespace silicon
