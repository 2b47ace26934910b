#ifndef VES_TOOLS_COMMANDS_H
#define VES_TOOLS_COMMANDS_H

#include "options.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace VesTools {

/// The commands below the program.
struct Commands {
  CLI::App* solve;
  CLI::App* convert;
  CLI::App* check;
  CLI::App* bench;
  CLI::App* info;
};

/// What each command is told.
struct CommandOptions {
  Options solve, convert, check, bench, info;
};

/// Describes the program: all commands, and where their options go, which must outlive it.
Commands Describe(CLI::App& app, CommandOptions& options);

std::string Joined(const std::vector<std::string>& names, const char* separator);

} // namespace VesTools

#endif
