#include "hamiltonian.h"
#include "large_problem_of.h"
#include "plane_waves.h"

namespace VesBench {

namespace {

template <typename Real>
class PlaneWaves {
public:
  using Number = std::complex<Real>;
  static constexpr bool isComplex = true, isGeneralized = false;

  PlaneWaves(double cutoff, MPI_Comm comm)
      : crystal(silicon::Crystal::Supercell(2)), basis(crystal, {0.1, 0.07, 0.03}, cutoff, comm),
        hamiltonian(crystal, basis, comm) {
    int local = basis.LocalSize(), sum = 0;
    MPI_Scan(&local, &sum, 1, MPI_INT, MPI_SUM, comm);
    first = sum - local;
  }

  int LocalRows() const { return basis.LocalSize(); }
  int FirstRow() const { return first; }
  long long Order() const { return basis.Size(); }

  void ApplyA(const Number* x, Number* y, int nCols, int ld) { hamiltonian.Apply(x, y, nCols, ld); }
  void ApplyB(const Number*, Number*, int, int) {}
  void ApplyT(const Number* x, Number* y, int nCols, int ld) {
    hamiltonian.Precondition(x, y, nCols, ld);
  }
  double Weight(int localRow) const {
    return 1 / (1 + basis.Local()[static_cast<std::size_t>(localRow)].kinetic);
  }
  std::vector<double> Exact(int) const { return {}; }

private:
  silicon::Crystal crystal;
  silicon::PlaneWaves basis;
  silicon::Hamiltonian<Real> hamiltonian;
  int first = 0;
};

} // namespace

std::unique_ptr<LargeProblem> MakePlaneWaves(double cutoff, MPI_Comm comm) {
  return std::make_unique<LargeProblemOf<PlaneWaves>>(cutoff, comm);
}

} // namespace VesBench
