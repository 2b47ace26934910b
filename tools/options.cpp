#include "options.h"

#include "commands.h"
#include "machine.h"
#include "names.h"

#include <cmath>

namespace VesTools {
namespace {

const char* const exitCodes =
    "Exit codes: 0 all pairs converged, or the check passed; 1 some did not; 2 wrong options;\n"
    "3 a file that cannot be used; 4 the library, MPI or memory failed.\n"
    "On several processes: mpirun -np 4 ves solve ...";

// CLI11's own range checks let NaN pass.
std::string CheckNumber(const std::string& text) {
  double value = 0.0;
  const bool isNumber = CLI::detail::lexical_cast(text, value);
  return isNumber && std::isfinite(value) ? "" : text + " is not a number";
}

std::string CheckPositive(const std::string& text) {
  double value = 0.0;
  const bool isNumber = CLI::detail::lexical_cast(text, value);
  return isNumber && value > 0.0 && std::isfinite(value) ? "" : text + " is not a number above 0";
}

// An empty name, as of a variable of the shell that is not set, must not pass for no name.
std::string CheckFilled(const std::string& text) {
  return text.empty() ? "it is empty" : "";
}

const CLI::Validator filled(CheckFilled, "");
const CLI::Validator finite(CheckNumber, "");
const CLI::Validator positive(CheckPositive, "");

CLI::Validator Between(int low, int high) {
  return CLI::Range(low, high).description("");
}

const CLI::Validator count = Between(1, 1000000000);

CLI::Validator Fraction() {
  return CLI::Range(0.0, 1.0).description("");
}

/// An option that takes one of the names of a table. They all are the name of its check, for the
/// completion of the shell.
template <typename Choice, typename Target>
CLI::Option* AddChoice(CLI::App& app, const std::string& flags, const Names<Choice>& names,
                       Target& target, const std::string& help) {
  std::vector<std::string> words;
  for (const auto& entry : names)
    words.push_back(entry.first);
  const auto take = [&names, &target](const std::string& name) { target = names.at(name); };
  return app.add_option_function<std::string>(flags, take, help + ": " + Joined(words, ", "))
      ->check(CLI::IsMember(&names).description(""), Joined(words, " "))
      ->type_name("NAME");
}

void DescribeProblem(CLI::App& app, ProblemOptions& problem, const std::string& group) {
  AddChoice(app, "--scalar", scalarNames, problem.scalar,
            "type of numbers, by the files if not given")
      ->group(group);
}

void DescribeModel(CLI::App& app, ProblemOptions& problem) {
  const std::pair<std::string, std::string> models[] = {
      {"laplace1d:", "N"},
      {"laplace2d:", "NxM"},
      {"laplace3d:", "NxMxL"},
      {"graph:", "FILE (Laplacian of a matrix or list of edges)"},
      {"silicon:", "supercell=N,ecut=RYDBERG"}};
  std::vector<std::string> names, help;
  for (const auto& [name, argument] : models) {
    names.push_back(name);
    help.push_back(name + argument);
  }
  app.add_option("--model", problem.model, Joined(help, ", "))
      ->check(filled, Joined(names, " "))
      ->group("Problem");
}

void DescribeRun(CLI::App& app, SolverOptions& solver, PreconditionerOptions& preconditioner) {
  app.add_option("-k,--pairs", solver.pairs, "lowest pairs to compute; 6")
      ->check(Between(1, 32765))
      ->group("Problem");
  app.add_option(
         "--tol", solver.tolerance,
         "threshold relative to estimates of ||A|| and ||B||; 1e-8, in single precision 1e-4")
      ->check(positive)
      ->group("Convergence");
  app.add_option("--threshold", solver.threshold, "absolute threshold in place of --tol")
      ->check(positive)
      ->excludes("--tol")
      ->group("Convergence");
  app.add_option("--max-iter", solver.maxIterations, "iterations at most")
      ->check(count)
      ->capture_default_str()
      ->group("Convergence");
  app.add_option("--time-limit", solver.timeLimit, "seconds after which the run ends")
      ->check(positive)
      ->group("Convergence");
  AddChoice(app, "--detector", detectorNames, solver.detector,
            "what is compared with the threshold; residuals if not given")
      ->group("Convergence");
  AddChoice(app, "--precond", preconditionerNames, preconditioner.kind,
            "preconditioner; auto takes shift-invert where its factors are cheap, or ic, where the "
            "diagonal is positive, else none")
      ->group("Preconditioner");
  app.add_option("--shift", preconditioner.shift,
                 "of shift-invert, below all eigenvalues; found if not given")
      ->check(finite)
      ->group("Preconditioner");
  app.add_option(
         "--seed", solver.seed,
         "of the random guess, 1 by default; where it is given nothing is decided by times, "
         "so that a run can be repeated to the last bit")
      ->group("Guess");
}

void DescribeLocking(CLI::App& app, SolverOptions& solver) {
  const std::string group = "Solver";
  app.add_option("--lock-factor", solver.lockFactor, "factor of the threshold at which pairs lock")
      ->check(Fraction())
      ->capture_default_str()
      ->group(group);
  AddChoice(app, "--lock-detector", detectorNames, solver.lockDetector, "test for locking")
      ->group(group);
  app.add_option("--ppcg-batch", solver.ppcgBatch, "columns of a sub-block of ppcg")
      ->check(count)
      ->group(group);
  app.add_option("--rr-period", solver.rrPeriod, "iterations between Rayleigh-Ritz steps of ppcg")
      ->check(Between(0, 1000000000))
      ->group(group);
  app.add_option("--soft-locking", solver.softLocking, "of ppcg: 0, 1 or 2")
      ->check(Between(0, 2))
      ->group(group);
  app.add_option("--ppcg-lock-factor", solver.ppcgLockFactor, "as --lock-factor, for ppcg alone")
      ->check(Fraction())
      ->group(group);
}

/// A number, or auto.
CLI::Option* AddCount(CLI::App& app, const std::string& name, std::optional<int>& target, int most,
                      const std::string& help) {
  const auto take = [&target](const std::string& text) {
    target = text == "auto" ? std::nullopt : std::optional<int>(std::stoi(text));
  };
  const CLI::Validator check(
      [=](std::string& text) { return text == "auto" ? "" : Between(0, most)(text); }, "");
  return app.add_option_function<std::string>(name, take, help)
      ->check(check, "auto")
      ->type_name("N")
      ->group("Solver");
}

void DescribeAdditions(CLI::App& app, SolverOptions& solver) {
  AddCount(app, "--guard", solver.guard, 32765,
           "columns iterated behind the wanted pairs, which converge in fewer iterations then; "
           "auto takes a quarter as many, 2 to 8, or none with shift-invert");
  AddCount(app, "--inner", solver.innerSteps, 1000,
           "Chebyshev steps around the preconditioner; auto takes what pays by the "
           "times of the run, none with --seed");
  AddChoice(app, "--precision", precisionNames, solver.precision,
            "double, or mixed, which begins in single precision; auto takes mixed but for "
            "shift-invert")
      ->group("Solver");
}

void DescribeSolver(CLI::App& app, SolverOptions& solver) {
  const std::string group = "Solver";
  Names<std::optional<VesSolverType>> names{{"auto", std::nullopt}};
  names.insert(solverNames.begin(), solverNames.end());
  static const auto withAuto = names;
  AddChoice(app, "--solver", withAuto, solver.type,
            "algorithm; auto takes lobpcg up to 64 pairs or a quarter of the order, lobpcg-batch "
            "above")
      ->group(group);
  app.add_option("--batch-limit", solver.batchLimit,
                 "most pairs that lobpcg-batch iterates at once; 64, "
                 "and up to 128 where they come no further")
      ->check(count)
      ->group(group);
  DescribeAdditions(app, solver);
  DescribeLocking(app, solver);
  app.add_option("--ortho-passes", solver.orthoPasses,
                 "orthogonalization passes; 2, in single precision 3")
      ->check(count)
      ->group(group);
  AddChoice(app, "--ortho", orthogonalizerNames, solver.orthogonalizer, "orthogonalizer")
      ->group(group);
  AddChoice(app, "--rank-revealer", orthogonalizerNames, solver.rankRevealer,
            "rank-revealing orthogonalizer")
      ->group(group);
  AddChoice(app, "--projector", projectorNames, solver.projector, "projector")->group(group);
  AddChoice(app, "--dense", denseNames, solver.dense,
            "dense eigensolver; lapack up to 4 processes, else scalapack")
      ->group(group);
  app.add_flag_callback(
         "--no-self-check", [&solver] { solver.hasSelfCheck = false; },
         "do without the self-check of the library")
      ->group(group);
}

void DescribeSolve(CLI::App& app, Options& options) {
  options.problem.files.resize(2);
  app.add_option("A", options.problem.files[0],
                 "matrix in a Matrix Market file or one of ves convert")
      ->check(filled)
      ->type_name("FILE");
  app.add_option("B", options.problem.files[1], "matrix B of A x = lambda B x")
      ->check(filled)
      ->type_name("FILE");
  DescribeModel(app, options.problem);
  DescribeProblem(app, options.problem, "Problem");
  app.add_option("--deflate", options.solver.deflate,
                 "columns of a Matrix Market file that vectors are kept orthogonal to, in B")
      ->check(filled)
      ->type_name("FILE")
      ->group("Problem");
  DescribeRun(app, options.solver, options.preconditioner);
  app.add_flag("--largest", options.solver.isLargest, "the highest pairs, from the largest down")
      ->group("Problem");
  app.add_option("--start", options.solver.start, "guess from a Matrix Market file")
      ->check(filled)
      ->type_name("FILE")
      ->group("Guess");
  DescribeSolver(app, options.solver);
  const std::string group = "Output";
  OutputOptions& output = options.output;
  app.add_option("--json", output.json, "write the result")
      ->check(filled)
      ->type_name("FILE")
      ->group(group);
  app.add_option("--vectors", output.vectors, "write the eigenvectors as a Matrix Market array")
      ->check(filled)
      ->type_name("FILE")
      ->group(group);
  app.add_option("--plot", output.plot, "draw residuals by iteration, values and costs (SVG)")
      ->check(filled)
      ->type_name("FILE")
      ->group(group);
  CLI::Option* quiet = app.add_flag("-q,--quiet", output.isQuiet, "print errors alone");
  app.add_flag("--progress", output.showsProgress,
               "print lines about the run while it lasts, for mpirun and logs")
      ->excludes(quiet)
      ->group(group);
  quiet->group(group);
}

void DescribeForecast(CLI::App& app, Options& options) {
  const std::string group = "Forecast";
  ForecastOptions& forecast = options.forecast;
  CLI::Option* asked =
      app.add_flag("--forecast", forecast.isAsked,
                   "tell what the solvers would take on 1 to 10,000 processes, and which to choose")
          ->group(group);
  std::vector<std::string> names{machineHere}, constants;
  for (const auto& machine : machines)
    names.push_back(machine.first);
  for (const MachineConstant& constant : machineConstants)
    constants.push_back(constant.name);
  app.add_option("--machine", forecast.machine,
                 "machine of the forecast: " + Joined(names, ", ") +
                     ", or CONSTANT=VALUE,... in place of or behind that, constants " +
                     Joined(constants, ", "))
      ->check(filled, Joined(names, " "))
      ->capture_default_str()
      ->needs(asked)
      ->group(group);
  app.add_option("--order", forecast.order, "rows of the forecast, if not those of the model")
      ->check(CLI::Range(1.0, 1e15).description(""))
      ->type_name("N")
      ->needs(asked)
      ->group(group);
  app.add_option("--json", options.output.json, "write the forecast")
      ->check(filled)
      ->type_name("FILE")
      ->needs(asked)
      ->group(group);
}

void DescribeBench(CLI::App& app, Options& options) {
  options.problem.model = "laplace3d:20x20x20";
  DescribeModel(app, options.problem);
  app.get_option("--model")->capture_default_str();
  DescribeProblem(app, options.problem, "Problem");
  app.add_option("--deflate", options.solver.deflate,
                 "columns of a Matrix Market file that vectors are kept orthogonal to, in B")
      ->check(filled)
      ->type_name("FILE")
      ->group("Problem");
  DescribeRun(app, options.solver, options.preconditioner);
  DescribeAdditions(app, options.solver);
  DescribeForecast(app, options);
}

void DescribeInfo(CLI::App& app, Options& options) {
  app.add_flag("--kernels", options.showsKernels,
               "print the kernels of OpenBLAS in use alone, for OPENBLAS_CORETYPE");
}

void DescribeConvert(CLI::App& app, Options& options) {
  options.problem.files.resize(1);
  app.add_option("IN", options.problem.files[0], "matrix in a Matrix Market file")
      ->required()
      ->check(filled)
      ->type_name("FILE");
  app.add_option("OUT", options.output.rows, "file of its rows, by custom named .ves")
      ->required()
      ->check(filled)
      ->type_name("FILE");
}

} // namespace

std::string Joined(const std::vector<std::string>& names, const char* separator) {
  std::string list;
  for (const std::string& name : names)
    list += (list.empty() ? "" : separator) + name;
  return list;
}

Commands Describe(CLI::App& app, CommandOptions& options) {
  auto& [solve, convert, check, bench, info] = options;
  app.set_version_flag("--version", std::string("ves ") + VesGetVersion());
  app.footer(exitCodes);
  app.require_subcommand(0, 1);
  Commands commands{};
  commands.solve = app.add_subcommand("solve", "compute the lowest pairs of a matrix or a model");
  DescribeSolve(*commands.solve, solve);
  commands.solve->footer(exitCodes);
  commands.convert = app.add_subcommand(
      "convert", "write a matrix as a file that many processes read without parsing");
  DescribeConvert(*commands.convert, convert);
  commands.convert->footer(exitCodes);
  commands.check = app.add_subcommand("check", "judge a result of solve --json --vectors afresh");
  commands.check->add_option("result", check.result, "file written by solve --json")
      ->required()
      ->check(filled)
      ->type_name("FILE");
  commands.check->footer(exitCodes);
  commands.bench = app.add_subcommand("bench", "compare the solvers on a model");
  DescribeBench(*commands.bench, bench);
  commands.info =
      app.add_subcommand("info", "show version, BLAS and LAPACK found, MPI and threads");
  DescribeInfo(*commands.info, info);
  return commands;
}

} // namespace VesTools
