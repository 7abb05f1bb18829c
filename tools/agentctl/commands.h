// The commands of agentctl, one source file each.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "agentctl/context.h"
#include "agentctl/exit_status.h"

namespace korvane::agentctl {

// What the chosen command does. `context` outlives it.
using Action = std::function<ExitStatus()>;

// Each adds a command, with its options, to the program; when the command line asks for it,
// `chosen` becomes what it does.
void addStatus(CLI::App& app, Context& context, Action& chosen);
void addConfig(CLI::App& app, Context& context, Action& chosen);
void addPolicy(CLI::App& app, Context& context, Action& chosen);
void addLedger(CLI::App& app, Context& context, Action& chosen);
void addEvents(CLI::App& app, Context& context, Action& chosen);
void addTestConnection(CLI::App& app, Context& context, Action& chosen);
void addDiagnose(CLI::App& app, Context& context, Action& chosen);
void addRetranslate(CLI::App& app, Context& context, Action& chosen);
void addTrace(CLI::App& app, Context& context, Action& chosen);
void addVersion(CLI::App& app, Context& context, Action& chosen);
void addCompletion(CLI::App& app, Context& context, Action& chosen);
void addVerify(CLI::App& app, Context& context, Action& chosen);
void addCall(CLI::App& app, Context& context, Action& chosen);

// The parts of `config`.
void addConfigGet(CLI::App& config, Context& context, Action& chosen);
void addConfigSet(CLI::App& config, Context& context, Action& chosen);
void addConfigCheck(CLI::App& config, Context& context, Action& chosen);
void addConfigDiff(CLI::App& config, Context& context, Action& chosen);

}  // namespace korvane::agentctl
