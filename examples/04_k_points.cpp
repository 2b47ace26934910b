// Bands of the crystal -d2/dx2 + 10 sin 2x at many k points, in plane waves exp(i (k + 2m) x). The
// processes form groups of two, each with a communicator, with its share of the k points and with
// the plane waves split inside. At k = 0 and 1 the bands are characteristic values of Mathieu's.
#include <ves.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

using Complex = std::complex<double>;
constexpr int cutoff = 12, waves = 2 * cutoff + 1, bands = 3, points = 21;
constexpr double firstExact[bands] = {-5.800046020852, 2.099460445487, 7.449109739529},
                 lastExact[bands] = {-5.790080598638, 1.858187541548, 9.236327713694};

struct Group {
  MPI_Comm comm;
  int index, count, rank, size, first, n; // the plane waves first to first + n - 1 are here
  double k = 0;

  Group() {
    int process, processes;
    MPI_Comm_rank(MPI_COMM_WORLD, &process);
    MPI_Comm_size(MPI_COMM_WORLD, &processes);
    index = process / 2;
    count = (processes + 1) / 2;
    MPI_Comm_split(MPI_COMM_WORLD, index, process, &comm);
    MPI_Comm_rank(comm, &rank);
    MPI_Comm_size(comm, &size);
    first = waves * rank / size;
    n = waves * (rank + 1) / size - first;
  }
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
  Group group;
  const ves::Operator<Complex> H(std::cref(group));
  const ves::Block<Complex> X(group.n, bands, group.comm);
  fillRandom(X);
  ves::Solver<Complex> solver;
  double energies[points][bands] = {};
  int missing = 0;
  for (int p = group.index; p < points; p += group.count) { // each from the bands of its last one
    group.k = static_cast<double>(p) / (points - 1);
    const auto found = solver.solve(H, X);
    missing += bands - found.converged;
    for (int j = 0; j < bands; ++j) // one process speaks for the group
      energies[p][j] = group.rank == 0 ? found.values[static_cast<std::size_t>(j)] : 0;
  }
  MPI_Allreduce(MPI_IN_PLACE, energies, points * bands, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);

  double error = 0;
  for (int j = 0; j < bands; ++j)
    error = std::max({error, std::fabs(energies[0][j] - firstExact[j]),
                      std::fabs(energies[points - 1][j] - lastExact[j])});
  for (int p = 0; p < points && group.index == 0 && group.rank == 0; ++p)
    std::printf("k = %.2f  %10.6f %10.6f %10.6f\n", static_cast<double>(p) / (points - 1),
                energies[p][0], energies[p][1], energies[p][2]);
  MPI_Comm_free(&group.comm);
  MPI_Finalize();
  return missing == 0 && error < 1e-9 ? 0 : 1;
}
