// ves_pages TEMPLATE >PAGE makes the manual page and the completion of the shell from what the
// program tells of its options. Lines of a template that begin with @:
//   @options           options of solve up to @end; what is below @note OPTION follows that option
//   @names COMMAND     options of another command that solve has
//   @own COMMAND       those that it has for itself, in groups that solve does not have
//   @commands @values  cases of bash: what follows a command, and what an option
#include "options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

using Options = std::vector<CLI::Option*>;

std::string Replaced(const std::string& text, const char* from, const std::string& to) {
  return std::regex_replace(text, std::regex(from), to);
}

// In bold type, but for the commas.
std::string Bold(const std::string& names) {
  return "\\fB" + Replaced(Replaced(names, "-", "\\-"), ",", "\\fR,\\fB") + "\\fR";
}

std::string AllNames(const CLI::Option* option, const std::string& separator) {
  return Replaced(option->get_name(false, true), ",", separator);
}

// Group by group; without positional ones and --help.
Options OptionsOf(CLI::App* command) {
  Options options;
  for (const std::string& group : command->get_groups())
    for (CLI::Option* option : command->get_options({}))
      if (option->get_group() == group && !option->get_positional() &&
          option != command->get_help_ptr())
        options.push_back(option);
  return options;
}

// The names that an option takes stand at the end of its help.
std::string HelpOf(const CLI::Option* option) {
  std::string help = option->get_description(), names;
  if (option->get_type_name() == "NAME") {
    names = help.substr(help.rfind(": ") + 2);
    help.resize(help.size() - names.size());
  }
  // What has a colon within is to be typed as it stands.
  if (!std::regex_search(help, std::regex("^[^ ]*:[^ ]"))) help[0] = char(std::toupper(help[0]));
  const std::string preset = option->get_default_str();
  return Replaced(help, "-", "\\-") + Bold(names) + (preset.empty() ? "" : "; " + preset) + ".\n";
}

// Takes options off the list up to the one of that name, or all of them.
void PrintOptions(Options& options, const std::string& last, std::ostream& out) {
  static std::string group;
  while (!options.empty()) {
    const CLI::Option* option = options.front();
    options.erase(options.begin());
    if (option->get_group() != group) out << ".SS " << (group = option->get_group()) << "\n";
    out << ".TP\n"
        << Bold(AllNames(option, ", ")) << " \\fI" << option->get_type_name() << "\\fR\n";
    out << HelpOf(option);
    if (option->get_name() == last) return;
  }
  if (!last.empty()) throw std::runtime_error("no option, or not in their order: " + last);
}

bool IsOwn(const CLI::Option* option, const CLI::App* solve) {
  const auto groups = solve->get_groups();
  return std::find(groups.begin(), groups.end(), option->get_group()) == groups.end();
}

Options OwnOptions(CLI::App* command, const CLI::App* solve) {
  Options own;
  for (CLI::Option* option : OptionsOf(command))
    if (IsOwn(option, solve)) own.push_back(option);
  return own;
}

void PrintNames(CLI::App* command, CLI::App* solve, std::ostream& out) {
  std::string separator;
  for (const CLI::Option* option : OptionsOf(command)) {
    if (IsOwn(option, solve)) continue;
    const CLI::Option* twin = solve->get_option(option->get_name());
    const std::string preset = option->get_default_str();
    out << separator << Bold(option->get_name());
    if (preset != twin->get_default_str()) out << " (" << preset << ")";
    separator = ",\n";
  }
  out << ".\n";
}

void PrintCommands(CLI::App* command, std::ostream& out) {
  const auto commands = command->get_subcommands({});
  out << "    " << command->get_name() << ") words=\"--help";
  for (const CLI::App* each : commands)
    out << ' ' << each->get_name();
  for (const CLI::Option* option : OptionsOf(command))
    out << ' ' << AllNames(option, " ");
  out << "\" ;;\n";
  for (CLI::App* each : commands)
    PrintCommands(each, out);
}

// Files are the shell's to find, and nothing is offered for a number.
void PrintValues(const Options& options, std::ostream& out) {
  for (CLI::Option* option : options) {
    const std::string type = option->get_type_name();
    if (type.empty() || type == "FILE") continue;
    out << "  " << AllNames(option, " | ") << ") ";
    if (type == "NAME" || type == "TEXT")
      out << "words=\"" << option->get_validator(0)->get_name() << "\" ;;\n";
    else
      out << "return ;;\n";
  }
}

void PrintAllValues(CLI::App& app, CLI::App* solve, std::ostream& out) {
  PrintValues(OptionsOf(solve), out);
  for (CLI::App* command : app.get_subcommands({}))
    if (command != solve) PrintValues(OwnOptions(command, solve), out);
}

void Fill(CLI::App& app, std::istream& in, std::ostream& out) {
  CLI::App* solve = app.get_subcommand("solve");
  Options options;
  for (std::string line; std::getline(in, line);) {
    std::string word, argument;
    std::istringstream(line) >> word >> argument;
    if (word == "@options")
      options = OptionsOf(solve);
    else if (word == "@note" || word == "@end")
      PrintOptions(options, argument, out);
    else if (word == "@names")
      PrintNames(app.get_subcommand(argument), solve, out);
    else if (word == "@own")
      PrintOptions(options = OwnOptions(app.get_subcommand(argument), solve), "", out);
    else if (word == "@commands")
      PrintCommands(&app, out);
    else if (word == "@values")
      PrintAllValues(app, solve, out);
    else
      out << Replaced(line, "@version@", app.version()) << "\n";
  }
  if (!options.empty()) throw std::runtime_error("@end is missing");
}

} // namespace

int main(int argc, char** argv) {
  std::ifstream in(argc > 1 ? argv[1] : "");
  if (!in) throw std::runtime_error("no template of a page");
  VesTools::ShowOptions([&](CLI::App& app) { Fill(app, in, std::cout); });
}
