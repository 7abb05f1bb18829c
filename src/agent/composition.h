// The composition root: puts the parts of the agent together for one start and takes them
// apart after it.
//
// Created by a start before anything else runs, in the run that the calling thread has entered. It
// looks at who may change the installation, opens the agent's own log and keeps its settings in step with the store, and wires what the rooms
// only declare: the IDS component, the source of local addresses. Last it starts the local
// channel's service, so that an agent can be queried before it is registered. Its destructor undoes
// that in reverse order; by then no thread of the agent may be running except abandoned ones, which
// keep their run and everything in it.
//
// Errors: if something is not available the constructor throws, after event 10560 and after undoing
// what it had done. The destructor performs every step, whatever fails (event 10562).
#pragma once

#include <memory>

#include "agent/own_log.h"

namespace korvane {

class LossLedger;
class ServerConnection;
class Thread;

class Composition {
 public:
  Composition();
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

 private:
  void assemble();
  void tearDown() noexcept;
  void endLocalService();

  std::unique_ptr<OwnLog> _log;
  ServerConnection* _connection = nullptr;  // the run's
  LossLedger* _ledger = nullptr;            // the run's
  Thread* _localService = nullptr;
};

}  // namespace korvane
