// Times of the dense eigensolvers on one matrix as the solvers make them, with all vectors and with
// the lowest third, as lines of JSON: dense ORDER [ROUNDS]. The shortest time of the rounds counts.
#include "data/vector_dense.h"
#include "eigensolver/dense_eigensolver.h"
#include "interface/solver_base.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

namespace {

using Block = Ves::VectorDense<double>;

struct Kind {
  const char* name;
  VesDenseEigenSolverType type;
};
constexpr Kind kinds[] = {{"lapack", VES_LAPACK_DIAG},
                          {"lapack-lowest", VES_LAPACK_LOWEST_DIAG},
                          {"scalapack", VES_SCALAPACK_DIAG},
                          {"elpa", VES_ELPA_DIAG},
                          {"elpa-two-stage", VES_ELPA_TWO_STAGE_DIAG}};

/// V^H A V of V = [X P R]: Ritz values on the diagonal of the first third, nothing beside them.
void FillRayleighRitz(Block& matrix) {
  const int n = matrix.nCols, k = n / 3;
  std::minstd_rand generator(1);
  std::uniform_real_distribution<double> number(-0.5, 0.5);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i <= j; ++i)
      matrix(i, j) = i == j ? (j < k ? 1.0 * j / k : 6.0 + 10.0 * number(generator))
                            : (j < k ? 0.0 : 0.01 * number(generator));
}

/// \return the time of one decomposition, with the same matrix on all processes
double TimeOf(Ves::VesDenseEigenSolver& solver, const Block& start, int nVectors) {
  const int n = start.nCols;
  Block matrix(MPI_COMM_WORLD, MPI_COMM_SELF, n, n, n),
      values(MPI_COMM_WORLD, MPI_COMM_SELF, n, 1, n);
  matrix.AllocateMem();
  values.AllocateMem();
  matrix.CopyData(start);
  int info = 0;
  MPI_Barrier(MPI_COMM_WORLD);
  const double began = MPI_Wtime();
  solver.RunLowestEvd(matrix, values, nVectors, info);
  MPI_Barrier(MPI_COMM_WORLD);
  return info == 0 ? MPI_Wtime() - began : std::numeric_limits<double>::quiet_NaN();
}

void TimeKinds(int n, int rounds) {
  int rank = 0, p = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &p);
  Block start(MPI_COMM_WORLD, MPI_COMM_SELF, n, n, n);
  start.AllocateMem();
  FillRayleighRitz(start);
  VesSolver solver = nullptr;
  VesSolverCreate(&solver, VES_DOUBLE, VES_LOBPCG);
  constexpr double never = std::numeric_limits<double>::infinity();
  std::vector<double> whole(std::size(kinds), never), third = whole;
  for (int round = 0; round < rounds; ++round)
    for (std::size_t i = 0; i < whole.size(); ++i) {
      if (VesSetDenseEigenSolverType(solver, kinds[i].type) != VES_GOOD) continue; // not built in
      whole[i] = std::min(whole[i], TimeOf(*solver->DenseEigenSolver, start, n));
      third[i] = std::min(third[i], TimeOf(*solver->DenseEigenSolver, start, n / 3));
    }
  for (std::size_t i = 0; i < whole.size() && rank == 0; ++i)
    if (whole[i] < never)
      std::printf("{\"kind\": \"%s\", \"order\": %d, \"processes\": %d, \"whole\": %.6f, "
                  "\"third\": %.6f}\n",
                  kinds[i].name, n, p, whole[i], third[i]);
  VesSolverDestroy(solver);
}

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  const int order = argc > 1 ? std::atoi(argv[1]) : 0;
  if (order > 2) TimeKinds(order, argc > 2 ? std::atoi(argv[2]) : 1);
  MPI_Finalize();
  return order > 2 ? 0 : 2;
}
