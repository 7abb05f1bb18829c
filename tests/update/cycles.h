// An update thread on a simulated machine, whose cycles the test makes itself.
#pragma once

#include <string>

#include "tests/support/simulated_agent.h"
#include "update/update_thread.h"

namespace korvane::tests {

// Requests of a server by what stands in them.
inline size_t countRequests(const ScriptedServer& server, const std::string& path,
                            const std::string& needle) {
  size_t count = 0;
  for (const auto& request : server.requests(path))
    if (request.body.find(needle) != std::string::npos) ++count;
  return count;
}

struct Cycles {
  explicit Cycles(const std::string& settings)
      : machine({.settings = "agent.id=known\n" + settings}) {}
  void run(int count) {
    for (int i = 0; i < count; ++i) thread.cycle();
  }
  size_t statuses() const { return countRequests(machine.server, "result", "agent.osversion="); }
  size_t updates(const std::string& needle = "") const {
    return countRequests(machine.server, "update", needle);
  }
  size_t results(const std::string& needle) const {
    return countRequests(machine.server, "result", needle);
  }
  size_t statusesAfter(int count) {
    run(count);
    return statuses();
  }
  AgentConfig& config() { return *AgentConfig::getInstance(); }
  SimulatedMachine machine;
  UpdateThread thread{nullptr};
};

// The same with a notification port and no further statuses; a cycle is a simulated second then.
struct NotifiedCycles : Cycles {
  explicit NotifiedCycles(const std::string& settings = "")
      : Cycles("[TCP]\ntcp.enabled=true\ntcp.port=2222\n[Polling]\npolling.interval=9000000\n" +
               settings) {
    run(1);
  }
  void notify(char byte) {
    std::unique_ptr<platform::Socket> client;
    machine.fake.sockets.createTcp(client);
    size_t sent = 0;
    if (client->connect("127.0.0.1", 2222, 1000) == 0) client->send(&byte, 1, sent);
    run(1);
  }
};

}  // namespace korvane::tests
