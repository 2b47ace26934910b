#include "bench.h"

#include "low_operators.h"
#include "names.h"
#include "preconditioners.h"
#include "report.h"
#include "run.h"

#include <iomanip>
#include <optional>

namespace VesTools {
namespace {

void PrintTableHead(std::ostream& out, const RunResult& first) {
  PrintProblem(out, first);
  out << first.settings.pairs << " pairs, preconditioner " << first.preconditioner << ", threshold "
      << std::setprecision(2) << first.settings.threshold << "\n\n"
      << "solver        iterations  columns of A   seconds  ratio  memory (MB)\n";
}

void PrintRun(std::ostream& out, const RunResult& run, const RunResult& first) {
  out << std::left << std::setw(14) << NameOf(solverNames, run.settings.solver) << std::right
      << std::setw(10) << run.iterations << std::setw(14) << run.stats.columnsA << std::fixed
      << std::setprecision(3) << std::setw(10) << run.stats.secondsTotal << std::setprecision(2)
      << std::setw(7) << run.stats.secondsTotal / first.stats.secondsTotal << std::setprecision(1)
      << std::setw(13) << 1e-6 * run.bytesTaken << std::defaultfloat
      << (run.IsAccepted() ? "" : "  not converged") << std::endl;
}

template <typename Scalar>
void RunEach(const Options& options, ProblemData data, MPI_Comm comm, const RunListener& ended) {
  Problem<Scalar> problem = MakeProblem<Scalar>(options.problem, std::move(data), comm);
  const std::string preconditioner = AddPreconditioner(options.preconditioner, problem);
  AddLowOperators(options, problem);
  problem.ReleaseEntries();
  SolverOptions solver = options.solver;
  solver.ppcgBatch.reset();
  OutputOptions quiet;
  quiet.isQuiet = true;
  // BLAS takes its scratch and the processor its speed before anything is measured.
  solver.maxIterations = 2;
  Run(problem, preconditioner, solver, quiet);
  solver.maxIterations = options.solver.maxIterations;
  for (const auto& [name, type] : solverNames) {
    solver.type = type;
    if (type == VES_PPCG) solver.ppcgBatch = options.solver.ppcgBatch;
    const RunResult run = Run(problem, preconditioner, solver, quiet);
    ended(run);
    if (run.stop == Stop::interrupt) break;
  }
}

} // namespace

void RunSolvers(const Options& options, MPI_Comm comm, const RunListener& ended) {
  ProblemData data = LoadProblem(options.problem, comm);
  WithScalar(data.scalar, [&](auto* tag) {
    RunEach<std::remove_pointer_t<decltype(tag)>>(options, std::move(data), comm, ended);
  });
}

bool CompareSolvers(const Options& options, std::ostream& out, MPI_Comm comm) {
  std::optional<RunResult> first;
  bool isGood = true;
  RunSolvers(options, comm, [&](const RunResult& run) {
    if (!first) PrintTableHead(out, *(first = run));
    PrintRun(out, run, *first);
    isGood = isGood && run.IsAccepted();
  });
  return isGood;
}

} // namespace VesTools
