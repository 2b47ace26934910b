// Eight charges in a harmonic trap that repel each other by 1 / sqrt(r^2 + 1), in one dimension. A
// step solves (-1/2 d2/dx2 + x^2/2 + v[density]) u = e u with the solver and the vectors of the
// step before, and mixes the new density into the old one.
#include <ves.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

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
  double MixDensity(const ves::Block<double>& X) {
    double change = 0;
    for (int i = 0; i < n; ++i) {
      double now = 0;
      for (int j = 0; j < orbitals; ++j)
        now += 2 * X(i, j) * X(i, j) / h;
      change = std::max(change, std::fabs(now - density[i]));
      density[i] += mixing * (now - density[i]);
    }
    return change;
  }
  void operator()(ves::View<const double> x, ves::View<double> y) const {
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < n; ++i) {
        const double left = i > 0 ? x(i - 1, j) : 0, right = i + 1 < n ? x(i + 1, j) : 0;
        y(i, j) = (x(i, j) - left / 2 - right / 2) / (h * h) + potential[i] * x(i, j);
      }
  }
};

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  Trap trap = {};
  const ves::Operator<double> A(std::cref(trap));
  const ves::Block<double> X(n, orbitals);
  fillRandom(X);
  ves::Options options;
  options.maxIter = 1000;
  options.threshold = threshold;
  ves::Solver<double> solver(options);

  ves::Outcome<double> found;
  long long first = 0;
  double change = 1;
  std::puts("step   change  columns of A  energies");
  for (int step = 1; step <= 50 && change > 2 * threshold; ++step) {
    trap.SetPotential();
    found = solver.solve(A, X);
    if (step == 1) first = found.stats.columnsA;
    change = trap.MixDensity(X);
    std::printf("%4d  %.1e  %12lld  %.6f %.6f %.6f %.6f\n", step, change, found.stats.columnsA,
                found.values[0], found.values[1], found.values[2], found.values[3]);
  }
  // The orbitals have to solve the equation with the potential of their own density.
  trap.SetPotential();
  const double residual = checkEigenpairs(A, {}, X, found.values).residual;
  std::printf("residual in their own potential: %.1e\n", residual);
  MPI_Finalize();
  return residual < 10 * threshold && 10 * found.stats.columnsA < first ? 0 : 1;
}
