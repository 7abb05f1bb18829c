#include "agent/exports.h"

#include <cstdio>
#include <memory>
#include <optional>

#include "agent/session.h"
#include "platform/platform.h"

namespace korvane {
namespace {

// Never destroyed: a stop may come while the process ends.
struct ProcessAgent {
  AgentPlace place;
  // The host's own threads find the agent that runs or ran last: that one has ended is seen there.
  std::optional<ProcessRunScope> run;  // a start alone touches it
};

ProcessAgent& processAgent() {
  static ProcessAgent& agent = *new ProcessAgent;
  return agent;
}

// On the operating system that the host's options in the environment describe.
std::shared_ptr<AgentRun> nativeRun() {
  return platform::makeRun(
      platform::makeNativePlatform(platform::optionsOfEnvironment(platform::current().systemInfo)));
}

std::shared_ptr<AgentRun> beginRun() {
  std::shared_ptr<AgentRun> run = nativeRun();
  processAgent().run.reset();
  processAgent().run.emplace(run);
  return run;
}

}  // namespace
}  // namespace korvane

korvane::AgentInfo* startAgent() {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  return korvane::processAgent().place.run(korvane::beginRun);
}

const char* stopAgent() {
  korvane::processAgent().place.end();
  return "The agent STOPPED and returned";
}
