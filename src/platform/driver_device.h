// Control requests to a driver's device, with their completion kept apart from their start, as
// overlapped I/O has it.
//
// A request owns its buffers; they live on until the driver is done with them, also when the
// request object is destroyed before that. Returns are Win32 error numbers.
// Threads: a request is used by one thread; interrupt() may be called by any other.
//
// Windows: CreateFile with FILE_FLAG_OVERLAPPED, DeviceIoControl, GetOverlappedResult, CancelIoEx.
// Linux: the Unix socket of the driver simulator in the run directory ("\\.\KAVIPS": kavips.sock);
// platform/simulator_frames.h has the frames. A simulator that has gone meanwhile gives 1167.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace korvane::platform {

enum class DeviceWait {
  signalled,  // the request has finished; result() tells how
  timedOut,
  abandoned,
  interrupted,  // interrupt() was called
  failed,       // the wait itself failed
};

class DeviceRequest {
 public:
  // Cancels a request that is still pending.
  virtual ~DeviceRequest() = default;
  // Sends the request. 0: finished already; 997: pending; anything else: failed at once.
  [[nodiscard]] virtual uint32_t issue() = 0;
  // Waits for a pending request.
  [[nodiscard]] virtual DeviceWait wait(uint32_t timeoutMs) = 0;
  // The outcome of a request that was signalled: 0, 234 (more data) or another error.
  [[nodiscard]] virtual uint32_t result() = 0;
  // Gives a pending request up: it finishes with 995, or with what it had come to just before.
  virtual void cancel() = 0;
  // Makes wait(), the present call and every later one, return `interrupted` unless the request has
  // finished. Any thread.
  virtual void interrupt() = 0;
  // The output buffer, of the size asked for, zero beyond what the driver wrote; valid once
  // finished. With 234 it holds the part that found room.
  virtual std::span<const std::byte> output() const = 0;
};

// An open device; closed by its destructor.
class Device {
 public:
  virtual ~Device() = default;
  // Prepares a request with a copy of `input` and room for outputSize bytes. Fails only when the
  // completion event is not available.
  [[nodiscard]] virtual uint32_t prepare(uint32_t controlCode, std::span<const std::byte> input,
                                         size_t outputSize,
                                         std::unique_ptr<DeviceRequest>& out) = 0;
};

class Devices {
 public:
  virtual ~Devices() = default;
  // Opens a device by its name ("\\.\KAVIPS") for reading and writing, shared with nobody.
  [[nodiscard]] virtual uint32_t open(const std::string& name, std::unique_ptr<Device>& out) = 0;
};

}  // namespace korvane::platform
