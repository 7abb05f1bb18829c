// The parts that one run of the agent is made of, as the composition root hands them out.
//
// Only src/agent knows it: whatever is made here takes the parts that it uses, never the whole.
// Refers to the run's own parts, which live for as long as the run.
#pragma once

#include "config/settings.h"
#include "platform/fwd.h"

namespace korvane {

class Driver;
class ServerConnection;
struct RunParts;

struct AgentContext {
  platform::Platform& system;
  Settings settings;
  Driver& driver;
  ServerConnection& connection;
  RunParts& shared;
};

// Of the run that the calling thread has entered. Loads the settings the first time.
[[nodiscard]] AgentContext contextOfRun();

}  // namespace korvane
