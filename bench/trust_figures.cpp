// Prints figures that say how far results can be trusted, one section for each argument:
//   worst        worst residual and orthogonality over all problems, per solver and type
//   collectives  collective calls per iteration (2 processes or more)
//   processes    how results differ over 1, 2, 4, ... processes of those that it runs on
#include "collective_counter.h"
#include "runner.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

using namespace VesBench;

namespace {

constexpr unsigned nSeeds = 3;
constexpr int largestOrder = 2000; ///< of problems that are run on several numbers of processes

int RankInWorld() {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  return rank;
}

int SizeOfWorld() {
  int size = 0;
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  return size;
}

/// Calls visit for every run that a solver and a type allow on all problems.
template <typename Visit>
void ForAllRuns(VesSolverType solver, VesScalarType scalar, const Visit& visit) {
  for (const Problem& problem : AllProblems()) {
    if (!Suits(problem, scalar)) continue;
    Task task;
    task.solver = solver;
    task.scalar = scalar;
    task.isPreconditioned = !problem.preconditioner.empty();
    for (task.seed = 1; task.seed <= nSeeds; ++task.seed)
      visit(problem, task);
  }
}

void PrintWorst() {
  const bool speaks = RankInWorld() == 0;
  if (speaks)
    std::printf(
        "The [reference problems](reference_problems.md) from %u random starts each, on %d %s;"
        " all recomputed\nin double precision.\n\n"
        "| solver | type | runs | converged with the reference's values | worst residual,"
        " thresholds | worst orthogonality error, eps |\n|---|---|--:|--:|--:|--:|\n",
        nSeeds, SizeOfWorld(), SizeOfWorld() == 1 ? "process" : "processes");
  for (const VesSolverType solver : allSolvers)
    for (const VesScalarType scalar : allScalars) {
      int runs = 0, good = 0;
      double residual = 0.0, orthogonality = 0.0;
      ForAllRuns(solver, scalar, [&](const Problem& problem, const Task& task) {
        const Outcome outcome = Run(problem, task, MPI_COMM_WORLD);
        ++runs;
        good += outcome.IsGood() ? 1 : 0;
        residual = std::max(residual, outcome.residual / outcome.threshold);
        orthogonality = std::max(orthogonality, outcome.orthogonality / EpsOf(scalar));
      });
      if (speaks)
        std::printf("| %s | %s | %d | %d | %.3f | %.0f |\n", NameOf(solver), NameOf(scalar), runs,
                    good, residual, orthogonality);
    }
}

/// Collectives of a run that stops at a limit it cannot miss.
Collectives CollectivesOf(const Problem& problem, Task task, int iterations) {
  task.threshold = 1e-12;
  task.maxIter = iterations;
  // The recomputation reduces twice, whatever the run did.
  const Collectives before = CountedCollectives();
  const Outcome outcome = Run(problem, task, MPI_COMM_WORLD);
  const Collectives after = CountedCollectives();
  if (outcome.iterations != iterations) throw std::runtime_error("a run ended before its limit");
  return {after.reductions - before.reductions, after.broadcasts - before.broadcasts};
}

void PrintCollectives() {
  if (SizeOfWorld() < 2) throw std::runtime_error("collectives are counted on several processes");
  const bool speaks = RankInWorld() == 0;
  const int few = 10, many = 30;
  if (speaks)
    std::printf(
        "Calls of MPI on communicators of more than one process, by the library and all that"
        " it calls,\nexcept those inside the routines of A and B: runs of %d iterations less"
        " runs of %d, on %d processes,\ndouble precision, 10 pairs, defaults.\n\n"
        "| solver | problem | MPI_Allreduce per iteration | MPI_Bcast per iteration |\n"
        "|---|---|--:|--:|\n",
        many, few, SizeOfWorld());
  for (const VesSolverType solver : allSolvers)
    for (const Problem& problem :
         {BoxByDifferences({20, 21, 22}, 10), BoxByElements({10, 11, 12}, 10)}) {
      Task task;
      task.solver = solver;
      const Collectives more = CollectivesOf(problem, task, many);
      const Collectives less = CollectivesOf(problem, task, few);
      const double iterations = many - few;
      if (speaks)
        std::printf("| %s | %s | %.1f | %.1f |\n", NameOf(solver),
                    problem.IsGeneralized() ? "generalized" : "standard",
                    static_cast<double>(more.reductions - less.reductions) / iterations,
                    static_cast<double>(more.broadcasts - less.broadcasts) / iterations);
    }
}

/// Largest differences between runs of the same task on other numbers of processes.
struct Spread {
  int runs = 0, sameIterations = 0;
  int iterations = 0, ofIterations = 0; ///< most that differ, and those of the run on one process
  double values = 0.0;                  ///< in eps times the norm of A, in standard form
};

/// The run on the first size processes; the others get an empty outcome.
Outcome RunOnFirst(int size, const Problem& problem, const Task& task) {
  MPI_Comm comm = MPI_COMM_NULL;
  MPI_Comm_split(MPI_COMM_WORLD, RankInWorld() < size ? 0 : MPI_UNDEFINED, RankInWorld(), &comm);
  Outcome outcome;
  if (comm != MPI_COMM_NULL) {
    outcome = Run(problem, task, comm);
    MPI_Comm_free(&comm);
  }
  MPI_Barrier(MPI_COMM_WORLD);
  return outcome;
}

void Compare(const Problem& problem, const Task& task, Spread& spread) {
  const Outcome one = RunOnFirst(1, problem, task);
  for (int size = 2; size <= SizeOfWorld(); size *= 2) {
    const Outcome other = RunOnFirst(size, problem, task);
    const int iterations = std::abs(one.iterations - other.iterations);
    ++spread.runs;
    spread.sameIterations += iterations == 0 ? 1 : 0;
    if (iterations > spread.iterations) {
      spread.iterations = iterations;
      spread.ofIterations = one.iterations;
    }
    const double unit = EpsOf(task.scalar) * problem.normA / problem.normB;
    for (std::size_t j = 0; j < std::min(one.values.size(), other.values.size()); ++j)
      spread.values = std::max(spread.values, std::abs(one.values[j] - other.values[j]) / unit);
  }
}

void PrintProcesses() {
  const bool speaks = RankInWorld() == 0;
  std::string sizes = "1";
  for (int size = 2; size <= SizeOfWorld(); size *= 2)
    sizes += ", " + std::to_string(size);
  if (speaks)
    std::printf(
        "The [reference problems](reference_problems.md) up to order %d from %u random "
        "starts each on %s\nprocesses; every run on several is compared with that on one.\n\n"
        "| solver | type | comparisons | same number of iterations | largest difference of"
        " iterations | largest difference of a value, eps \\|A\\| / \\|B\\| |\n"
        "|---|---|--:|--:|--:|--:|\n",
        largestOrder, nSeeds, sizes.c_str());
  for (const VesSolverType solver : allSolvers)
    for (const VesScalarType scalar : allScalars) {
      Spread spread;
      ForAllRuns(solver, scalar, [&](const Problem& problem, const Task& task) {
        if (problem.order <= largestOrder) Compare(problem, task, spread);
      });
      if (speaks)
        std::printf("| %s | %s | %d | %d | %d of %d | %.2g |\n", NameOf(solver), NameOf(scalar),
                    spread.runs, spread.sameIterations, spread.iterations, spread.ofIterations,
                    spread.values);
    }
}

void PrintSection(const std::string& name) {
  if (name == "worst")
    PrintWorst();
  else if (name == "collectives")
    PrintCollectives();
  else if (name == "processes")
    PrintProcesses();
  else
    throw std::invalid_argument("no section " + name);
}

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  try {
    for (int i = 1; i < argc; ++i)
      PrintSection(argv[i]);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "trust_figures: %s\n", problem.what());
    MPI_Abort(MPI_COMM_WORLD, 2);
  }
  MPI_Finalize();
  return 0;
}
