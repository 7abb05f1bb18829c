// Who is at the other end of a pipe. Only for the Win32 pipes.
#pragma once

#include <functional>
#include <string>

#include "platform/handles_win.h"

namespace korvane::platform {

struct LocalMemoryKind {
  using Value = void*;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::LocalFree(value); }
};
using LocalMemory = OwnedHandle<LocalMemoryKind>;

struct ClientAccount {
  std::string sid;  // its bytes; empty when the system does not tell
  bool administrator = false;
};
using ClientAccountOf = std::function<ClientAccount(HANDLE pipe)>;

// Whose process has opened the client's end, before any byte of it is read. It decides about turns
// and about nothing else: the process may have handed its end on, or another has its number by now.
ClientAccount accountOfClientsProcess(HANDLE pipe);

// Once bytes of the client have been read: whether it is a member of Administrators, or SYSTEM.
bool clientIsAdministrator(HANDLE pipe);

// The server's account: SYSTEM, Administrators or the calling process's own.
bool isServedByTrusted(HANDLE pipe);

}  // namespace korvane::platform
