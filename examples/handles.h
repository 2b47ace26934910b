#ifndef EXAMPLES_HANDLES_H
#define EXAMPLES_HANDLES_H

#include <ves.h>

#include <complex>
#include <cstdio>
#include <random>
#include <type_traits>
#include <vector>

/// Ends the program when a call was refused.
inline void Check(VesReturnCode code) {
  if (code == VES_GOOD) return;
  std::fprintf(stderr, "refused: %s\n", VesErrorString(code));
  MPI_Abort(MPI_COMM_WORLD, 1);
}

template <typename Scalar>
constexpr VesScalarType scalarType =
    std::is_same_v<Scalar, double> ? VES_DOUBLE : VES_COMPLEX_DOUBLE;

/// Owns an operator; its data stay the caller's.
template <typename Scalar>
struct Operator {
  VesMatrix handle = nullptr;

  Operator(void* data, VesShellMatVec routine) {
    Check(VesMatrixCreate(&handle, scalarType<Scalar>, VES_MATRIX_SHELL));
    Check(VesMatrixSetShellMatVec(handle, data, routine));
  }
  ~Operator() { VesMatrixDestroy(handle); }
  Operator(const Operator&) = delete;
  Operator& operator=(const Operator&) = delete;
};

/// Owns a block and its values, rows x columns on this process.
template <typename Scalar>
struct Block {
  VesVector handle = nullptr;
  int rows;
  std::vector<Scalar> values;

  Block(int nRows, int nCols, MPI_Comm comm = MPI_COMM_WORLD)
      : rows(nRows), values(static_cast<std::size_t>(nRows) * static_cast<std::size_t>(nCols)) {
    Check(VesVectorCreate(&handle, scalarType<Scalar>, VES_VECTOR_DENSE));
    Check(VesVectorSetComm(handle, 0, comm));
    Check(VesVectorSetDim(handle, nRows, nCols));
    if (nRows > 0) Check(VesVectorDenseSetValues(handle, values.data(), nRows));
  }
  ~Block() { VesVectorDestroy(handle); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  Scalar* Column(int j) { return values.data() + static_cast<std::ptrdiff_t>(j) * rows; }
  double Value(int j) const { return std::real(values[static_cast<std::size_t>(j)]); }
  void Randomize(unsigned seed) {
    std::mt19937 generator(seed);
    for (Scalar& value : values)
      value = std::uniform_real_distribution<>(-1, 1)(generator);
  }
};

/// Owns a solver.
struct Solver {
  VesSolver handle = nullptr;

  Solver(VesScalarType type, VesSolverType kind) { Check(VesSolverCreate(&handle, type, kind)); }
  ~Solver() { VesSolverDestroy(handle); }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;
};

#endif
