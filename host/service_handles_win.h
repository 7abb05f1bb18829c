// Owned handles that only the host has: those of the service manager, and memory that Win32
// gave away with LocalAlloc.
#pragma once

#include <type_traits>

#include "platform/handles_win.h"

namespace korvane::host {

struct ServiceHandleKind {
  using Value = SC_HANDLE;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::CloseServiceHandle(value); }
};
using ServiceHandle = platform::OwnedHandle<ServiceHandleKind>;

// T is a pointer type.
template <class T>
struct LocalMemoryKind {
  static_assert(std::is_pointer_v<T>);
  using Value = T;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::LocalFree(value); }
};
template <class T>
using LocalMemory = platform::OwnedHandle<LocalMemoryKind<T>>;

}  // namespace korvane::host
