// One timed run of a solver on a large problem; prints a line of JSON.
//   solve PROBLEM SIZE K [name=value ...]
// PROBLEM and SIZE: laplacian (points an axis), elements (points an axis), plane-waves (cut-off, Ry).
// Names: solver (lobpcg, lobpcg-batch, ppcg), block (batch limit or sub-block), lock (factor),
// passes, svd, detector, threshold, maxiter, precond (0 or 1).
#include "blas_meter.h"
#include "large_problem.h"
#include "step_profile.h"

#include <ves.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

using VesBench::LargeProblem;

struct Options {
  std::string problem, solver = "lobpcg";
  double size = 0.0;
  int k = 0;
  std::map<std::string, double> numbers;

  double Number(const std::string& name, double otherwise) const {
    const auto found = numbers.find(name);
    return found == numbers.end() ? otherwise : found->second;
  }
};

Options Read(int argc, char** argv) {
  if (argc < 4) throw std::runtime_error("usage: solve PROBLEM SIZE K [name=value ...]");
  Options options;
  options.problem = argv[1];
  options.size = std::atof(argv[2]);
  options.k = std::atoi(argv[3]);
  for (int i = 4; i < argc; ++i) {
    const std::string text = argv[i];
    const std::size_t at = text.find('=');
    if (at == std::string::npos) throw std::runtime_error("no value in " + text);
    if (text.substr(0, at) == "solver")
      options.solver = text.substr(at + 1);
    else
      options.numbers[text.substr(0, at)] = std::atof(text.c_str() + at + 1);
  }
  return options;
}

void Good(VesReturnCode code, const char* what) {
  if (code != VES_GOOD) throw std::runtime_error(std::string(what) + ": " + VesErrorString(code));
}

/// What the library is given for an operator.
struct Call {
  LargeProblem* problem;
  void (LargeProblem::*apply)(const void*, void*, int, int);
  double seconds = 0.0;
};

void Shell(void* data, void* x, void* y, int, int nCols, int ld) {
  Call& call = *static_cast<Call*>(data);
  const double start = MPI_Wtime();
  (call.problem->*call.apply)(x, y, nCols, ld);
  call.seconds += MPI_Wtime() - start;
}

/// A number in (-1, 1) from the numbers of row, column and part, whatever the distribution.
double Hashed(std::uint64_t row, std::uint64_t column, std::uint64_t part) {
  std::uint64_t v = (row * 1000003 + column) * 2 + part + 0x9e3779b97f4a7c15;
  for (int i = 0; i < 2; ++i) {
    v = (v ^ (v >> 30)) * 0xbf58476d1ce4e5b9;
    v = (v ^ (v >> 27)) * 0x94d049bb133111eb;
  }
  return static_cast<double>(v >> 11) / 4503599627370496.0 - 1.0;
}

template <typename Scalar>
std::vector<Scalar> Guess(const LargeProblem& problem, int k) {
  const int rows = problem.LocalRows();
  std::vector<Scalar> X;
  X.reserve(static_cast<std::size_t>(rows) * static_cast<std::size_t>(k));
  for (int j = 0; j < k; ++j)
    for (int i = 0; i < rows; ++i) {
      const auto row = static_cast<std::uint64_t>(problem.FirstRow() + i);
      const auto column = static_cast<std::uint64_t>(j);
      double parts[2] = {Hashed(row, column, 0), Hashed(row, column, 1)};
      Scalar value{};
      std::copy_n(parts, sizeof(Scalar) / sizeof(double), reinterpret_cast<double*>(&value));
      X.push_back(value * problem.Weight(i));
    }
  return X;
}

VesSolver MakeSolver(const Options& options, VesScalarType scalar, bool generalized) {
  const std::map<std::string, VesSolverType> types{
      {"lobpcg", VES_LOBPCG}, {"lobpcg-batch", VES_LOBPCG_BATCH}, {"ppcg", VES_PPCG}};
  const auto type = types.find(options.solver);
  if (type == types.end()) throw std::runtime_error("unknown solver " + options.solver);
  VesSolver solver = nullptr;
  Good(VesSolverCreate(&solver, scalar, type->second), "solver");
  VesSolverSetProblemType(solver, generalized ? VES_PROBLEM_GENERALIZED : VES_PROBLEM_STANDARD);
  Good(VesSolverSetMaxIter(solver, int(options.Number("maxiter", 3000))), "maxiter");
  Good(VesSolverSetThreshold(solver, options.Number("threshold", 1e-6)), "threshold");
  Good(VesSolverSetMaxOrthoIter(solver, int(options.Number("passes", 1))), "passes");
  Good(
      VesSetOrthogonalizerType(solver, options.Number("svd", 0) > 0 ? VES_SVD_QR : VES_CHOLESKY_QR),
      "orthogonalizer");
  Good(VesSetConvergeDetectorType(
           solver, static_cast<VesConvergeDetectorType>(int(options.Number("detector", 0)))),
       "detector");
  if (options.numbers.count("lock") > 0)
    Good(VesSolverSetLockFactor(solver, options.Number("lock", 0)), "lock");
  if (options.numbers.count("block") > 0) {
    const int block = int(options.Number("block", 0));
    Good(type->second == VES_PPCG ? VesSolverSetPPCGBatch(solver, block)
                                  : VesSolverSetBatchLimit(solver, block),
         "block");
  }
  return solver;
}

double PeakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

template <typename Scalar>
VesMatrix MakeMatrix(VesScalarType scalar, Call& call) {
  VesMatrix matrix = nullptr;
  Good(VesMatrixCreate(&matrix, scalar, VES_MATRIX_SHELL), "matrix");
  Good(VesMatrixSetShellMatVec(matrix, &call, Shell), "routine");
  return matrix;
}

template <typename Scalar>
VesVector MakeVector(VesScalarType scalar, MPI_Comm comm, int rows, int cols, Scalar* values) {
  VesVector vector = nullptr;
  Good(VesVectorCreate(&vector, scalar, VES_VECTOR_DENSE), "vector");
  Good(VesVectorSetComm(vector, 0, comm), "communicator");
  Good(VesVectorSetDim(vector, rows, cols), "dimensions");
  Good(VesVectorDenseSetValues(vector, values, std::max(rows, 1)), "values");
  return vector;
}

/// {"Step": seconds, ...} of the steps that take a thousandth of the run or more.
std::string StepsAsJson(double total) {
  std::string text = "{";
  for (const VesBench::StepTime& step : VesBench::StepTimes()) {
    if (step.seconds < 1e-3 * total) continue;
    text += (text.size() > 1 ? ", \"" : "\"") + step.name + "\": " + std::to_string(step.seconds);
  }
  return text + "}";
}

template <typename Scalar>
int Run(const Options& options, LargeProblem& problem, VesScalarType scalar, MPI_Comm comm) {
  const int k = options.k, rows = problem.LocalRows();
  Call a{&problem, &LargeProblem::ApplyA}, b{&problem, &LargeProblem::ApplyB},
      t{&problem, &LargeProblem::ApplyT};
  VesMatrix A = MakeMatrix<Scalar>(scalar, a), B = nullptr, T = nullptr;
  if (problem.IsGeneralized()) B = MakeMatrix<Scalar>(scalar, b);
  if (options.Number("precond", 1) > 0) T = MakeMatrix<Scalar>(scalar, t);
  std::vector<Scalar> X = Guess<Scalar>(problem, k), D(static_cast<std::size_t>(k));
  VesVector x = MakeVector(scalar, comm, rows, k, X.data());
  VesVector d = MakeVector(scalar, comm, k, 1, D.data());
  VesSolver solver = MakeSolver(options, scalar, B != nullptr);

  const double before = PeakMegabytes();
  VesBench::ResetBlasMeter();
  MPI_Barrier(comm);
  Good(VesRunSolver(solver, A, B, T, x, d), "run");
  const double peak = PeakMegabytes() - before;
  const double secondsA = a.seconds, secondsB = b.seconds, secondsT = t.seconds;
  VesSolverStats stats{};
  VesGetSolverStats(solver, &stats);
  const std::string steps = StepsAsJson(stats.secondsTotal);
  const VesBench::BlasCost blas = VesBench::TallProducts(3 * k);

  VesSolverReason reason = VES_REASON_NONE;
  int iter = 0, nConv = 0;
  std::size_t forecast = 0;
  double residual = 0.0, ortho = 0.0, error = 0.0;
  VesGetSolverReason(solver, &reason);
  VesGetSolverIter(solver, &iter);
  VesGetSolverConv(solver, &nConv);
  VesSolverMemory(solver, rows, k, B != nullptr, &forecast);
  Good(VesCheckEigenpairs(A, B, x, d, &residual, &ortho), "check");
  const std::vector<double> exact = problem.Exact(k);
  for (std::size_t j = 0; j < exact.size(); ++j)
    error = std::max(error, std::abs(std::real(D[j]) - exact[j]));

  int rank = 0, nProcesses = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &nProcesses);
  const double alone = stats.secondsOperators + stats.secondsDense + blas.alone;
  if (rank == 0)
    std::printf("{\"problem\": \"%s\", \"n\": %lld, \"k\": %d, \"solver\": \"%s\", \"block\": %g, "
                "\"lock\": %g, \"processes\": %d, \"seconds\": %.4f, \"iterations\": %d, "
                "\"converged\": %d, \"reason\": \"%s\", \"columnsA\": %lld, \"secondsA\": %.4f, "
                "\"secondsB\": %.4f, \"secondsT\": %.4f, \"secondsDense\": %.4f, "
                "\"secondsProducts\": %.4f, "
                "\"secondsProductsAlone\": %.4f, \"gflop\": %.2f, \"overhead\": %.3f, "
                "\"reductions\": %lld, "
                "\"megabytesReduced\": %.3f, \"residual\": %.3g, \"ortho\": %.3g, \"error\": %.3g, "
                "\"megabytesForecast\": %.2f, \"megabytesPeak\": %.2f, \"steps\": %s}\n",
                options.problem.c_str(), problem.Order(), k, options.solver.c_str(),
                options.Number("block", 0), options.Number("lock", 0), nProcesses,
                stats.secondsTotal, iter, nConv, VesReasonString(reason), stats.columnsA, secondsA,
                secondsB, secondsT, stats.secondsDense, blas.seconds, blas.alone, 1e-9 * blas.flops,
                stats.secondsTotal / alone, stats.reductions,
                1e-6 * static_cast<double>(stats.bytesReduced), residual, ortho, error,
                static_cast<double>(forecast) / 1048576, peak, steps.c_str());
  VesSolverDestroy(solver);
  for (VesVector vector : {x, d})
    VesVectorDestroy(vector);
  for (VesMatrix matrix : {A, B, T})
    if (matrix != nullptr) VesMatrixDestroy(matrix);
  return nConv == k ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int status = 2;
  try {
    const Options options = Read(argc, argv);
    const auto problem = VesBench::MakeLargeProblem(options.problem, options.size, MPI_COMM_WORLD);
    status = problem->IsComplex()
                 ? Run<std::complex<double>>(options, *problem, VES_COMPLEX_DOUBLE, MPI_COMM_WORLD)
                 : Run<double>(options, *problem, VES_DOUBLE, MPI_COMM_WORLD);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "solve: %s\n", error.what());
    MPI_Abort(MPI_COMM_WORLD, status);
  }
  MPI_Finalize();
  return status;
}
