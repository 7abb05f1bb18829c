// Who has connected to a pipe and is not served yet. Only for the Win32 pipes.
//
// A door is an instance of the pipe that listens. Who has connected stays in the instance, and
// another one takes its place at the door before anything is closed: so the name is served all the
// time, and nobody else can take it. The rule for those who wait is caller_places.h's; who finds no
// place is closed at once.
//
// There is one door. Where callers are closed for want of a place, so that one may be taken all
// the time, there are twice as many as were closed, kDoors at most, until nobody comes any more;
// and nothing is let in for kPauseMs, since letting in and closing take time of the server's.
// Threads: the pipe's.
#pragma once

#include <vector>

#include "platform/caller_places.h"
#include "platform/pipe_peers_win.h"
#include "platform/pipes.h"

namespace korvane::platform {

class WaitingRoom {
 public:
  using Places = CallerPlaces<FileHandle, std::string>;
  static constexpr size_t kDoors = 16;
  static constexpr uint32_t kPauseMs = 100;

  WaitingRoom(std::wstring name, PipeAudience audience, ClientAccountOf accountOf)
      : _name(std::move(name)), _audience(audience), _accountOf(std::move(accountOf)) {}

  // Serves the name. 231: somebody does already.
  [[nodiscard]] uint32_t open();
  // Lets in who stands at a door. Who cannot be let in, for want of a handle, stays there.
  void admit(bool sparingly);
  bool empty() const { return _places.empty(); }
  bool administratorWaits() const { return _places.administratorWaits(); }
  Places::Caller next() { return _places.next(); }

 private:
  FileHandle makeInstance(DWORD flags);
  bool place(FileHandle instance);

  const std::wstring _name;
  const PipeAudience _audience;
  const ClientAccountOf _accountOf;
  LocalMemory _access;
  std::vector<FileHandle> _doors;  // never empty once open
  Places _places;
  ULONGLONG _closedUntil = 0;
};

}  // namespace korvane::platform
