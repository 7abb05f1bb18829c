// One start of the whole agent, composition included, on a simulated machine without an own log.
#pragma once

#include <memory>

#include "agent/session.h"
#include "tests/support/simulated_agent.h"
#include "tests/support/watchdog.h"

namespace korvane::tests {

class SessionRun {
 public:
  explicit SessionRun(SimulatedMachine& machine) : SessionRun(machine, machine.fake.platform()) {}
  // With another platform for the agent than the machine's.
  SessionRun(SimulatedMachine& machine, platform::Platform& platform) {
    machine.beginRun(platform);
    _host = machine.sim.createThread(0, [this] {
      info = _place.run([] { return AgentRun::current().shared_from_this(); });
      _returned = true;
    });
  }
  ~SessionRun() { stop(); }

  bool returned() const { return _returned; }
  // A stop on a simulated thread of its own.
  std::unique_ptr<platform::NativeThread> stopBeside(SimulatedMachine& machine) {
    return machine.sim.createThread(0, [this] { _place.end(); });
  }
  // True when the stop and the run came back, within a simulated minute and a half.
  bool stop() {
    const Wait wait("the agent's stop");
    _place.end();
    return _host->join(90000) == platform::WaitResult::signalled;
  }

  AgentInfo* info = nullptr;

 private:
  AgentPlace _place;
  bool _returned = false;
  std::unique_ptr<platform::NativeThread> _host;
};

}  // namespace korvane::tests
