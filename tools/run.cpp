#include "run.h"

#include "detectors.h"
#include "guess.h"
#include "handles.h"
#include "matrix_market.h"
#include "memory_meter.h"
#include "parallel.h"
#include "preconditioners.h"
#include "settings.h"

#include <unistd.h>

#include <algorithm>

namespace VesTools {
namespace {

// Pairs are allocated together, so that too many of them are refused on all processes.
template <typename Scalar>
std::unique_ptr<Block<Scalar>> MakePairs(const Problem<Scalar>& problem, int pairs) {
  const int rows = problem.LocalRows();
  std::unique_ptr<Block<Scalar>> block;
  std::string complaint;
  try {
    block = std::make_unique<Block<Scalar>>(problem.comm, rows, pairs);
  } catch (const std::bad_alloc&) {
    complaint = "there is not enough memory for " + std::to_string(pairs) + " vectors of " +
                std::to_string(rows) + " rows";
  }
  AgreeOn(complaint, exitInternal, problem.comm);
  return block;
}

template <typename Scalar>
void FillGuess(const Problem<Scalar>& problem, const SolverOptions& options, int pairs,
               Scalar* values) {
  FillRandom(values, problem.LocalRows(), pairs, problem.FirstRow(), options.seed,
             problem.guessWeights);
  if (!options.start.empty()) ReadBlock(options.start, problem, pairs, values);
}

template <typename Scalar>
void AddCosts(VesSolver solver, const Problem<Scalar>& problem, double taken, RunResult& result) {
  Check(VesGetSolverReason(solver, &result.reason), "VesGetSolverReason");
  Check(VesGetSolverIter(solver, &result.iterations), "VesGetSolverIter");
  Check(VesGetSolverConv(solver, &result.converged), "VesGetSolverConv");
  Check(VesGetSolverStats(solver, &result.stats), "VesGetSolverStats");
  std::size_t forecast = 0;
  Check(VesSolverMemory(solver, problem.LocalRows(), result.settings.pairs, problem.IsGeneralized(),
                        &forecast),
        "VesSolverMemory");
  result.bytesTaken = Largest(taken, problem.comm);
  result.bytesForecast = Largest(static_cast<double>(forecast), problem.comm);
}

// Collective.
template <typename Scalar>
void AddResiduals(const Problem<Scalar>& problem, const Operator<Scalar>& a,
                  const Operator<Scalar>& b, const Block<Scalar>& x, const Block<Scalar>& d,
                  RunResult& result) {
  const int pairs = result.settings.pairs;
  double largest = 0.0;
  Check(VesCheckEigenpairs(a.Get(), b.Get(), x.Get(), d.Get(), &largest, &result.orthoError),
        "VesCheckEigenpairs");
  const auto r = MakePairs(problem, pairs);
  Check(VesEigResidual(a.Get(), b.Get(), x.Get(), d.Get(), r->Get()), "VesEigResidual");
  result.values = d.RealParts(pairs);
  result.residuals = ColumnNorms(problem.comm, *r, pairs);
}

template <typename Scalar>
void DescribeProblem(const Problem<Scalar>& problem, RunResult& result) {
  result.title = problem.title;
  result.scalar = vesType<Scalar>;
  result.order = problem.Order();
  result.processes = Size(problem.comm);
  if (problem.matrixA) result.nonZerosA = Sum(problem.matrixA->NonZeros(), problem.comm);
  if (problem.matrixB) result.nonZerosB = Sum(problem.matrixB->NonZeros(), problem.comm);
}

// \return what went wrong, or nothing. Collective.
template <typename Scalar>
std::string WriteVectors(const std::string& path, const Problem<Scalar>& problem,
                         const Block<Scalar>& x, int pairs) {
  try {
    WriteMatrixMarket(path, x.Values(), problem.LocalRows(), pairs, problem.comm);
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

} // namespace

bool RunResult::IsAccepted() const {
  if (converged < settings.pairs) return false;
  for (std::size_t j = 0; j < residuals.size(); ++j)
    if (!(residuals[j] <= AcceptedResidual(detector, settings.threshold, values[j]))) return false;
  return true;
}

template <typename Scalar>
RunResult Run(const Problem<Scalar>& problem, const std::string& preconditioner,
              const SolverOptions& options, const OutputOptions& output) {
  RunResult result;
  DescribeProblem(problem, result);
  result.preconditioner = preconditioner;
  result.detector = options.detector;
  result.settings = Decide(problem, options);
  const int pairs = result.settings.pairs;
  const Operator<Scalar> a(problem.a), b(problem.b), t(problem.t);
  const auto x = MakePairs(problem, pairs);
  const Block<Scalar> d(problem.comm, pairs, 1);
  FillGuess(problem, options, pairs, x->Values());
  const SolverHandle solver =
      MakeSolver(vesType<Scalar>, problem.IsGeneralized(), result.settings, options);
  {
    const bool isLive = !output.isQuiet && Rank(problem.comm) == 0 && isatty(STDERR_FILENO) != 0;
    RunMonitor monitor(isLive, options.timeLimit);
    Check(VesSolverSetMonitor(solver.get(), RunMonitor::Follow, &monitor), "VesSolverSetMonitor");
    const MemoryMeter memory;
    Check(VesRunSolver(solver.get(), a.Get(), b.Get(), t.Get(), x->Get(), d.Get()), "VesRunSolver");
    result.history = monitor.GetHistory();
    AddCosts(solver.get(), problem, memory.Taken(), result);
  }
  result.secondsA = a.Seconds();
  result.secondsB = b.Seconds();
  result.secondsT = t.Seconds();
  AddResiduals(problem, a, b, *x, d, result);
  if (!output.vectors.empty()) result.unwritten = WriteVectors(output.vectors, problem, *x, pairs);
  return result;
}

RunResult RunWith(const Options& options, MPI_Comm comm) {
  ProblemData data = LoadProblem(options.problem, comm);
  return WithScalar(data.scalar, [&](auto* tag) {
    using Scalar = std::remove_pointer_t<decltype(tag)>;
    Problem<Scalar> problem = MakeProblem<Scalar>(options.problem, data, comm);
    data = {};
    const std::string preconditioner = AddPreconditioner(options.preconditioner, problem);
    return Run(problem, preconditioner, options.solver, options.output);
  });
}

} // namespace VesTools
