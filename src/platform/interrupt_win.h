// A sticky interrupt that a wait for a kernel object takes beside it. Only for the Win32 siblings.
#pragma once

#include <cstdint>

#include "platform/handles_win.h"

namespace korvane::platform {

enum class ObjectWait { signalled, timedOut, abandoned, interrupted, failed };

// Raised once, by any thread, and never lowered.
class WinInterrupt {
 public:
  WinInterrupt() : _event(::CreateEventW(nullptr, /*bManualReset=*/TRUE, FALSE, nullptr)) {}
  // False when the system had no handle left.
  bool valid() const { return static_cast<bool>(_event); }
  void raise() { ::SetEvent(_event.get()); }
  bool raised() const { return ::WaitForSingleObject(_event.get(), 0) == WAIT_OBJECT_0; }
  HANDLE event() const { return _event.get(); }

 private:
  const KernelObject _event;
};

// Waits until `object` is signalled, which wins over an interrupt. `failed` leaves
// GetLastError set.
ObjectWait waitForObject(HANDLE object, uint32_t timeoutMs, const WinInterrupt& interrupt);

}  // namespace korvane::platform
