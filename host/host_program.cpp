// korvane-host: the service that loads the agent library and runs the agent.
#include "host/host_program.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <string>

#include "host/agent_library.h"
#include "host/agent_service.h"
#include "host/host_events.h"

namespace {

using korvane::host::AgentLibrary;
using korvane::host::AgentService;
using korvane::host::HostEvents;

struct Options {
  std::string installRoot;
  std::string registry;
  std::string runDirectory;
  std::string library;
  uint32_t stopDeadlineSeconds = AgentService::kStopDeadlineSeconds;
};

void describe(CLI::App& app, Options& options) {
  app.require_subcommand(1);
  CLI::App* run =
      app.add_subcommand("run", "Runs the agent in the foreground until SIGINT or SIGTERM");
  run->add_option("--install-root", options.installRoot, "Where the agent is installed")
      ->required();
  run->add_option("--registry", options.registry, "The registry file");
  run->add_option("--run-dir", options.runDirectory,
                  "Where the driver's and the local channel's sockets are");
  run->add_option("--library", options.library,
                  "The agent library; the one beside this program otherwise");
  run->add_option("--stop-deadline", options.stopDeadlineSeconds,
                  "Seconds after which an agent that does not return is ended with the process")
      ->capture_default_str();
}

// The agent must find its files wherever it is: all paths are handed on in full.
std::string fullPath(const std::string& path) {
  if (path.empty()) return path;
  const std::filesystem::path given(std::u8string(path.begin(), path.end()));
  const std::u8string full = std::filesystem::absolute(given).lexically_normal().u8string();
  return {full.begin(), full.end()};
}

void handOver(const Options& options) {
  korvane::host::setEnvironment("KORVANE_INSTALL_ROOT", fullPath(options.installRoot));
  korvane::host::setEnvironment("KORVANE_REGISTRY", fullPath(options.registry));
  korvane::host::setEnvironment("KORVANE_RUN_DIR", fullPath(options.runDirectory));
}

int runAgent(const Options& options) {
  HostEvents events;
  handOver(options);
  const std::string path = options.library.empty() ? korvane::host::programDirectory() + "/" +
                                                         korvane::host::agentLibraryName()
                                                   : fullPath(options.library);
  AgentLibrary library;
  std::string error;
  if (!korvane::host::loadAgentLibrary(path, library, error)) {
    std::fprintf(stderr, "korvane-host: cannot load the agent library: %s\n", error.c_str());
    return korvane::host::kExitFailed;
  }
  return AgentService(library, events, options.stopDeadlineSeconds).run();
}

}  // namespace

int korvane::host::runProgram(const std::vector<std::string>& arguments) {
  CLI::App app("Runs the Korvane agent", "korvane-host");
  Options options;
  describe(app, options);
  std::vector<std::string> lastFirst(arguments.rbegin(), arguments.rend());
  try {
    app.parse(std::move(lastFirst));
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  try {
    return runAgent(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "korvane-host: %s\n", error.what());
    return kExitFailed;
  }
}
