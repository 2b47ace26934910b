#include "hamiltonian.h"
#include "large_problem.h"
#include "plane_waves.h"

namespace VesBench {

namespace {

using silicon::Complex;

class PlaneWavesProblem : public LargeProblem {
public:
  PlaneWavesProblem(double cutoff, MPI_Comm comm)
      : crystal(silicon::Crystal::Supercell(2)), basis(crystal, {0.1, 0.07, 0.03}, cutoff, comm),
        hamiltonian(crystal, basis, comm) {
    int local = basis.LocalSize(), sum = 0;
    MPI_Scan(&local, &sum, 1, MPI_INT, MPI_SUM, comm);
    first = sum - local;
  }

  int LocalRows() const override { return basis.LocalSize(); }
  int FirstRow() const override { return first; }
  long long Order() const override { return basis.Size(); }
  bool IsComplex() const override { return true; }

  void ApplyA(const void* x, void* y, int nCols, int ld) override {
    hamiltonian.Apply(static_cast<const Complex*>(x), static_cast<Complex*>(y), nCols, ld);
  }
  void ApplyT(const void* x, void* y, int nCols, int ld) override {
    hamiltonian.Precondition(static_cast<const Complex*>(x), static_cast<Complex*>(y), nCols, ld);
  }
  double Weight(int localRow) const override {
    return 1 / (1 + basis.Local()[static_cast<std::size_t>(localRow)].kinetic);
  }

private:
  silicon::Crystal crystal;
  silicon::PlaneWaves basis;
  silicon::Hamiltonian hamiltonian;
  int first = 0;
};

} // namespace

std::unique_ptr<LargeProblem> MakePlaneWaves(double cutoff, MPI_Comm comm) {
  return std::make_unique<PlaneWavesProblem>(cutoff, comm);
}

} // namespace VesBench
