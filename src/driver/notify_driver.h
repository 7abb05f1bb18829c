// The one way to send a control request to the kernel driver.
//
// The device is opened afresh for every request and closed after it; nothing is kept between
// requests but the memory that the last one could not open the device. A request that is given up
// goes on owning its buffers until the driver is done with them; the caller's buffer is free when
// the call returns.
// Threads: any, several at once; no lock is held. The call blocks for at most timeoutMs; the
// shutdown token cuts that short, and the request is then cancelled and counts as timed out.
// Errors: the result below. The agent's log gets 10112 for the first failed opening of a run of
// them and 10400 for the first one that works again, both counted within one start of the agent,
// 10116 to 10119 for the rest.
//
//   char reply[KAVIPS_POLICY_RECORD_BYTES] = {};
//   if (NotifyDriver(kQueryPolicy, reply, sizeof reply, 5000) == NotifyResult::completed) ...
#pragma once

#include <cstdint>

#include "util/export.h"

namespace korvane {

struct NotifyResult {
  static constexpr int32_t completed = 0;  // also when the wait itself failed
  static constexpr int32_t notOpened = 2;
  static constexpr int32_t noEvent = 3;  // no completion event, or the wait was abandoned
  static constexpr int32_t finishedWithError = 4;
  static constexpr int32_t timedOut = 5;
  static constexpr int32_t failedAtOnce = 6;
  static constexpr int32_t moreData = 8;
};

// code: one of driver_protocol.h, passed on unchanged. The codes that ask something fill up to
// `size` bytes of the buffer, loading a policy sends them, and any other code ignores the buffer.
KORVANE_EXPORT int32_t NotifyDriver(int32_t code, void* buffer, uint32_t size, uint32_t timeoutMs);

}  // namespace korvane
