#include "hamiltonian.h"
#include "large_problem_of.h"
#include "plane_waves.h"

#include <omp.h>

namespace VesBench {

namespace {

template <typename Real>
class PlaneWaves {
public:
  using Number = std::complex<Real>;
  static constexpr bool isComplex = true, isGeneralized = false;

  PlaneWaves(double cutoff, MPI_Comm comm)
      : crystal(silicon::Crystal::Supercell(2)), basis(crystal, {0.1, 0.07, 0.03}, cutoff, comm) {
    int size = 1;
    MPI_Comm_size(comm, &size);
    const int threads = size == 1 ? omp_get_max_threads() : 1;
    for (int i = 0; i < threads; ++i)
      hamiltonians.push_back(std::make_unique<silicon::Hamiltonian<Real>>(crystal, basis, comm));
    int local = basis.LocalSize(), sum = 0;
    MPI_Scan(&local, &sum, 1, MPI_INT, MPI_SUM, comm);
    first = sum - local;
  }

  int LocalRows() const { return basis.LocalSize(); }
  int FirstRow() const { return first; }
  long long Order() const { return basis.Size(); }

  void ApplyA(const Number* x, Number* y, int nCols, int ld) {
    const int shares = static_cast<int>(hamiltonians.size());
#pragma omp parallel for
    for (int i = 0; i < shares; ++i) {
      const int begin = nCols * i / shares, end = nCols * (i + 1) / shares;
      const auto offset = static_cast<std::ptrdiff_t>(begin) * ld;
      hamiltonians[static_cast<std::size_t>(i)]->Apply(x + offset, y + offset, end - begin, ld);
    }
  }
  void ApplyB(const Number*, Number*, int, int) {}
  void ApplyT(const Number* x, Number* y, int nCols, int ld) {
    hamiltonians.front()->Precondition(x, y, nCols, ld);
  }
  double Weight(int localRow) const {
    return 1 / (1 + basis.Local()[static_cast<std::size_t>(localRow)].kinetic);
  }
  std::vector<double> Exact(int) const {
    return {};
  }

private:
  silicon::Crystal crystal;
  silicon::PlaneWaves basis;
  /// One for each thread, which have room for transforms of their own; on several processes one,
  /// whose transforms are of them all.
  std::vector<std::unique_ptr<silicon::Hamiltonian<Real>>> hamiltonians;
  int first = 0;
};

} // namespace

std::unique_ptr<LargeProblem> MakePlaneWaves(double cutoff, MPI_Comm comm) {
  return std::make_unique<LargeProblemOf<PlaneWaves>>(cutoff, comm);
}

} // namespace VesBench
