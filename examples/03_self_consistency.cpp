// Eight charges in a harmonic trap that repel each other by 1 / sqrt(r^2 + 1), in one dimension. A
// step solves (-1/2 d2/dx2 + x^2/2 + v[density]) u = e u with the solver and the vectors of the
// step before, and mixes the new density into the old one.
#include "handles.h"

#include <algorithm>
#include <cmath>

constexpr int n = 160, orbitals = 4;
constexpr double length = 16, h = length / (n + 1), mixing = 0.7, threshold = 1e-7;

struct Trap {
  double potential[n], density[n];

  void SetPotential() {
    const auto place = [](int i) { return h * (i + 1) - length / 2; };
    for (int i = 0; i < n; ++i) {
      potential[i] = place(i) * place(i) / 2;
      for (int j = 0; j < n; ++j)
        potential[i] += h * density[j] / std::hypot(place(i) - place(j), 1.0);
    }
  }
  // Two charges per orbital. \return the largest change of the density before it is mixed
  double MixDensity(Block<double>& X) {
    double change = 0;
    for (int i = 0; i < n; ++i) {
      double now = 0;
      for (int j = 0; j < orbitals; ++j)
        now += 2 * X.Column(j)[i] * X.Column(j)[i] / h;
      change = std::max(change, std::fabs(now - density[i]));
      density[i] += mixing * (now - density[i]);
    }
    return change;
  }
};

static void Apply(void* data, void* xv, void* yv, int, int k, int ld) {
  const Trap& trap = *static_cast<Trap*>(data);
  for (int j = 0; j < k; ++j) {
    const double* x = static_cast<double*>(xv) + static_cast<long>(j) * ld;
    double* y = static_cast<double*>(yv) + static_cast<long>(j) * ld;
    for (int i = 0; i < n; ++i) {
      const double left = i > 0 ? x[i - 1] : 0, right = i + 1 < n ? x[i + 1] : 0;
      y[i] = (x[i] - left / 2 - right / 2) / (h * h) + trap.potential[i] * x[i];
    }
  }
}

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  Trap trap = {};
  const Operator<double> A(&trap, Apply);
  Block<double> X(n, orbitals), D(orbitals, 1);
  X.Randomize(1);
  const Solver solver(VES_DOUBLE, VES_LOBPCG);
  Check(VesSolverSetMaxIter(solver.handle, 1000));
  Check(VesSolverSetThreshold(solver.handle, threshold));

  VesSolverStats first = {}, last = {};
  double change = 1, residual, orthoError;
  std::puts("step   change  columns of A  energies");
  for (int step = 1; step <= 50 && change > 2 * threshold; ++step) {
    trap.SetPotential();
    Check(VesRunSolver(solver.handle, A.handle, nullptr, nullptr, X.handle, D.handle));
    Check(VesGetSolverStats(solver.handle, &last));
    if (step == 1) first = last;
    change = trap.MixDensity(X);
    std::printf("%4d  %.1e  %12lld  %.6f %.6f %.6f %.6f\n", step, change, last.columnsA, D.Value(0),
                D.Value(1), D.Value(2), D.Value(3));
  }
  // The orbitals have to solve the equation with the potential of their own density.
  trap.SetPotential();
  Check(VesCheckEigenpairs(A.handle, nullptr, X.handle, D.handle, &residual, &orthoError));
  std::printf("residual in their own potential: %.1e\n", residual);
  MPI_Finalize();
  return residual < 10 * threshold && 10 * last.columnsA < first.columnsA ? 0 : 1;
}
