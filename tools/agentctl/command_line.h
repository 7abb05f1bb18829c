// The command line of agentctl: global options, commands, and error messages.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agentctl/commands.h"

namespace korvane::agentctl {

// The whole program as CLI11 knows it. `context` and `chosen` outlive it.
std::unique_ptr<CLI::App> makeCommandLine(Context& context, Action& chosen);

// Parses and runs; what it returns is the exit status of the process. `arguments`: without
// the program's name.
int runCommandLine(const std::vector<std::string>& arguments);

}  // namespace korvane::agentctl
