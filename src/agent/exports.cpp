#include "agent/exports.h"

#include <cstdio>
#include <memory>
#include <optional>

#include "agent/session.h"
#include "platform/platform.h"

namespace korvane {
namespace {

// Never destroyed: a stop may come while the process ends.
AgentPlace& placeOfTheProcess() {
  static AgentPlace& place = *new AgentPlace;
  return place;
}

// On the operating system that the host's options in the environment describe.
std::shared_ptr<AgentRun> nativeRun() {
  platform::SystemInfo& system = platform::current().systemInfo;
  return platform::makeRun(platform::makeNativePlatform(
      {system.environment("KORVANE_REGISTRY"), system.environment("KORVANE_RUN_DIR")}));
}

}  // namespace
}  // namespace korvane

korvane::AgentInfo* startAgent() {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  // The host's own threads find the agent that runs, too.
  std::optional<korvane::ProcessRunScope> forTheHost;
  return korvane::placeOfTheProcess().run([&forTheHost] {
    std::shared_ptr<korvane::AgentRun> run = korvane::nativeRun();
    forTheHost.emplace(run);
    return run;
  });
}

const char* stopAgent() {
  korvane::placeOfTheProcess().end();
  return "The agent STOPPED and returned";
}
