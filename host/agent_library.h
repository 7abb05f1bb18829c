// The agent library as the host sees it: loaded by its full path, called through its exports.
//
// Lifetime: a loaded library is never unloaded, because a thread that outlived the agent's stop may
// still run in it. Threads: the calls may come from any thread.
#pragma once

#include <string>

#include "agent/thread/agent_info.h"

namespace korvane::host {

struct AgentLibrary {
  AgentInfo* (*startAgent)() = nullptr;
  const char* (*stopAgent)() = nullptr;
  // The agent's shutting-down flag.
  bool (*shuttingDown)() = nullptr;
  // Whether the agent has come up.
  bool (*started)() = nullptr;
};

// Loads the library and finds its exports; false with a text that names the file and the reason.
bool loadAgentLibrary(const std::string& path, AgentLibrary& library, std::string& error);

// The file name of the library on this system.
std::string agentLibraryName();

// The symbols of AgentConfig::isAgentShuttingDown() and isAgentStarted(), static operations of an
// exported class.
inline constexpr char kShuttingDownSymbol[] = "_ZN7korvane11AgentConfig19isAgentShuttingDownEv";
inline constexpr char kStartedSymbol[] = "_ZN7korvane11AgentConfig14isAgentStartedEv";

}  // namespace korvane::host
