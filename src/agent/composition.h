// The composition root: puts the parts of the agent together for one start and takes them apart after it.
//
// Made by startAgent before anything else runs. It takes the operating system that the host's options in
// the environment (KORVANE_REGISTRY, KORVANE_RUN_DIR) describe, resets every process-wide flag, opens the
// agent's own log and keeps its settings in step with the store, and wires what the rooms declare and
// cannot know: the IDS component, the source of local addresses. Last it starts the local channel's service,
// so that an agent can be asked before it is registered. Its destructor undoes that in reverse order; no thread of the agent may run then but those that were left behind, for whose sake the platform
// is never freed.
#pragma once

#include <memory>

#include "agent/own_log.h"
#include "config/hids_interface.h"

namespace korvane {

class Thread;

class Composition {
 public:
  Composition();
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

 private:
  void endLocalService();

  const int _abandonedBefore;
  std::unique_ptr<OwnLog> _log;
  std::unique_ptr<HidsInterface> _ids;
  Thread* _localService = nullptr;
};

}  // namespace korvane
