// One run of the agent object on a simulated machine, on a thread as the host gives it.
#pragma once

#include <memory>

#include "agent/korvane_agent.h"
#include "agent/thread/agent_info.h"
#include "tests/support/simulated_agent.h"
#include "tests/support/watchdog.h"

namespace korvane::tests {

class RunningAgent {
 public:
  explicit RunningAgent(SimulatedMachine& machine) : _machine(machine) {
    _host = machine.sim.createThread(0, [this] {
      agent.run(&info);
      _returned = true;
    });
  }
  ~RunningAgent() {
    if (!_returned) stop();
  }

  bool returned() const { return _returned; }
  // Stops the agent from this thread; gives the simulated milliseconds until both calls are back.
  int64_t stop() {
    const int64_t before = _machine.now();
    const Wait wait("the agent's stop");
    agent.shutdown();
    _host->join(platform::kInfinite);
    return _machine.now() - before;
  }

  AgentInfo info;
  KorvaneAgent agent{contextOfRun()};

 private:
  SimulatedMachine& _machine;
  bool _returned = false;
  std::unique_ptr<platform::NativeThread> _host;
};

}  // namespace korvane::tests
