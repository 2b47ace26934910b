// Rates of the operations on blocks, at the shapes of the solvers: n rows, k columns, bases of 3 k.
// Counters: real operations a second for products, bytes a second for passes over memory.
#include "data/vector_dense.h"
#include "eigensolver/lapack_diag.h"

#include <benchmark/benchmark.h>
#include <mpi.h>

#include <complex>

namespace {

using Ves::VectorDense;

template <typename Scalar>
class Block : public VectorDense<Scalar> {
public:
  Block(int rows, int cols) : VectorDense<Scalar>(MPI_COMM_SELF, MPI_COMM_SELF, rows, cols, rows) {
    this->AllocateMem();
    this->Set2Random(1);
  }
};

template <typename Scalar>
double OperationsOf(double products) {
  return (sizeof(Scalar) > sizeof(Ves::RealType<Scalar>) ? 8 : 2) * products;
}

void CountOperations(benchmark::State& state, double operations) {
  state.counters["flops"] =
      benchmark::Counter(operations, benchmark::Counter::kIsIterationInvariantRate);
}

void CountBytes(benchmark::State& state, double bytes) {
  state.counters["bytes"] =
      benchmark::Counter(bytes, benchmark::Counter::kIsIterationInvariantRate);
}

int Rows(const benchmark::State& state) {
  return static_cast<int>(state.range(0));
}
int Cols(const benchmark::State& state) {
  return static_cast<int>(state.range(1));
}

/// X' = V C, V of 3 k columns.
template <typename Scalar>
void Rotation(benchmark::State& state) {
  const int n = Rows(state), k = Cols(state);
  const Block<Scalar> basis(n, 3 * k), coefficients(3 * k, k);
  Block<Scalar> target(n, k);
  for (auto _ : state)
    target.Gemm(basis, coefficients);
  CountOperations(state, OperationsOf<Scalar>(3.0 * n * k * k));
}

/// V^H A R, V of 3 k columns.
template <typename Scalar>
void Projection(benchmark::State& state) {
  const int n = Rows(state), k = Cols(state);
  const Block<Scalar> basis(n, 3 * k), images(n, k);
  Block<Scalar> target(3 * k, k);
  for (auto _ : state)
    target.InnerProduct(basis, images, false);
  CountOperations(state, OperationsOf<Scalar>(3.0 * n * k * k));
}

template <typename Scalar>
void Gram(benchmark::State& state) {
  const int n = Rows(state), k = Cols(state);
  const Block<Scalar> block(n, k);
  Block<Scalar> target(k, k);
  for (auto _ : state)
    target.InnerProduct(block, block, false);
  CountOperations(state, OperationsOf<Scalar>(0.5 * n * k * k));
}

template <typename Scalar>
void TriangularSolve(benchmark::State& state) {
  const int n = Rows(state), k = Cols(state);
  Block<Scalar> block(n, k), factor(k, k);
  factor.Set2Zero(); // whose diagonal counts as one
  for (auto _ : state)
    block.TriangularSolve(factor, 'R', 'U', 'N', 'U');
  CountOperations(state, OperationsOf<Scalar>(0.5 * n * k * k));
}

/// R = A X - B X diag(D).
template <typename Scalar>
void Residual(benchmark::State& state) {
  const int n = Rows(state), k = Cols(state);
  const Block<Scalar> images(n, k), block(n, k), values(k, 1);
  Block<Scalar> target(n, k);
  for (auto _ : state)
    target.ScaleAdd(images, block, values, -1);
  CountBytes(state, 3.0 * n * k * sizeof(Scalar));
}

template <typename Scalar>
void Norms(benchmark::State& state) {
  const int n = Rows(state), k = Cols(state);
  const Block<Scalar> block(n, k);
  Block<Scalar> norms(k, 1);
  for (auto _ : state)
    norms.Norm(block, false);
  CountBytes(state, 1.0 * n * k * sizeof(Scalar));
}

template <typename Scalar>
void Copy(benchmark::State& state) {
  const int n = Rows(state), k = Cols(state);
  const Block<Scalar> block(n, k);
  Block<Scalar> target(n, k);
  for (auto _ : state)
    target.CopyData(block);
  CountBytes(state, 2.0 * n * k * sizeof(Scalar));
}

/// Of the projected problem, of order 3 k.
template <typename Scalar>
void Eigendecomposition(benchmark::State& state) {
  const int order = 3 * Cols(state);
  Block<Scalar> matrix(order, order), start(order, order), values(order, 1);
  Ves::LapackDiag<Scalar> solver;
  int info = 0;
  for (auto _ : state) {
    matrix.CopyData(start);
    solver.RunEvd(matrix, values, info);
  }
}

void Shapes(benchmark::internal::Benchmark* kernel) {
  for (const auto& [n, k] : {std::pair{6057, 32}, {6057, 128}, {64000, 8}, {64000, 20}})
    kernel->Args({n, k});
  kernel->Unit(benchmark::kMillisecond);
}

#define VES_BENCHMARK(kernel)                                                                      \
  BENCHMARK_TEMPLATE(kernel, double)->Apply(Shapes);                                               \
  BENCHMARK_TEMPLATE(kernel, std::complex<double>)->Apply(Shapes)
VES_BENCHMARK(Rotation);
VES_BENCHMARK(Projection);
VES_BENCHMARK(Gram);
VES_BENCHMARK(TriangularSolve);
VES_BENCHMARK(Residual);
VES_BENCHMARK(Norms);
VES_BENCHMARK(Copy);
VES_BENCHMARK(Eigendecomposition);

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  MPI_Finalize();
}
