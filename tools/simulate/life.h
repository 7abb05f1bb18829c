// One start of the agent on the machine, whole, until it has stopped, ended or died.
//
// The object must stay until its last thread has gone.
#pragma once

#include <memory>

#include "agent/session.h"
#include "platform/fake/fake_platform.h"
#include "simulate/machine.h"
#include "simulate/process.h"

namespace korvane::simulation {

class Life {
 public:
  // `attention` is set when the agent has died or its main routine is over.
  Life(Machine& machine, platform::Event& attention);
  ~Life();
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  // Begins to stop the agent, on a thread of its own.
  void stop();
  bool ended() const { return _ended; }
  int64_t endedAt() const { return _endedAt; }
  bool gone() const { return _ended && line.threads == 0; }
  // What is left of it once it has ended.
  size_t handles();

  // Sends a byte to the port of its notifications; false when nobody listens.
  bool notify(uint8_t byte);
  // A client of the local channel that says something meaningless, or nothing.
  void disturbLocalChannel();

  ProcessLine line;
  platform::FakePlatform fake;

 private:
  void serve();

  Machine& _machine;
  platform::Event& _attention;
  ProcessFiles _files;
  ProcessRegistry _registry;
  ProcessThreads _threads;
  ProcessChildren _children;
  platform::Platform _system;
  std::shared_ptr<AgentRun> _run;
  std::weak_ptr<AgentRun> _watchedRun;
  AgentPlace _place;
  bool _ended = false;
  int64_t _endedAt = 0;
  std::unique_ptr<platform::NativeThread> _host, _stopper;
};

}  // namespace korvane::simulation
