#include "run.h"

#include "detectors.h"
#include "guess.h"
#include "low_operators.h"
#include "matrix_market.h"
#include "memory_meter.h"
#include "parallel.h"
#include "preconditioners.h"
#include "settings.h"
#include "timed_operator.h"

#include <algorithm>
#include <optional>

namespace VesTools {
namespace {

// Pairs are allocated together, so that too many of them are refused on all processes.
template <typename Scalar>
std::unique_ptr<ves::Block<Scalar>> MakePairs(const Problem<Scalar>& problem, int pairs) {
  const int rows = problem.LocalRows();
  std::unique_ptr<ves::Block<Scalar>> block;
  std::string complaint;
  try {
    block = std::make_unique<ves::Block<Scalar>>(rows, pairs, problem.comm);
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
  FillRandom(values, problem.LocalRows(), pairs, problem.FirstRow(), options.seed.value_or(1),
             problem.guessWeights);
  if (options.start.empty()) return;
  const ves::Block<Scalar> given = ReadBlock(options.start, problem);
  if (given.cols() > pairs)
    throw Error(exitInput, options.start + ": " + std::to_string(given.cols()) +
                               " columns are more than the " + std::to_string(pairs) + " pairs");
  for (int j = 0; j < given.cols(); ++j)
    values = std::copy_n(given.column(j), given.rows(), values);
}

// Collective.
template <typename Scalar>
void AddCosts(const ves::Solver<Scalar>& solver, const ves::Outcome<Scalar>& found,
              const Problem<Scalar>& problem, double taken, RunResult& result) {
  result.reason = found.reason;
  result.iterations = found.iterations;
  result.converged = std::min(found.converged, result.settings.pairs);
  result.stats = found.stats;
  const std::size_t forecast = solver.memory(
      problem.LocalRows(), result.settings.pairs + result.settings.guard, problem.IsGeneralized());
  result.bytesTaken = Largest(taken, problem.comm);
  result.bytesForecast = Largest(static_cast<double>(forecast), problem.comm);
}

// Collective.
template <typename Scalar>
void AddPairs(const Problem<Scalar>& problem, const ves::Operator<Scalar>& a,
              const ves::Operator<Scalar>& b, const ves::Block<Scalar>& x,
              const std::vector<ves::Real<Scalar>>& values, RunResult& result) {
  result.orthoError = checkEigenpairs(a, b, x, values).orthoError;
  const auto r = MakePairs(problem, x.cols());
  eigResidual(a, b, x, values, *r);
  const auto residuals = columnNorms(*r);
  const int pairs = result.settings.pairs; // without the guards
  result.values.assign(values.begin(), values.begin() + pairs);
  result.residuals.assign(residuals.begin(), residuals.begin() + pairs);
  if (result.settings.isLargest) // those of -A; no zero becomes a negative one
    for (double& value : result.values)
      value = 0.0 - value;
}

template <typename Scalar>
void DescribeProblem(const Problem<Scalar>& problem, RunResult& result) {
  result.title = problem.title;
  result.scalar = ves::scalarType<Scalar>();
  result.order = problem.Order();
  result.processes = Size(problem.comm);
  if (problem.matrixA) result.nonZerosA = Sum(problem.matrixA->NonZeros(), problem.comm);
  if (problem.matrixB) result.nonZerosB = Sum(problem.matrixB->NonZeros(), problem.comm);
}

// \return what went wrong, or nothing. Collective.
template <typename Scalar>
std::string WriteVectors(const std::string& path, const Problem<Scalar>& problem,
                         const ves::Block<Scalar>& x, int pairs) {
  try {
    WriteMatrixMarket(path, x.data(), problem.LocalRows(), pairs, problem.comm);
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

} // namespace

std::string RunResult::Reason() const {
  if (reason != VES_REASON_MONITOR) return VesReasonString(reason);
  return stop == Stop::interrupt ? "stopped by an interrupt" : "stopped by the time limit";
}

bool RunResult::IsAccepted() const {
  if (converged < settings.pairs) return false;
  for (std::size_t j = 0; j < residuals.size(); ++j)
    if (!(residuals[j] <= AcceptedResidual(detector, settings.threshold, values[j]))) return false;
  return true;
}

template <typename Scalar>
RunResult Run(const Problem<Scalar>& problem, const std::string& preconditioner,
              const SolverOptions& options, const OutputOptions& output,
              const RunListener& begins) {
  RunResult result;
  DescribeProblem(problem, result);
  result.preconditioner = preconditioner;
  result.detector = options.detector;
  std::optional<ves::Block<Scalar>> deflated; // lives as long as the solver
  if (!options.deflate.empty()) deflated = ReadBlock(options.deflate, problem);
  result.settings = Decide(problem, options, deflated ? deflated->cols() : 0);
  const int pairs = result.settings.pairs, columns = pairs + result.settings.guard;
  double seconds[3] = {};
  const auto a = TimedOperator(problem.a, seconds[0], problem.lowA),
             b = TimedOperator(problem.b, seconds[1], problem.lowB),
             t = TimedOperator(problem.t, seconds[2], problem.lowT);
  const auto x = MakePairs(problem, columns);
  FillGuess(problem, options, columns, x->data());
  if (begins) begins(result);
  ves::Outcome<Scalar> found;
  {
    RunMonitor monitor(ChooseProgress(output, problem.comm), options.timeLimit, pairs);
    ves::Options library = LibraryOptions(result.settings, options);
    library.monitor = [&](const VesProgress& progress) { return monitor.Note(progress); };
    ves::Solver<Scalar> solver(library);
    if (deflated) solver.deflate(*deflated);
    const MemoryMeter memory;
    found = solver.solve(a, b, t, *x);
    result.history = monitor.GetHistory();
    result.stop = monitor.GetStop();
    MPI_Bcast(&result.stop, sizeof(result.stop), MPI_BYTE, 0, problem.comm);
    AddCosts(solver, found, problem, memory.Taken(), result);
  }
  result.secondsA = seconds[0];
  result.secondsB = seconds[1];
  result.secondsT = seconds[2];
  AddPairs(problem, a, b, *x, found.values, result);
  if (!output.vectors.empty()) result.unwritten = WriteVectors(output.vectors, problem, *x, pairs);
  return result;
}

RunResult RunWith(const Options& options, MPI_Comm comm, const RunListener& begins) {
  ProblemData data = LoadProblem(options.problem, comm);
  return WithScalar(data.scalar, [&](auto* tag) {
    using Scalar = std::remove_pointer_t<decltype(tag)>;
    Problem<Scalar> problem = MakeProblem<Scalar>(options.problem, std::move(data), comm);
    const std::string preconditioner = AddPreconditioner(options.preconditioner, problem);
    AddLowOperators(options, problem);
    problem.ReleaseEntries();
    if (options.solver.isLargest) problem.NegateA();
    return Run(problem, preconditioner, options.solver, options.output, begins);
  });
}

} // namespace VesTools
