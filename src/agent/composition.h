// The composition root: puts the parts of the agent together for one start and takes them apart after it.
//
// Created by a start before anything else runs, on the platform that is current then. It resets
// every process-wide flag, opens the agent's own log and keeps its settings in step with the store,
// and wires what the rooms only declare: the IDS component, the source of local addresses. Last it
// starts the local channel's service, so that an agent can be queried before it is registered. Its
// destructor undoes that in reverse order; by then no thread of the agent may be running except
// abandoned ones, for whose sake the platform is never freed.
//
// Errors: if something is not available the constructor throws, after event 10560 and after undoing
// what it had done. The destructor performs every step, whatever fails (event 10562).
#pragma once

#include <functional>
#include <memory>

#include "agent/own_log.h"
#include "config/hids_interface.h"

namespace korvane {

class Thread;

// Makes the operating system that the host's options in the environment (KORVANE_REGISTRY, KORVANE_RUN_DIR)
// describe the current one. No other thread of the agent may run.
void adoptNativePlatform();

// An agent that cannot be put together.
inline constexpr int kEventNotStarted = 10560;

class Composition {
 public:
  // afterReset is called behind the reset of the flags, before anything that may have to wait.
  explicit Composition(const std::function<void()>& afterReset);
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

 private:
  void assemble(const std::function<void()>& afterReset);
  void takeDown() noexcept;
  void endLocalService();

  const int _abandonedBefore;
  std::unique_ptr<OwnLog> _log;
  std::unique_ptr<HidsInterface> _ids;
  Thread* _localService = nullptr;
};

}  // namespace korvane
