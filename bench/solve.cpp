// One timed run of a solver on a large problem; prints a line of JSON.
//   solve PROBLEM SIZE K [name=value ...]
// PROBLEM and SIZE: laplacian or elements (points an axis), plane-waves (cut-off in Ry).
// Names: solver (lobpcg, lobpcg-batch, ppcg), block (batch limit or sub-block), lock (factor),
// passes, svd, detector, threshold, maxiter, precond, mixed (0 or 1), inner, guard, threads, alone
// (0: products are counted, but not called again by themselves).
#include "blas_meter.h"
#include "collective_counter.h"
#include "large_problem.h"
#include "run_model.h"
#include "step_profile.h"

#include <ves.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
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
  static const std::set<std::string> names{"block",     "lock",    "passes",  "svd",   "detector",
                                           "threshold", "maxiter", "precond", "mixed", "inner",
                                           "guard",     "threads", "alone"};
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

using Apply = void (LargeProblem::*)(const void*, void*, int, int);

template <typename Scalar>
ves::Operator<Scalar> TimedOperator(LargeProblem& problem, Apply apply, Apply applyLow,
                                    double& seconds) {
  const auto timed = [&](Apply routine) {
    return [&problem, routine, &seconds](auto x, auto y) {
      const double start = MPI_Wtime();
      (problem.*routine)(x.data(), y.data(), x.cols(), x.ld());
      seconds += MPI_Wtime() - start;
    };
  };
  ves::Operator<Scalar> both(timed(apply));
  both.setLow(timed(applyLow));
  return both;
}

ves::Options LibraryOptions(const Options& options) {
  const std::map<std::string, VesSolverType> types{
      {"lobpcg", VES_LOBPCG}, {"lobpcg-batch", VES_LOBPCG_BATCH}, {"ppcg", VES_PPCG}};
  const auto type = types.find(options.solver);
  if (type == types.end()) throw std::runtime_error("unknown solver " + options.solver);
  ves::Options library;
  library.type = type->second;
  library.maxIter = int(options.Number("maxiter", 3000));
  library.threshold = options.Number("threshold", 1e-6);
  library.maxOrthoIter = int(options.Number("passes", 1));
  library.orthogonalizer = options.Number("svd", 0) > 0 ? VES_SVD_QR : VES_CHOLESKY_QR;
  library.detector = static_cast<VesConvergeDetectorType>(int(options.Number("detector", 0)));
  library.mixedPrecision = options.Number("mixed", 0) > 0;
  library.innerSteps = int(options.Number("inner", 0));
  library.threads = int(options.Number("threads", 0));
  library.wanted = options.k;
  if (options.numbers.count("lock") > 0) library.lockFactor = options.Number("lock", 0);
  if (options.numbers.count("block") > 0)
    (type->second == VES_PPCG ? library.ppcgBatch : library.batchLimit) =
        int(options.Number("block", 0));
  return library;
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
  std::string Line() const { return (line.empty() ? "{" : line) + "}"; }

private:
  std::string line;
};

/// What a run needs, with the guess; seconds are those of A, B and T.
template <typename Scalar>
struct Setup {
  Setup(const Options& options, LargeProblem& problem, MPI_Comm comm)
      : A(TimedOperator<Scalar>(problem, &LargeProblem::ApplyA, &LargeProblem::ApplyLowA,
                                seconds[0])),
        X(problem.LocalRows(), options.k + int(options.Number("guard", 0)), comm),
        solver(LibraryOptions(options)) {
    if (problem.IsGeneralized())
      B = TimedOperator<Scalar>(problem, &LargeProblem::ApplyB, &LargeProblem::ApplyLowB,
                                seconds[1]);
    if (options.Number("precond", 1) > 0)
      T = TimedOperator<Scalar>(problem, &LargeProblem::ApplyT, &LargeProblem::ApplyLowT,
                                seconds[2]);
    fillRandom(X);
    for (int j = 0; j < X.cols(); ++j)
      for (int i = 0; i < X.rows(); ++i)
        X(i, j) *= problem.Weight(i);
  }
  Setup(const Setup&) = delete;
  Setup& operator=(const Setup&) = delete;

  ves::Outcome<Scalar> Run() { return solver.solve(A, B, T, X); }

  double seconds[3] = {};
  ves::Operator<Scalar> A, B, T;
  ves::Block<Scalar> X;
  ves::Solver<Scalar> solver;
};

/// Where the time of the run went: call-backs, small dense problems, products on tall blocks in the
/// run and by themselves, and the steps that take a thousandth of it or more.
void AddTimes(const VesSolverStats& stats, const double* seconds, int k, bool isAlone,
              Record& record) {
  const std::vector<VesBench::StepTime> times = VesBench::StepTimes();
  VesBench::BlasCost blas;
  if (isAlone)
    blas = VesBench::TallProducts(3 * k);
  else
    blas.flops = VesBench::TallFlops(3 * k);
  const double alone = stats.secondsOperators + stats.secondsDense + blas.alone;
  record.Add("seconds", stats.secondsTotal);
  record.Add("secondsA", seconds[0]);
  record.Add("secondsB", seconds[1]);
  record.Add("secondsT", seconds[2]);
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

using CountBySize = std::map<long long, long long>;

/// What was counted since: {"bytes": calls, ...}.
std::string Since(const CountBySize& before, const CountBySize& now) {
  Record sizes;
  for (const auto& [bytes, count] : now) {
    const auto earlier = before.find(bytes);
    const long long of = count - (earlier == before.end() ? 0 : earlier->second);
    if (of > 0) sizes.Add(std::to_string(bytes), static_cast<double>(of));
  }
  return sizes.Line();
}

/// The collectives of the run on several processes, by their bytes.
void AddCollectives(const VesBench::Collectives& before, Record& record) {
  const VesBench::Collectives now = VesBench::CountedCollectives();
  record.AddRaw("reductionsBySize", Since(before.reductionsBySize, now.reductionsBySize));
  record.AddRaw("broadcastsBySize", Since(before.broadcastsBySize, now.broadcastsBySize));
}

/// [["what", calls an iteration, bytes], ...]
std::string ListOf(const std::vector<VesTools::Collective>& collectives) {
  std::ostringstream text;
  for (const VesTools::Collective& one : collectives)
    text << (text.tellp() > 0 ? ", " : "[") << "[\"" << one.of << "\", " << one.count << ", "
         << std::setprecision(12) << one.bytes << "]";
  return text.str() + "]";
}

/// What the model says of an iteration before any pair has converged.
void AddModel(const Options& options, const LargeProblem& problem, Record& record) {
  const ves::Options library = LibraryOptions(options);
  const double k = options.k;
  VesTools::RunShape shape;
  shape.solver = library.type;
  shape.order = static_cast<double>(problem.Order());
  shape.active = library.type == VES_LOBPCG_BATCH ? std::min(options.Number("block", 256), k) : k;
  shape.block = options.Number("block", 64);
  shape.passes = *library.maxOrthoIter;
  shape.hasT = options.Number("precond", 1) > 0;
  shape.hasB = problem.IsGeneralized();
  shape.isComplex = problem.IsComplex();
  const VesTools::Counts counts = VesTools::CountsOf(shape);
  Record model;
  model.Add("columnsA", counts.columns);
  model.Add("gflop", 1e-9 * counts.operations);
  model.AddRaw("reductions", ListOf(counts.reductions));
  model.AddRaw("broadcasts", ListOf(counts.broadcasts));
  record.AddRaw("model", model.Line());
}

/// What came out of the first k pairs, recomputed. Collective.
template <typename Scalar>
void AddResult(const Setup<Scalar>& run, int k, ves::Outcome<Scalar> found,
               const LargeProblem& problem, Record& record) {
  double error = 0.0;
  found.values.resize(static_cast<std::size_t>(k));
  const ves::Block<Scalar> wanted(ves::View(run.X.data(), run.X.rows(), k), run.X.comm());
  const ves::PairErrors errors = checkEigenpairs(run.A, run.B, wanted, found.values);
  const std::vector<double> exact = problem.Exact(k);
  for (std::size_t j = 0; j < exact.size(); ++j)
    error = std::max(error, std::abs(found.values[j] - exact[j]));
  record.Add("iterations", found.iterations);
  record.Add("converged", found.converged);
  record.Add("reason", VesReasonString(found.reason));
  record.Add("residual", errors.residual);
  record.Add("ortho", errors.orthoError);
  record.Add("error", error);
}

/// A few iterations, so that BLAS and the operators have their scratch before memory and time of
/// the run are measured. Collective.
template <typename Scalar>
void WarmUp(Options options, LargeProblem& problem, MPI_Comm comm) {
  options.numbers["maxiter"] = 2;
  Setup<Scalar>(options, problem, comm).Run();
}

/// \return 0 when all pairs converged
template <typename Scalar>
int Run(const Options& options, LargeProblem& problem, MPI_Comm comm) {
  WarmUp<Scalar>(options, problem, comm);
  Setup<Scalar> run(options, problem, comm);
  int rank = 0, nProcesses = 1;
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
  const VesBench::Collectives earlier = VesBench::CountedCollectives();
  const ves::Outcome<Scalar> found = run.Run();
  record.Add("megabytesPeak", StatusMegabytes("VmHWM") - before);
  const std::size_t forecast =
      run.solver.memory(problem.LocalRows(), run.X.cols(), problem.IsGeneralized());
  record.Add("megabytesForecast", static_cast<double>(forecast) / 1048576);
  AddCollectives(earlier, record);
  AddModel(options, problem, record);
  AddTimes(found.stats, run.seconds, options.k, options.Number("alone", 1) > 0, record);
  AddResult(run, options.k, found, problem, record);
  if (rank == 0) std::printf("%s\n", record.Line().c_str());
  return found.converged >= options.k ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  int level = MPI_THREAD_SINGLE;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &level);
  int status = 2;
  try {
    const Options options = Read(argc, argv);
    const auto problem = VesBench::MakeLargeProblem(options.problem, options.size, MPI_COMM_WORLD);
    status = problem->IsComplex() ? Run<std::complex<double>>(options, *problem, MPI_COMM_WORLD)
                                  : Run<double>(options, *problem, MPI_COMM_WORLD);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "solve: %s\n", error.what());
    MPI_Abort(MPI_COMM_WORLD, status);
  }
  MPI_Finalize();
  return status;
}
