#include "forecast.h"

#include "bench.h"
#include "error.h"
#include "machine.h"
#include "models.h"
#include "output_files.h"
#include "parallel.h"
#include "report.h"
#include "settings.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>

namespace VesTools {
namespace {

using Json = nlohmann::ordered_json;

/// Narrow sub-blocks are what PPCG is for on many processes.
constexpr int subBlock = 16;

void Refuse(bool isRefused, const std::string& what) {
  if (isRefused) throw Error(exitUsage, "--forecast: " + what);
}

/// The plain iteration, whose course does not depend on the number of processes.
Options PlainOptions(Options options) {
  SolverOptions& solver = options.solver;
  Preconditioner& kind = options.preconditioner.kind;
  const auto scalar = options.problem.scalar.value_or(VES_DOUBLE);
  Refuse(solver.precision == Precision::mixed || scalar == VES_FLOAT || scalar == VES_COMPLEX_FLOAT,
         "it is of double precision");
  Refuse(solver.innerSteps.value_or(0) > 0 || kind == Preconditioner::inner,
         "it is of runs without inner steps");
  Refuse(solver.guard.value_or(0) > 0, "it is of runs without guards");
  Refuse(kind == Preconditioner::ic || kind == Preconditioner::shiftInvert,
         "the factors of that preconditioner are other ones on other numbers of processes; take "
         "jacobi or none");
  const bool hasOwn = ParseModelName(options.problem.model).name == "silicon";
  if (kind == Preconditioner::automatic && !hasOwn) kind = Preconditioner::jacobi;
  solver.precision = Precision::full;
  solver.innerSteps = solver.guard = 0;
  solver.dense = VES_LAPACK_DIAG;
  solver.ppcgBatch = std::min(solver.pairs.value_or(subBlock), subBlock);
  return options;
}

/// Operators and dense problems took as long as in the runs.
Machine Calibrated(Machine machine, const std::vector<RunResult>& runs) {
  double columns = 0.0, secondsOfColumns = 0.0, operations = 0.0, secondsDense = 0.0;
  for (const RunResult& run : runs) {
    columns += static_cast<double>(run.stats.columnsA) * run.order / run.processes;
    secondsOfColumns += run.stats.secondsOperators;
    for (const RunShape& shape : CourseOf(run))
      operations += CountsOf(shape).DenseOperations();
    secondsDense += run.stats.secondsDense;
  }
  if (secondsOfColumns > 0.0 && columns > 0.0) machine.row = secondsOfColumns / columns;
  if (secondsDense > 0.0 && operations > 0.0) machine.dense = operations / secondsDense;
  return machine;
}

/// X and what the library says a run takes beside it, which grows by the row once these are many:
/// it refuses more rows of a process than its blocks can count.
double BytesHeld(const RunResult& run, const SolverOptions& options, double rows) {
  return WithScalar(run.scalar, [&](auto* tag) {
    using Scalar = std::remove_pointer_t<decltype(tag)>;
    SolverOptions own = options;
    if (run.settings.solver != VES_PPCG) own.ppcgBatch.reset();
    const ves::Solver<Scalar> solver(LibraryOptions(run.settings, own));
    const int pairs = run.settings.pairs, many = 2048;
    const auto bytesOf = [&](int local) {
      return static_cast<double>(solver.memory(local, pairs, run.nonZerosB > 0)) +
             static_cast<double>(sizeof(Scalar)) * local * pairs;
    };
    if (rows <= many) return bytesOf(static_cast<int>(std::ceil(rows)));
    return bytesOf(many) + (bytesOf(2 * many) - bytesOf(many)) * (rows / many - 1.0);
  });
}

SolverForecast ForecastOf(const RunResult& run, const Options& options, const Machine& machine) {
  SolverForecast forecast{run.settings.solver, CourseOf(run), {}, {}};
  const double order = options.forecast.order > 0 ? options.forecast.order : run.order;
  for (RunShape& shape : forecast.course)
    shape.order = order;
  for (const int processes : ForecastProcesses()) {
    forecast.costs.push_back(MeanCostOf(forecast.course, machine, processes));
    forecast.bytesHeld.push_back(BytesHeld(run, options.solver, order / processes));
  }
  return forecast;
}

const SolverForecast& Fastest(const std::vector<SolverForecast>& all, std::size_t entry) {
  return *std::min_element(all.begin(), all.end(), [&](const auto& a, const auto& b) {
    return a.Seconds(entry) < b.Seconds(entry);
  });
}

void PrintMachine(std::ostream& out, const MachineChoice& choice, const Machine& machine) {
  out << "machine " << choice.name << ":";
  const char* separator = " ";
  for (const MachineConstant& constant : machineConstants) {
    out << separator << constant.name << " " << Short(machine.*constant.value) << " "
        << constant.unit;
    separator = ", ";
  }
  out << "\n";
}

void PrintSolver(std::ostream& out, const SolverForecast& forecast) {
  const Counts counts = CountsOf(forecast.course.front());
  const CollectiveSums reductions = SumsOf(counts.reductions),
                       broadcasts = SumsOf(counts.broadcasts);
  out << "\n"
      << NameOf(solverNames, forecast.solver) << ": " << forecast.course.size()
      << " iterations, the first with " << Short(reductions.count, 3) << " reductions of "
      << Short(1e-6 * reductions.bytes) << " MB and " << Short(broadcasts.count, 3)
      << " broadcasts of " << Short(1e-6 * broadcasts.bytes) << " MB\n"
      << "           ms an iteration:                                         s           MB\n"
      << "processes    A and T  products     dense  collectives      sum      run    a process\n";
  for (std::size_t i = 0; i < forecast.costs.size(); ++i) {
    const Cost& cost = forecast.costs[i];
    const std::pair<double, int> fields[] = {
        {1e3 * cost.operators, 11},        {1e3 * cost.products, 10}, {1e3 * cost.dense, 10},
        {1e3 * cost.collectives, 13},      {1e3 * cost.Total(), 9},   {forecast.Seconds(i), 9},
        {1e-6 * forecast.bytesHeld[i], 13}};
    out << std::setw(9) << ForecastProcesses()[i];
    for (const auto& [value, width] : fields)
      out << std::setw(width) << Short(value, 3);
    out << "\n";
  }
  out << "fastest on " << forecast.FastestOn() << " processes\n";
}

/// By ranges of processes.
void PrintChoice(std::ostream& out, const std::vector<SolverForecast>& all) {
  const std::vector<int>& processes = ForecastProcesses();
  out << "\nchoose\n";
  for (std::size_t i = 0, first = 0; i < processes.size(); ++i) {
    const VesSolverType solver = Fastest(all, i).solver;
    if (i + 1 < processes.size() && Fastest(all, i + 1).solver == solver) continue;
    out << "  " << NameOf(solverNames, solver) << " on " << processes[first];
    if (i > first) out << " to " << processes[i];
    out << (i > 0 ? " processes\n" : " process\n");
    first = i + 1;
  }
  out << "Past the processes of this run it is a model: rows shared equally, dense problems solved "
         "by each\nprocess for itself, nothing of what A and T say to each other.\n";
}

Json Described(const std::vector<Collective>& collectives) {
  Json list = Json::array();
  for (const Collective& one : collectives)
    list.push_back({{"of", one.of}, {"count", one.count}, {"bytes", one.bytes}});
  return list;
}

Json Described(const SolverForecast& forecast) {
  const Counts counts = CountsOf(forecast.course.front());
  Json json{{"iterations", forecast.course.size()},
            {"operations", counts.operations},
            {"reductions", Described(counts.reductions)},
            {"broadcasts", Described(counts.broadcasts)},
            {"fastestOn", forecast.FastestOn()}};
  for (const Cost& cost : forecast.costs)
    json["costs"].push_back({{"operators", cost.operators},
                             {"products", cost.products},
                             {"dense", cost.dense},
                             {"collectives", cost.collectives},
                             {"total", cost.Total()}});
  json["bytesHeld"] = forecast.bytesHeld;
  return json;
}

bool WriteForecast(const std::string& path, const RunResult& run, const Machine& machine,
                   const std::vector<SolverForecast>& all) {
  Json json{{"version", VesGetVersion()},
            {"order", all.front().course.front().order},
            {"pairs", run.settings.pairs},
            {"preconditioner", run.preconditioner},
            {"processes", ForecastProcesses()}};
  for (const MachineConstant& constant : machineConstants)
    json["machine"][constant.name] = machine.*constant.value;
  for (const SolverForecast& forecast : all)
    json["solvers"][NameOf(solverNames, forecast.solver)] = Described(forecast);
  for (std::size_t i = 0; i < ForecastProcesses().size(); ++i)
    json["choose"].push_back(NameOf(solverNames, Fastest(all, i).solver));
  std::ofstream file(path);
  file << json.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
  file.close();
  return file.good();
}

} // namespace

std::vector<RunShape> CourseOf(const RunResult& run) {
  const bool isBatch = run.settings.solver == VES_LOBPCG_BATCH;
  const double pairs = run.settings.pairs;
  RunShape shape;
  shape.solver = run.settings.solver;
  shape.order = run.order;
  shape.active = pairs;
  shape.block = std::min(run.settings.pairs, subBlock);
  shape.passes = run.settings.orthoPasses;
  shape.hasT = run.stats.columnsT > 0;
  shape.hasB = run.stats.columnsB > 0;
  shape.isComplex = run.scalar == VES_COMPLEX_DOUBLE;
  std::vector<RunShape> course;
  for (std::size_t i = 1; i < run.history.size(); ++i) {
    const HistoryEntry &before = run.history[i - 1], &entry = run.history[i];
    shape.active = std::clamp(static_cast<double>(entry.columnsA - before.columnsA), 1.0, pairs);
    shape.locked = isBatch ? entry.converged : pairs - shape.active;
    course.push_back(shape);
  }
  if (course.empty()) course.push_back(shape);
  return course;
}

int SolverForecast::FastestOn() const {
  const auto fastest =
      std::min_element(costs.begin(), costs.end(),
                       [](const Cost& a, const Cost& b) { return a.Total() < b.Total(); });
  return ForecastProcesses()[static_cast<std::size_t>(fastest - costs.begin())];
}

bool ForecastSolvers(const Options& options, std::ostream& out, MPI_Comm comm) {
  const MachineChoice choice = ParseMachine(options.forecast.machine);
  const Options plain = PlainOptions(options);
  ProbeOutput(plain, comm);
  std::vector<RunResult> runs;
  bool isGood = true;
  RunSolvers(plain, comm, [&](const RunResult& run) {
    runs.push_back(run);
    isGood = isGood && run.IsAccepted();
  });
  Machine machine = choice.Completed({});
  if (choice.IsHere()) machine = choice.Completed(Calibrated(MeasureMachine(comm), runs));
  std::vector<SolverForecast> all;
  all.reserve(runs.size());
  for (const RunResult& run : runs)
    all.push_back(ForecastOf(run, plain, machine));
  PrintProblem(out, runs.front());
  out << "forecast for order " << all.front().course.front().order << ", "
      << runs.front().settings.pairs << " pairs, preconditioner " << runs.front().preconditioner
      << "\n";
  PrintMachine(out, choice, machine);
  for (const SolverForecast& forecast : all)
    PrintSolver(out, forecast);
  PrintChoice(out, all);
  const std::string& path = options.output.json;
  const bool isLost =
      !path.empty() && Rank(comm) == 0 && !WriteForecast(path, runs.front(), machine, all);
  AgreeOn(isLost ? path + ": cannot be written" : "", exitInput, comm);
  return isGood;
}

} // namespace VesTools
