// Who has connected to a pipe and is not served yet. Only for the POSIX pipes.
//
// The rule is caller_places.h's; who finds no place is closed at once. Administrators are root and
// the server's own account. The system names the account of a connection.
//
// Letting in and closing what has no place take time of the server's. So a flood is let in by
// batches: admit() takes at most kBatch connections and nothing more for kPauseMs when it closed
// one, or when the ordinary callers have cost enough already.
// Threads: the pipe's.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "platform/caller_places.h"
#include "platform/descriptor_posix.h"
#include "platform/monitor_posix.h"

namespace korvane::platform {

class WaitingRoom {
 public:
  using Places = CallerPlaces<Descriptor, uid_t>;
  static constexpr int kBatch = 64;
  static constexpr uint32_t kPauseMs = 100;

  // Lets in who stands at the listener. False when the system has no descriptor left for one.
  bool admit(int listener, bool sparingly);
  // Whether the listener is worth a wait; otherwise admissionPauseMs() says for how long not.
  bool admits() const { return !_full && pauseMs() == 0; }
  uint32_t pauseMs() const;

  bool empty() const { return _places.empty(); }
  bool administratorWaits() const { return _places.administratorWaits(); }
  Places::Caller next();

 private:
  bool place(Descriptor connection);

  Places _places;
  Deadline _closedUntil{0};
  bool _full = false;  // as many administrators wait as may; the others stand at the listener
};

// The account at the other end of a connection; false when the system does not tell.
[[nodiscard]] bool accountOf(int connection, uid_t& account);
// Root, or the calling process's own account.
[[nodiscard]] bool isAdministrator(uid_t account);

}  // namespace korvane::platform
