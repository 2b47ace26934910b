// Runs problems with known values through every solver and prints a table for each, as Markdown.
// The exit code is 0 only when every run converged and has the reference's values, as exactly as
// its residuals say.
#include "runner.h"

#include <cstdio>
#include <exception>

using namespace VesBench;

namespace {

void PrintHead() {
  std::puts(
      "Problems with known values, every solver, every scalar type that suits. Real problems\n"
      "were made truly complex for the complex types: D^H A D with unit phases D. The guess is\n"
      "random, every setting but threshold and limit of iterations has its default.\n"
      "\n"
      "- threshold: of `VES_RESIDUALS`. In double precision the power of ten above 1e5 times, in\n"
      "  single precision above 20 times, what rounding allows: 4 eps (|A| + |lambda| |B|) |x|.\n"
      "- columns of A: those that the routine of A was given, `VesSolverStats::columnsA`.\n"
      "- residual: the largest 2-norm of A x - lambda B x, recomputed in double precision.\n"
      "- error: the largest distance of a value from the reference.\n"
      "- bound: what residuals r allow it to be. The smaller of R and 2 R^2 / (gap to the next\n"
      "  value), R^2 the sum of the squares of r in the norm of B^-1; plus rounding,\n"
      "  10 eps (|A| + |lambda| |B|) |x|^2; plus what the reference is off: 5e-14 for silicon and\n"
      "  the oscillator.\n"
      "- A run that did not converge, or errs by more than its bound, is marked **failed**.\n");
}

void PrintRun(const Task& task, const Problem& problem, const Outcome& o) {
  std::printf("| %s | %s | %s | %.0e | %d | %d | %lld | %.1e | %.1e | %.1e | %s%s |\n",
              NameOf(task.solver), NameOf(task.scalar), task.isPreconditioned ? "diagonal" : "none",
              o.threshold, problem.pairs, o.iterations, o.columnsA, o.residual, o.error, o.bound,
              VesReasonString(o.reason), o.IsGood() ? "" : ", **failed**");
  std::fflush(stdout);
}

/// Silicon at the named points is only solved with its preconditioner; the general point shows what
/// that is worth.
bool Wants(const Problem& problem, bool isPreconditioned) {
  const bool hasPreconditioner = !problem.preconditioner.empty();
  return isPreconditioned ? hasPreconditioner : !hasPreconditioner || problem.isComplex;
}

/// Runs all that suits a problem and counts the runs and the failed ones.
void RunProblem(const Problem& problem, bool speaks, int& runs, int& failures) {
  if (speaks)
    std::printf("\n## %s\n\nOrder %d%s. Reference: %s.\n\n"
                "| solver | type | preconditioner | threshold | pairs | iterations | columns of A |"
                " residual | error | bound | reason |\n"
                "|---|---|---|--:|--:|--:|--:|--:|--:|--:|---|\n",
                problem.name.c_str(), problem.order, problem.IsGeneralized() ? ", generalized" : "",
                problem.source.c_str());
  for (const VesSolverType solver : allSolvers)
    for (const VesScalarType scalar : allScalars)
      for (const bool isPreconditioned : {false, true}) {
        if (!Suits(problem, scalar) || !Wants(problem, isPreconditioned)) continue;
        Task task;
        task.solver = solver;
        task.scalar = scalar;
        task.isPreconditioned = isPreconditioned;
        const Outcome outcome = Run(problem, task, MPI_COMM_WORLD);
        ++runs;
        failures += outcome.IsGood() ? 0 : 1;
        if (speaks) PrintRun(task, problem, outcome);
      }
}

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank = 0, size = 0, runs = 0, failures = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  try {
    if (rank == 0) PrintHead();
    for (const Problem& problem : AllProblems())
      RunProblem(problem, rank == 0, runs, failures);
    if (rank == 0)
      std::printf("\n## Summary\n\n%d runs on %d %s, %d failed.\n", runs, size,
                  size == 1 ? "process" : "processes", failures);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "reference_problems: %s\n", problem.what());
    MPI_Abort(MPI_COMM_WORLD, 2);
  }
  MPI_Finalize();
  return failures == 0 ? 0 : 1;
}
