// The error numbers of the seam. They are Win32's and Winsock's own numbers on every
// system; the POSIX side maps onto them. File operations use errno values, which both
// systems' C libraries have.
// Source of the numbers: winerror.h and winsock2.h.
#pragma once

#include <cstdint>

namespace korvane::platform {

inline constexpr uint32_t kOk = 0;

// Win32 (winerror.h): registry, device, processes, pipes, shared libraries.
inline constexpr uint32_t kErrorFileNotFound = 2;
inline constexpr uint32_t kErrorPathNotFound = 3;
inline constexpr uint32_t kErrorAccessDenied = 5;
inline constexpr uint32_t kErrorInvalidHandle = 6;
inline constexpr uint32_t kErrorNotEnoughMemory = 8;
inline constexpr uint32_t kErrorInvalidData = 13;
inline constexpr uint32_t kErrorBadLength = 24;
inline constexpr uint32_t kErrorGenFailure = 31;
inline constexpr uint32_t kErrorSharingViolation = 32;
inline constexpr uint32_t kErrorNotSupported = 50;
inline constexpr uint32_t kErrorInvalidParameter = 87;
inline constexpr uint32_t kErrorBrokenPipe = 109;
inline constexpr uint32_t kErrorInvalidName = 123;
inline constexpr uint32_t kErrorProcNotFound = 127;
inline constexpr uint32_t kErrorBadExeFormat = 193;
inline constexpr uint32_t kErrorFileNameTooLong = 206;
inline constexpr uint32_t kErrorBadPipe = 230;
inline constexpr uint32_t kErrorPipeBusy = 231;
inline constexpr uint32_t kErrorNoData = 232;
inline constexpr uint32_t kErrorPipeNotConnected = 233;
inline constexpr uint32_t kErrorMoreData = 234;
inline constexpr uint32_t kErrorPipeListening = 536;
inline constexpr uint32_t kErrorOperationAborted = 995;
inline constexpr uint32_t kErrorIoPending = 997;
inline constexpr uint32_t kErrorBadDatabase = 1009;
inline constexpr uint32_t kErrorDeviceNotConnected = 1167;
inline constexpr uint32_t kErrorNotFound = 1168;

// Winsock (winsock2.h): sockets.
inline constexpr int kWsaInterrupted = 10004;
inline constexpr int kWsaAccessDenied = 10013;
inline constexpr int kWsaInvalidArgument = 10022;
inline constexpr int kWsaTooManySockets = 10024;
inline constexpr int kWsaWouldBlock = 10035;
inline constexpr int kWsaNotSocket = 10038;
inline constexpr int kWsaAddressInUse = 10048;
inline constexpr int kWsaAddressNotAvailable = 10049;
inline constexpr int kWsaNetworkUnreachable = 10051;
inline constexpr int kWsaConnectionAborted = 10053;
inline constexpr int kWsaConnectionReset = 10054;
inline constexpr int kWsaNoBufferSpace = 10055;
inline constexpr int kWsaIsConnected = 10056;
inline constexpr int kWsaNotConnected = 10057;
inline constexpr int kWsaTimedOut = 10060;
inline constexpr int kWsaConnectionRefused = 10061;
inline constexpr int kWsaHostUnreachable = 10065;
inline constexpr int kWsaSystemCallFailure = 10107;  // for what has no number of its own
inline constexpr int kWsaHostNotFound = 11001;
inline constexpr int kWsaTryAgain = 11002;

}  // namespace korvane::platform
