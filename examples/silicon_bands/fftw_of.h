#ifndef SILICON_FFTW_OF_H
#define SILICON_FFTW_OF_H

#include <fftw3-mpi.h>

namespace silicon {

/// The functions of FFTW for a real type, which have names of their own for each.
template <typename Real>
struct FftwOf;

#define SILICON_FFTW_OF(Real, prefix)                                                              \
  template <>                                                                                      \
  struct FftwOf<Real> {                                                                            \
    using Plan = prefix##_plan;                                                                    \
    using Number = prefix##_complex;                                                               \
    static constexpr auto init = &prefix##_mpi_init;                                               \
    static constexpr auto localSize = &prefix##_mpi_local_size_many_transposed;                    \
    static constexpr auto plan = &prefix##_mpi_plan_many_dft;                                      \
    static constexpr auto sines = &prefix##_plan_r2r_2d;                                           \
    static constexpr auto execute = &prefix##_execute;                                             \
    static constexpr auto destroy = &prefix##_destroy_plan;                                        \
    static constexpr auto allocate = &prefix##_alloc_complex;                                      \
    static constexpr auto free = &prefix##_free;                                                   \
  }
SILICON_FFTW_OF(double, fftw);
SILICON_FFTW_OF(float, fftwf);
#undef SILICON_FFTW_OF

} // namespace silicon

#endif
