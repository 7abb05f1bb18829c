#include "host/options.h"

#include <filesystem>

#include "host/agent_library.h"
#include "host/messages.h"

namespace korvane::host {
namespace {

void handOver(const Options& options) {
  setEnvironment("KORVANE_INSTALL_ROOT", fullPath(options.installRoot));
  setEnvironment("KORVANE_REGISTRY", fullPath(options.registry));
  setEnvironment("KORVANE_RUN_DIR", fullPath(options.runDirectory));
}

std::string libraryPath(const Options& options) {
  return options.library.empty() ? programDirectory() + "/" + agentLibraryName()
                                 : fullPath(options.library);
}

}  // namespace

std::string fullPath(const std::string& path) {
  if (path.empty()) return path;
  const std::filesystem::path given(std::u8string(path.begin(), path.end()));
  std::filesystem::path whole = std::filesystem::absolute(given).lexically_normal();
  if (!whole.has_filename() && whole != whole.root_path()) whole = whole.parent_path();
  const std::u8string full = whole.u8string();
  return {full.begin(), full.end()};
}

int runAgent(const Options& options, HostEvents& events, const StateListener& listener) {
  handOver(options);
  AgentLibrary library;
  std::string error;
  if (!loadAgentLibrary(libraryPath(options), library, error)) {
    say("cannot load the agent library: " + error);
    return kExitFailed;
  }
  return AgentService(library, events, options.stopDeadlineSeconds, listener).run();
}

}  // namespace korvane::host
