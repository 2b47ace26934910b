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
#include <exception>
#include <fstream>
#include <iomanip>
#include <malloc.h>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
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

const std::string& KnownName(const std::string& name) {
  static const std::set<std::string> names{"block",    "lock",      "passes",  "svd",
                                           "detector", "threshold", "maxiter", "precond"};
  if (names.count(name) == 0) throw std::runtime_error("unknown name " + name);
  return name;
}

Options Read(int argc, char** argv) {
  if (argc < 4) throw std::runtime_error("usage: solve PROBLEM SIZE K [name=value ...]");
  Options options;
  options.problem = argv[1];
  options.size = std::stod(argv[2]);
  options.k = std::stoi(argv[3]);
  for (int i = 4; i < argc; ++i) {
    const std::string text = argv[i];
    const std::size_t at = text.find('=');
    if (at == std::string::npos) throw std::runtime_error("no value in " + text);
    const std::string name = text.substr(0, at), value = text.substr(at + 1);
    if (name == "solver")
      options.solver = value;
    else
      options.numbers[KnownName(name)] = std::stod(value);
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

/// A figure of this process: VmRSS is what it holds, VmHWM the most it has held.
double StatusMegabytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  double kilobytes = 0.0;
  while (status >> word)
    if (word == name + ":") status >> kilobytes;
  return kilobytes / 1024;
}

/// \return what the process holds; the most that it held is forgotten
double ResetPeak() {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;
  return StatusMegabytes("VmRSS");
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

/// One line of JSON.
class Record {
public:
  void Add(const std::string& name, const std::string& text) { AddRaw(name, '"' + text + '"'); }
  void Add(const std::string& name, double number) {
    std::ostringstream text;
    text << std::setprecision(6) << number;
    AddRaw(name, text.str());
  }
  void AddRaw(const std::string& name, const std::string& text) {
    line += (line.empty() ? "{\"" : ", \"") + name + "\": " + text;
  }
  std::string Line() const { return line + "}"; }

private:
  std::string line;
};

/// The handles of a run, with storage for its blocks.
template <typename Scalar>
struct Handles {
  Handles(const Options& options, LargeProblem& problem, VesScalarType scalar, MPI_Comm comm)
      : a{&problem, &LargeProblem::ApplyA}, b{&problem, &LargeProblem::ApplyB},
        t{&problem, &LargeProblem::ApplyT}, X(Guess<Scalar>(problem, options.k)),
        D(static_cast<std::size_t>(options.k)) {
    A = MakeMatrix<Scalar>(scalar, a);
    if (problem.IsGeneralized()) B = MakeMatrix<Scalar>(scalar, b);
    if (options.Number("precond", 1) > 0) T = MakeMatrix<Scalar>(scalar, t);
    x = MakeVector(scalar, comm, problem.LocalRows(), options.k, X.data());
    d = MakeVector(scalar, comm, options.k, 1, D.data());
    solver = MakeSolver(options, scalar, B != nullptr);
  }
  Handles(const Handles&) = delete;
  Handles& operator=(const Handles&) = delete;
  ~Handles() {
    VesSolverDestroy(solver);
    for (VesVector vector : {x, d})
      VesVectorDestroy(vector);
    for (VesMatrix matrix : {A, B, T})
      VesMatrixDestroy(matrix);
  }

  Call a, b, t;
  std::vector<Scalar> X, D;
  VesMatrix A = nullptr, B = nullptr, T = nullptr;
  VesVector x = nullptr, d = nullptr;
  VesSolver solver = nullptr;
};

/// Where the time of the run went: call-backs, small dense problems, products on tall blocks in the
/// run and by themselves, and the steps that take a thousandth of it or more.
template <typename Scalar>
void AddTimes(const Handles<Scalar>& run, int k, Record& record) {
  VesSolverStats stats{};
  VesGetSolverStats(run.solver, &stats);
  const std::vector<VesBench::StepTime> times = VesBench::StepTimes();
  const VesBench::BlasCost blas = VesBench::TallProducts(3 * k);
  const double alone = stats.secondsOperators + stats.secondsDense + blas.alone;
  record.Add("seconds", stats.secondsTotal);
  record.Add("secondsA", run.a.seconds);
  record.Add("secondsB", run.b.seconds);
  record.Add("secondsT", run.t.seconds);
  record.Add("secondsDense", stats.secondsDense);
  record.Add("secondsProducts", blas.seconds);
  record.Add("secondsProductsAlone", blas.alone);
  record.Add("overhead", stats.secondsTotal / alone);
  record.Add("gflop", 1e-9 * blas.flops);
  record.Add("columnsA", static_cast<double>(stats.columnsA));
  record.Add("reductions", static_cast<double>(stats.reductions));
  record.Add("megabytesReduced", 1e-6 * static_cast<double>(stats.bytesReduced));
  Record steps;
  for (const VesBench::StepTime& step : times)
    if (step.seconds >= 1e-3 * stats.secondsTotal) steps.Add(step.name, step.seconds);
  record.AddRaw("steps", times.empty() ? "{}" : steps.Line());
}

/// What came out, recomputed. Collective.
template <typename Scalar>
void AddResult(const Handles<Scalar>& run, const LargeProblem& problem, int nConv, Record& record) {
  VesSolverReason reason = VES_REASON_NONE;
  int iterations = 0;
  double residual = 0.0, ortho = 0.0, error = 0.0;
  VesGetSolverReason(run.solver, &reason);
  VesGetSolverIter(run.solver, &iterations);
  Good(VesCheckEigenpairs(run.A, run.B, run.x, run.d, &residual, &ortho), "check");
  const std::vector<double> exact = problem.Exact(static_cast<int>(run.D.size()));
  for (std::size_t j = 0; j < exact.size(); ++j)
    error = std::max(error, std::abs(std::real(run.D[j]) - exact[j]));
  record.Add("iterations", iterations);
  record.Add("converged", nConv);
  record.Add("reason", VesReasonString(reason));
  record.Add("residual", residual);
  record.Add("ortho", ortho);
  record.Add("error", error);
}

/// A few iterations, so that BLAS and the operators have their scratch before memory and time of the
/// run are measured. Collective.
template <typename Scalar>
void WarmUp(Options options, LargeProblem& problem, VesScalarType scalar, MPI_Comm comm) {
  options.numbers["maxiter"] = 2;
  Handles<Scalar> run(options, problem, scalar, comm);
  Good(VesRunSolver(run.solver, run.A, run.B, run.T, run.x, run.d), "run");
}

/// \return 0 when all pairs converged
template <typename Scalar>
int Run(const Options& options, LargeProblem& problem, VesScalarType scalar, MPI_Comm comm) {
  WarmUp<Scalar>(options, problem, scalar, comm);
  Handles<Scalar> run(options, problem, scalar, comm);
  int rank = 0, nProcesses = 1, nConv = 0;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &nProcesses);
  Record record;
  record.Add("problem", options.problem);
  record.Add("n", static_cast<double>(problem.Order()));
  record.Add("k", options.k);
  record.Add("solver", options.solver);
  record.Add("block", options.Number("block", 0));
  record.Add("lock", options.Number("lock", 0));
  record.Add("processes", nProcesses);

  const double before = ResetPeak();
  VesBench::ResetBlasMeter();
  MPI_Barrier(comm);
  Good(VesRunSolver(run.solver, run.A, run.B, run.T, run.x, run.d), "run");
  record.Add("megabytesPeak", StatusMegabytes("VmHWM") - before);
  std::size_t forecast = 0;
  VesSolverMemory(run.solver, problem.LocalRows(), options.k, run.B != nullptr, &forecast);
  record.Add("megabytesForecast", static_cast<double>(forecast) / 1048576);
  AddTimes(run, options.k, record);
  VesGetSolverConv(run.solver, &nConv);
  AddResult(run, problem, nConv, record);
  if (rank == 0) std::printf("%s\n", record.Line().c_str());
  return nConv == options.k ? 0 : 1;
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
