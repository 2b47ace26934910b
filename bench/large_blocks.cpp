// Blocks of single precision that fill the memory of a machine, with known results:
//   large_blocks basis ROWS COLUMNS   orthonormalizes a block
//   large_blocks run ROWS PAIRS       the lowest pairs of a diagonal matrix by LOBPCG, below 20
// Ends with 1 where a result is wrong.
#include "data/vector_dense.h"
#include "orthogonalizer/cholesky_qr.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <ves.hpp>

namespace {

using Block = Ves::VectorDense<float>;

/// What is said of sums over so many rows in single precision.
constexpr double orthonormal = 1e-3, threshold = 1e-2;

double Entries(int rows, int columns) {
  return static_cast<double>(rows) * columns;
}

/// A number from -1 to 1.
float Hashed(std::uint64_t row, std::uint64_t column) {
  std::uint64_t v = (row * 1000003 + column) * 0x9e3779b97f4a7c15;
  v = (v ^ (v >> 32)) * 0xbf58476d1ce4e5b9;
  return static_cast<float>(static_cast<double>(v >> 40) / 8388608.0 - 1.0);
}

bool OrthonormalizesBasis(int rows, int columns) {
  Block basis(MPI_COMM_WORLD, MPI_COMM_SELF, rows, columns, rows);
  if (basis.AllocateMem() != VES_GOOD) return false;
  for (int j = 0; j < columns; ++j)
    for (int i = 0; i < rows; ++i)
      basis(i, j) = Hashed(static_cast<std::uint64_t>(i), static_cast<std::uint64_t>(j));
  const VesMatrixEmpty absent;
  int rank = 0;
  double error = 1.0;
  Ves::CholeskyQR<float> orthogonalizer;
  const VesReturnCode code =
      orthogonalizer.Run(basis, basis, absent, rank, true, 2, orthonormal * 1e-3);
  if (basis.CheckOrthogonality(basis, error, true, true) != VES_GOOD) return false;
  std::printf("%.3g entries in a block, rank %d of %d, orthogonality error %.2g\n",
              Entries(rows, columns), rank, columns, error);
  return code == VES_GOOD && rank == columns && error < orthonormal;
}

/// diag(1, 2, ..., pairs, and then from 20 to 120).
float Diagonal(int row, int pairs) {
  return row < pairs ? static_cast<float>(row + 1)
                     : 20.0F + static_cast<float>(row % 1024) / 10.24F;
}

bool FindsPairs(int rows, int pairs) {
  const ves::Operator<float> A([&](ves::View<const float> x, ves::View<float> y) {
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < x.rows(); ++i)
        y(i, j) = Diagonal(i, pairs) * x(i, j);
  });
  ves::Options options;
  options.threshold = threshold;
  options.maxOrthoIter = 3;
  std::size_t bytes = 0;
  ves::check(VesSolverMemory(ves::makeSolver<float>(VES_LOBPCG).get(), rows, pairs, false, &bytes),
             "VesSolverMemory");
  const auto solution = ves::solve(A, rows, pairs, options);
  const ves::PairErrors errors = ves::checkEigenpairs(A, {}, solution.vectors, solution.values);
  double error = 0.0;
  for (int j = 0; j < pairs; ++j)
    error = std::max(error,
                     std::abs(static_cast<double>(solution.values.at(std::size_t(j))) - (j + 1.0)));
  std::printf("%.3g entries in a run of %d iterations (reason %d), %d of %d pairs, residual %.2g, "
              "orthogonality error %.2g, error of values %.2g\n",
              static_cast<double>(bytes) / sizeof(float), solution.iterations, solution.reason,
              solution.converged, pairs, errors.residual, errors.orthoError, error);
  return solution.isConverged() && errors.residual < 2 * threshold &&
         errors.orthoError < orthonormal && error < threshold;
}

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  const std::string what = argc == 4 ? argv[1] : "";
  bool isRight = false;
  if (what != "basis" && what != "run")
    std::fprintf(stderr, "large_blocks basis ROWS COLUMNS | run ROWS PAIRS\n");
  else
    try {
      const int rows = std::stoi(argv[2]), columns = std::stoi(argv[3]);
      isRight = what == "basis" ? OrthonormalizesBasis(rows, columns) : FindsPairs(rows, columns);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "large_blocks: %s\n", error.what());
    }
  MPI_Finalize();
  return isRight ? EXIT_SUCCESS : EXIT_FAILURE;
}
