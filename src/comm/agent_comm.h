// The communication component: how an agent enrols with its management.
//
// A standard agent has a StandardAgentComm, a cloud agent a CloudAgentComm, an agent of
// type 0 none.
// Lifetime: made by the main routine, deleted after it. Threads: stop() may come from any thread at
// any time; the rest belongs to the main routine's thread. Nothing throws.
#pragma once

#include <cstdint>

namespace korvane {

class AgentComm {
 public:
  virtual ~AgentComm() = default;

  // Sees whether the server answers at all; nobody acts on the result.
  [[nodiscard]] virtual bool testConnection() = 0;
  // Enrols the agent; true at once when it is enrolled, and true when a stop ended the attempt.
  // False is fatal: the agent ends itself. `builtinReported` is set to 1 when the step has reported
  // that the driver uses its built-in policy.
  [[nodiscard]] virtual bool registerAgent(uint8_t& builtinReported) = 0;
  // Tells the manager the present policy state.
  virtual void reportPolicyState() = 0;
  // Ends a registerAgent() in progress, its pauses and exchanges included, and every later one.
  virtual void stop() = 0;
};

}  // namespace korvane
