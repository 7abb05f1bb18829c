// The current run's Driver::request as a function: one control request to the kernel
// driver, which blocks for at most timeoutMs. A stop of the agent cuts that short, and the
// request then counts as timed out.
// Threads: any, several at once. Errors: a NotifyResult.
//
//   char reply[KAVIPS_POLICY_RECORD_BYTES] = {};
//   if (NotifyDriver(kQueryPolicy, reply, sizeof reply, 5000) == NotifyResult::completed) ...
#pragma once

#include <cstdint>

#include "driver/driver_result.h"
#include "util/export.h"

namespace korvane {

// code: one of driver_protocol.h, passed on unchanged. The codes that ask something fill up to
// `size` bytes of the buffer, loading a policy sends them, and any other code ignores the buffer.
KORVANE_EXPORT int32_t NotifyDriver(int32_t code, void* buffer, uint32_t size, uint32_t timeoutMs);

}  // namespace korvane
