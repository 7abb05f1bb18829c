// Who has connected to a pipe and is not served yet. Only for the POSIX pipes.
//
// Every ordinary account has one place; what else it connects is closed at once, so that no
// account keeps another out. Administrators (root and the server's own account) have places of
// their own and are served first. The system names the account of a connection.
//
// Letting in and closing what has no place take time of the server's. So a flood is let in by
// batches: admit() takes at most kBatch connections and nothing more for kPauseMs when it closed
// one, or when the ordinary callers have cost enough already.
// Threads: the pipe's.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>

#include "platform/descriptor_posix.h"
#include "platform/monitor_posix.h"

namespace korvane::platform {

struct Caller {
  Descriptor connection;
  uid_t account = 0;
  bool administrator = false;
};

class WaitingRoom {
 public:
  static constexpr int kBatch = 64;
  static constexpr uint32_t kPauseMs = 100;
  static constexpr size_t kAccounts = 16;
  static constexpr size_t kAdministrators = 16;

  // Lets in who stands at the listener. False when the system has no descriptor left for one.
  bool admit(int listener, bool sparingly);
  // Whether the listener is worth a wait; otherwise admissionPauseMs() says for how long not.
  bool admits() const { return !_full && pauseMs() == 0; }
  uint32_t pauseMs() const;

  bool empty() const { return _administrators.empty() && _others.empty(); }
  bool administratorWaits() const { return !_administrators.empty(); }
  // The next one to be served: administrators before others, each in their order. Not when empty.
  Caller next();

 private:
  // False: there is no place for it.
  bool place(Caller caller);

  std::deque<Caller> _administrators;
  std::deque<Caller> _others;
  Deadline _closedUntil{0};
  bool _full = false;  // as many administrators wait as may; the others stand at the listener
};

// The account at the other end of a connection; false when the system does not tell.
[[nodiscard]] bool accountOf(int connection, uid_t& account);
// Root, or the calling process's own account.
[[nodiscard]] bool isAdministrator(uid_t account);

}  // namespace korvane::platform
