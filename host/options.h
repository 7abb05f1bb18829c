// The host's command line options, from an operator or from the service's entry in the service
// manager.
#pragma once

#include <cstdint>
#include <string>

#include "host/agent_service.h"
#include "host/host_events.h"

namespace korvane::host {

// Paths are UTF-8 and may be relative; empty where nothing was said.
struct Options {
  std::string installRoot;
  std::string registry;
  std::string runDirectory;
  std::string library;
  std::string stopEvent;
  bool allowUnsafe = false;  // files that strangers may change are used
  uint32_t stopDeadlineSeconds = AgentService::kStopDeadlineSeconds;
};

// The agent must find its files wherever it is: all paths are handed on in full.
std::string fullPath(const std::string& path);

// Loads the library and runs the agent until it has ended; returns the exit status.
int runAgent(const Options& options, HostEvents& events, const StateListener& listener = {});

}  // namespace korvane::host
