// The frames between the agent and the driver simulator on its Unix socket (Linux only). All numbers are
// little-endian; docs/file-formats.md has the page for readers of the wire.
//
// One connection carries one request:
//   request:  u32 magic, u32 control code, u32 input length, u32 output size, then the input
//   answer:   u32 error, u32 length, then that many bytes (never more than the output size)
// An answer whose error is 997 has no bytes and means that the request is pending: the final answer
// follows on the same connection, or never. A client that closes the connection cancels the request.
#pragma once

#include <cstdint>

namespace korvane::platform {

inline constexpr uint32_t kSimulatorMagic = 0x5652444B;  // "KDRV"
inline constexpr uint32_t kSimulatorRequestHeaderBytes = 16;
inline constexpr uint32_t kSimulatorAnswerHeaderBytes = 8;
inline constexpr uint32_t kSimulatorMaxBytes = 16 * 1024 * 1024;  // of an input, and of an output

// Asks whether creating a key below TestForPrevention is to be refused: no input, 4 bytes of output, a
// u32 that is not 0 when it is. The real driver refuses by itself and knows no such code.
inline constexpr uint32_t kSimulatorPreventionQuery = 0x8000FFFC;

}  // namespace korvane::platform
