// korvane-host: the service that loads the agent library and runs the agent.
#include "host/host_program.h"

#include <string>

#include "host/commands.h"
#include "host/messages.h"

namespace korvane::host {
namespace {

void addRun(CLI::App& app, Options& options, Command& chosen) {
  CLI::App* run = app.add_subcommand("run", "Runs the agent in the foreground until it is stopped");
  addAgentOptions(*run, options);
  run->add_option("--registry", options.registry, "Linux: the registry file");
  run->add_option("--run-dir", options.runDirectory,
                  "Linux: directory of the driver's and the local channel's sockets");
  run->callback([&options, &chosen] {
    chosen = [&options] {
      HostEvents events(StopRequests::fromTerminal, options.stopEvent);
      return runAgent(options, events);
    };
  });
  addSystemCommands(app, *run, options, chosen);
}

}  // namespace

void addAgentOptions(CLI::App& command, Options& options) {
  command.add_option("--install-root", options.installRoot, "Where the agent is installed");
  command.add_option("--library", options.library,
                     "The agent library; default: the one beside this program");
  command.add_flag("--allow-unsafe", options.allowUnsafe,
                   "Starts even though files of the agent may be changed by others");
  command
      .add_option("--stop-deadline", options.stopDeadlineSeconds,
                  "Seconds to wait for the agent to stop before the process is terminated")
      ->capture_default_str();
}

int runProgram(const std::vector<std::string>& arguments) {
  CLI::App app("Runs the Korvane agent", "korvane-host");
  app.require_subcommand(1);
  Options options;
  Command chosen;
  addRun(app, options, chosen);
  std::vector<std::string> lastFirst(arguments.rbegin(), arguments.rend());
  try {
    app.parse(std::move(lastFirst));
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  try {
    return chosen();
  } catch (const std::exception& error) {
    say(error.what());
    return kExitFailed;
  }
}

}  // namespace korvane::host
