#ifndef SILICON_HAMILTONIAN_H
#define SILICON_HAMILTONIAN_H

#include "plane_waves.h"
#include "slab_fft.h"

#include <ves_groups.hpp>

#include <complex>
#include <memory>
#include <vector>

namespace silicon {

/// The Hamiltonian H = |k + G|^2 delta + V(G - G') and its preconditioner in a basis of plane
/// waves. Blocks are the local rows of the basis, column-major. Construction and destruction are
/// collective over comm; Apply over the processes that hold plane waves, and only those may call
/// it with an effect. Real is double or float.
template <typename Real>
class Hamiltonian {
public:
  using Number = std::complex<Real>;

  Hamiltonian(const Crystal& crystal, const PlaneWaves& basis, MPI_Comm comm);

  /// y = H x.
  void Apply(const Number* x, Number* y, int nCols, int ld);

  /// y = T x, T = 1 / (|k + G|^2 + 1 Ry): nearly the inverse of H for high plane waves, nearly
  /// constant over the few Ry around the levels looked for.
  void Precondition(const Number* x, Number* y, int nCols, int ld) const;

  /// Columns that H was applied to on this process.
  long AppliedColumns() const { return appliedColumns_; }

private:
  void SetPotential(const Crystal& crystal, const PlaneWaves& basis);
  void ApplyBatch(const Number* x, Number* y, int nCols, int ld);

  ves::Communicator group_; ///< the processes with plane waves: the FFT runs on them alone
  std::unique_ptr<SlabFft<Real>> fft_;
  std::vector<Real> kinetic_;            ///< per local row, Ry
  std::vector<std::ptrdiff_t> position_; ///< per local row, its place on the local FFT grid
  long appliedColumns_ = 0;
  std::vector<Real> potential_; ///< V(r) / (number of grid points) on local points
};

extern template class Hamiltonian<double>;
extern template class Hamiltonian<float>;

} // namespace silicon

#endif
