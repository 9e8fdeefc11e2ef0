// cli.h - the command line of vexhost: subcommands, the options they share, one-line errors.
// In:  argv. Out: the exit code. Each subcommand adds itself in a file of its own (cli_<name>.cpp).
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "host/options.h"

namespace vex::host {

using Action = std::function<int()>;  // what to run once the whole line has been understood

void AddReplayCommand(CLI::App& app, Action& action);
void AddExplainCommand(CLI::App& app, Action& action);
void AddRunCommand(CLI::App& app, Action& action);  // only where VEX_LIVE is on
void AddCtlCommand(CLI::App& app, Action& action);  // likewise

// Options that more than one subcommand has.
void AddModuleOptions(CLI::App& command, ModuleOptions& options);
void AddPortBy(CLI::App& command, PortBy& port_by);
// A whole number of a range; anything else is one clear line.
CLI::Option* AddNumber(CLI::App& command, const std::string& name, const std::string& help, uint64_t min,
                       uint64_t max, const std::function<void(uint64_t)>& store);

int RunVexhost(int argc, const char* const* argv);

}  // namespace vex::host
