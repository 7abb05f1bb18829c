// Driver devices that do what a test says, the results that no real driver gives on demand
// included.
//
// A request's course is a DeviceScript, taken when the request is prepared: the next one
// queued for its control code, else the one the handler gives, else an immediate success
// without output. Thread-safe.
// Lifetime: devices and requests must not outlive the object.
//
//   devices.queue(0x80008001, DeviceScript::pending(5, 31));    // ends after 5 ms with error 31
//   devices.queue(0x80008001, DeviceScript::waitEnds(DeviceWait::abandoned));
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/driver_device.h"
#include "platform/error_codes.h"
#include "platform/fake/fake_lock.h"
#include "platform/threading.h"

namespace korvane::platform {

struct DeviceScript {
  uint32_t prepareError = kOk;  // what the completion event's creation gives
  uint32_t issueResult = kOk;   // what the call gives: 0, 997 or an error
  uint32_t afterMs = 0;         // how long a pending request takes; kInfinite: forever
  uint32_t result = kOk;        // how a pending request ends
  std::optional<DeviceWait>
      waitOutcome;                // what every wait answers at once, whatever else is said here
  std::vector<std::byte> output;  // cut to the buffer; 234 is not set by that

  static DeviceScript atOnce(uint32_t error, std::vector<std::byte> output = {});
  static DeviceScript pending(uint32_t afterMs, uint32_t result,
                              std::vector<std::byte> output = {});
  static DeviceScript waitEnds(DeviceWait outcome);
  static DeviceScript noEvent(uint32_t error);
};

class FakeDevices final : public Devices {
 public:
  struct Call {
    uint32_t controlCode;
    std::vector<std::byte> input;
    size_t outputSize;
  };
  using Handler = std::function<std::optional<DeviceScript>(const Call&)>;

  explicit FakeDevices(Threading& threading) : _threading(threading) {}

  uint32_t open(const std::string& name, std::unique_ptr<Device>& out) override;

  void setOpenError(uint32_t error);
  void queue(uint32_t controlCode, DeviceScript script);
  void setHandler(Handler handler);
  // All requests prepared so far.
  std::vector<Call> calls();
  // Devices that are open, and requests that exist.
  int openDevices();
  int openRequests();

 private:
  friend class FakeDevice;
  friend class FakeRequest;
  DeviceScript take(const Call& call);
  void count(int devices, int requests);

  Threading& _threading;
  FakeMutex _mutex;
  uint32_t _openError GUARDED_BY(_mutex) = kOk;
  std::map<uint32_t, std::deque<DeviceScript>> _queues GUARDED_BY(_mutex);
  Handler _handler GUARDED_BY(_mutex);
  std::vector<Call> _calls GUARDED_BY(_mutex);
  int _openDevices GUARDED_BY(_mutex) = 0;
  int _openRequests GUARDED_BY(_mutex) = 0;
};

}  // namespace korvane::platform
