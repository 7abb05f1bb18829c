#include "host/options.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "host/agent_library.h"
#include "host/messages.h"
#include "host/process_guard.h"
#include "platform/rights.h"

namespace korvane::host {
namespace {

constexpr char kSettings[] = "/IPS/agent.ini";

void handOver(const Options& options) {
  setEnvironment("KORVANE_INSTALL_ROOT", fullPath(options.installRoot));
  setEnvironment("KORVANE_REGISTRY", fullPath(options.registry));
  setEnvironment("KORVANE_RUN_DIR", fullPath(options.runDirectory));
  setEnvironment("KORVANE_ALLOW_UNSAFE", options.allowUnsafe ? "1" : "");
}

std::string libraryPath(const Options& options) {
  return options.library.empty() ? programDirectory() + "/" + agentLibraryName()
                                 : fullPath(options.library);
}

// What runs here, and what the agent cannot do without. Looked at before any of it is touched, the
// folder of the logs included; the agent looks again, for services of others.
bool isSafe(const Options& options) {
  std::vector<std::string> faults;
  const std::string root = fullPath(options.installRoot);
  for (const std::string& path :
       {programPath(), libraryPath(options), root.empty() ? root : root + kSettings,
        fullPath(options.registry), fullPath(options.runDirectory)})
    if (std::string fault = platform::unsafePart(path);
        !fault.empty() && std::find(faults.begin(), faults.end(), fault) == faults.end())
      faults.push_back(std::move(fault));
  for (const std::string& fault : faults)
    say(fault + (options.allowUnsafe ? "; used all the same"
                                     : "; nothing is started: correct owner and rights"));
  return faults.empty() || options.allowUnsafe;
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
  guardProcess();
  if (!isSafe(options)) return kExitFailed;
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
