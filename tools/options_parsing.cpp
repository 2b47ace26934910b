#include "closest.h"
#include "commands.h"
#include "error.h"
#include "names.h"
#include "options.h"

namespace VesTools {
namespace {

const char* const description =
    "Lowest eigenpairs of large Hermitian problems A x = lambda x and A x = lambda B x.";

std::vector<std::string> NamesOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({}))
    names.push_back(command->get_name());
  return names;
}

// What the program did not expect, with a name of that kind which is close to it.
std::string Suggestion(const CLI::App& app) {
  const auto rest = app.remaining(true);
  if (rest.empty()) return "";
  const auto chosen = app.get_subcommands();
  if (rest.front().front() != '-') {
    return chosen.empty() ? DidYouMean(rest.front(), NamesOf(app)) : "";
  }
  std::vector<std::string> names;
  for (const CLI::Option* option : (chosen.empty() ? &app : chosen.front())->get_options({}))
    if (!option->get_lnames().empty()) names.push_back("--" + option->get_lnames().front());
  return DidYouMean(rest.front().substr(0, rest.front().find('=')), names);
}

// Preconditioners are made from A, whose lowest pairs they serve; on the largest they only cost.
void PrepareForLargest(Options& options) {
  Preconditioner& kind = options.preconditioner.kind;
  if (!options.solver.isLargest || kind == Preconditioner::inner) return;
  if (kind != Preconditioner::automatic && kind != Preconditioner::none)
    throw CLI::ValidationError("--largest", "--precond " + NameOf(preconditionerNames, kind) +
                                                " serves the lowest pairs; take none or inner");
  kind = Preconditioner::none;
}

// Either files or a model; the empty name of a B that was not given goes.
void RequireProblem(ProblemOptions& problem) {
  const bool hasFile = !problem.files.front().empty();
  if (hasFile && !problem.model.empty()) throw CLI::ExcludesError("--model", "A");
  if (!hasFile && problem.model.empty()) throw CLI::RequiredError("A or --model");
  while (!problem.files.empty() && problem.files.back().empty())
    problem.files.pop_back();
}

} // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options& options, std::ostream& out,
                                std::ostream& err) {
  CLI::App app(description, "ves");
  CommandOptions all;
  const Commands commands = Describe(app, all);
  try {
    app.parse(argc, argv);
    // After the parsing, which names a command that there is not.
    if (app.get_subcommands().empty())
      throw CLI::RequiredError("a command (" + Joined(NamesOf(app), ", ") + ")");
    if (commands.solve->parsed()) {
      RequireProblem(all.solve.problem);
      PrepareForLargest(all.solve);
    }
  } catch (const CLI::Success& success) {
    return app.exit(success, out, err);
  } catch (const CLI::ParseError& error) {
    err << "ves: " << error.what() << Suggestion(app) << " (--help explains the options)\n";
    return exitUsage;
  }
  all.convert.command = Command::convert;
  all.check.command = Command::check;
  all.bench.command = Command::bench;
  all.info.command = Command::info;
  options = commands.solve->parsed()     ? all.solve
            : commands.convert->parsed() ? all.convert
            : commands.check->parsed()   ? all.check
            : commands.bench->parsed()   ? all.bench
                                         : all.info;
  return std::nullopt;
}

void ShowOptions(const std::function<void(CLI::App&)>& show) {
  CLI::App app(description, "ves");
  CommandOptions all;
  Describe(app, all);
  show(app);
}

} // namespace VesTools
