// The frames between the agent and the driver simulator on its Unix socket (Linux only). Numbers
// are unsigned 32-bit, little-endian; docs/file-formats.md has the page for readers of the wire.
//
// A frame is a header of five numbers and a payload:
//   payload length, kind, number of the request, code, size
// request: code is the control code, size that of the output buffer, the payload the input
// cancel: gives the request of that number up
// answer: code is the error number, the payload the output
// answerAtOnce: the same, for a request that the driver finished before its call returned
#pragma once

#include <cstdint>

namespace korvane::platform {

enum class SimulatorFrame : uint32_t { request = 1, cancel = 2, answer = 3, answerAtOnce = 4 };

inline constexpr uint32_t kSimulatorHeaderBytes = 20;
inline constexpr uint32_t kSimulatorMaxBytes = 1024 * 1024;  // of a payload, and of an output

// Asks whether creating a key below TestForPrevention is to be refused: no input, 4 bytes of
// output, a u32 that is 1 when it is. The real driver refuses by itself and knows no such code.
inline constexpr uint32_t kSimulatorPreventionQuery = 0xF0000001;

}  // namespace korvane::platform
