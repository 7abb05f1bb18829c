// The commands of the host program.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "host/options.h"

namespace korvane::host {

// Carries out the command that was chosen and returns the exit status.
using Command = std::function<int()>;

// What every command that runs the agent takes.
void addAgentOptions(CLI::App& command, Options& options);

// The commands and options that this system has beside `run`: on Windows those of its service
// manager. `options` and `chosen` must outlive the parsing and the chosen command.
void addSystemCommands(CLI::App& app, CLI::App& run, Options& options, Command& chosen);

}  // namespace korvane::host
