#include "platform/interrupt_win.h"

namespace korvane::platform {

ObjectWait waitForObject(HANDLE object, uint32_t timeoutMs, const WinInterrupt& interrupt) {
  const HANDLE objects[] = {object, interrupt.event()};
  switch (::WaitForMultipleObjects(2, objects, /*bWaitAll=*/FALSE, timeoutMs)) {
    case WAIT_OBJECT_0:
      return ObjectWait::signalled;
    case WAIT_OBJECT_0 + 1:
      return ObjectWait::interrupted;
    case WAIT_ABANDONED_0:
      return ObjectWait::abandoned;
    case WAIT_TIMEOUT:
      return ObjectWait::timedOut;
    default:
      return ObjectWait::failed;
  }
}

}  // namespace korvane::platform
