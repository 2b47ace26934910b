#include "slab_fft.h"

#include <new>
#include <stdexcept>

namespace silicon {

SlabFft::SlabFft(MPI_Comm comm, const Index3& n, int block, int width) : n_(n), width_(width) {
  static const bool initialised = (fftw_mpi_init(), true);
  static_cast<void>(initialised);
  const std::ptrdiff_t dims[] = {n[0], n[1], n[2]};
  std::ptrdiff_t firstRealPlane = 0;
  const std::ptrdiff_t storage =
      fftw_mpi_local_size_many_transposed(3, dims, width, block, FFTW_MPI_DEFAULT_BLOCK, comm,
                                          &planes_, &firstPlane_, &realPlanes_, &firstRealPlane);
  fftw_complex* values = fftw_alloc_complex(static_cast<std::size_t>(storage));
  if (values == nullptr) throw std::bad_alloc();
  data_ = reinterpret_cast<Complex*>(values);
  toReal_ = fftw_mpi_plan_many_dft(3, dims, width, block, FFTW_MPI_DEFAULT_BLOCK, values, values,
                                   comm, FFTW_BACKWARD, FFTW_ESTIMATE | FFTW_MPI_TRANSPOSED_OUT);
  // FFTW takes the block of the input before that of the output, transposed or not.
  toReciprocal_ =
      fftw_mpi_plan_many_dft(3, dims, width, FFTW_MPI_DEFAULT_BLOCK, block, values, values, comm,
                             FFTW_FORWARD, FFTW_ESTIMATE | FFTW_MPI_TRANSPOSED_IN);
  if (toReal_ == nullptr || toReciprocal_ == nullptr) throw std::runtime_error("FFT has no plan");
}

SlabFft::~SlabFft() {
  fftw_destroy_plan(toReciprocal_);
  fftw_destroy_plan(toReal_);
  fftw_free(data_);
}

} // namespace silicon
