// Bands of the crystal -d2/dx2 + 10 sin 2x at many k points, in plane waves exp(i (k + 2m) x). The
// processes form groups of two, which share the k points; inside a group the plane waves are split.
// At k = 0 and 1 the bands are characteristic values of Mathieu's.
#include <ves.hpp>
#include <ves_groups.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <stdexcept>

using Complex = std::complex<double>;
constexpr int cutoff = 12, waves = 2 * cutoff + 1, bands = 3, points = 21;
constexpr double firstExact[bands] = {-5.800046020852, 2.099460445487, 7.449109739529},
                 lastExact[bands] = {-5.790080598638, 1.858187541548, 9.236327713694};

struct Hamiltonian {
  MPI_Comm comm;
  int rank, size, first, n; // the plane waves first to first + n - 1 are here
  double k = 0;

  explicit Hamiltonian(MPI_Comm group)
      : comm(group), rank(ves::rankIn(group)), size(ves::sizeOf(group)), first(waves * rank / size),
        n(waves * (rank + 1) / size - first) {}
  void operator()(ves::View<const Complex> x, ves::View<Complex> y) const {
    const int other = size == 2 ? 1 - rank : MPI_PROC_NULL;
    for (int j = 0; j < x.cols(); ++j) {
      Complex next = 0;
      MPI_Sendrecv(rank == 0 ? &x(n - 1, j) : &x(0, j), 1, MPI_C_DOUBLE_COMPLEX, other, 0, &next, 1,
                   MPI_C_DOUBLE_COMPLEX, other, 0, comm, MPI_STATUS_IGNORE);
      for (int i = 0; i < n; ++i) {
        const Complex below = i > 0 ? x(i - 1, j) : rank == 1 ? next : 0;
        const Complex above = i + 1 < n ? x(i + 1, j) : rank == 0 ? next : 0;
        const double wave = k + 2 * (first + i - cutoff);
        y(i, j) = wave * wave * x(i, j) + Complex(0, 5) * (above - below);
      }
    }
  }
};

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  const int processes = ves::sizeOf(MPI_COMM_WORLD);
  ves::GroupOptions options;
  options.groups = (processes + 1) / 2;
  options.progress = &std::cerr;
  options.name = "k points";
  const ves::Groups groups(MPI_COMM_WORLD, points, options);

  Hamiltonian hamiltonian(groups.comm());
  const ves::Operator<Complex> H(std::ref(hamiltonian));
  const ves::Block<Complex> X(hamiltonian.n, bands, groups.comm());
  fillRandom(X);
  ves::Solver<Complex> solver;
  const auto energies = groups.run([&](int point) { // each from the bands of its group's last one
    hamiltonian.k = static_cast<double>(point) / (points - 1);
    const auto found = solver.solve(H, X);
    if (!found.isConverged()) throw std::runtime_error("the bands did not converge");
    return found.values;
  }); // of all points in their order, on all processes

  double error = 0;
  for (std::size_t j = 0; j < bands; ++j)
    error = std::max({error, std::fabs(energies.front()[j] - firstExact[j]),
                      std::fabs(energies.back()[j] - lastExact[j])});
  for (std::size_t p = 0; p < points && ves::rankIn(MPI_COMM_WORLD) == 0; ++p)
    std::printf("k = %.2f  %10.6f %10.6f %10.6f\n", static_cast<double>(p) / (points - 1),
                energies[p][0], energies[p][1], energies[p][2]);
  MPI_Finalize(); // what is destroyed behind it leaves MPI alone
  return error < 1e-9 ? 0 : 1;
}
