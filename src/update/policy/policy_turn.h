// The right to work on policies: one thread of the run has it at a time.
//
// An agent without a management server has two such threads, each with its own PolicyProcessor: the
// utility thread, and the thread of the cloud command channel. Everything that they do with their
// processors, or with what the processors keep (the folder "driver", the journal, the history, the
// driver's policy), they do within a turn. The update thread of a standard agent is alone and needs
// none.
//
// Lifetime: from construction to destruction. Threads: any; a thread that has its turn must not ask
// for another. A thread waits until the other is done, which may take as long as a translation; a
// stop of the agent ends the wait.
// Errors: taken() is false when the agent stops. Then nothing may be done.
//
//   const PolicyTurn turn(turns, stop);
//   if (turn.taken()) policy.retranslatePolicy();
#pragma once

#include "agent/thread/locks.h"
#include "agent/thread/primitive_holder.h"
#include "platform/fwd.h"

namespace korvane {

class StopToken;

// What the turns are taken from; one for each run of an agent.
class PolicyTurns {
 private:
  friend class PolicyTurn;

  [[nodiscard]] bool take();
  void release();
  // Set when somebody should look again; one of those who wait does.
  platform::Event& changed();

  Win32Mutex _lock;
  bool _busy GUARDED_BY(_lock) = false;
  PrimitiveHolder<platform::Event> _changed;
};

class PolicyTurn {
 public:
  PolicyTurn(PolicyTurns& turns, StopToken& stop);
  ~PolicyTurn();
  PolicyTurn(const PolicyTurn&) = delete;
  PolicyTurn& operator=(const PolicyTurn&) = delete;

  bool taken() const { return _taken; }

 private:
  PolicyTurns& _turns;
  bool _taken = false;
};

}  // namespace korvane
