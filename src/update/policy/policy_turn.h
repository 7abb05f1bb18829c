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
// stop of the agent (shutdownToken) ends the wait.
// Errors: taken() is false when the agent stops. Then nothing may be done.
//
//   const PolicyTurn turn;
//   if (turn.taken()) policy.retranslatePolicy();
#pragma once

namespace korvane {

class PolicyTurn {
 public:
  PolicyTurn();
  ~PolicyTurn();
  PolicyTurn(const PolicyTurn&) = delete;
  PolicyTurn& operator=(const PolicyTurn&) = delete;

  bool taken() const { return _taken; }

 private:
  bool _taken = false;
};

}  // namespace korvane
