// The requests to the driver's device.
#include <algorithm>

#include "agent/thread/stop_token.h"
#include "driver/driver.h"
#include "driver/driver_protocol.h"
#include "eventlog/event_log.h"
#include "platform/driver_device.h"
#include "platform/error_codes.h"

namespace korvane {
namespace {

using platform::DeviceRequest;
using platform::DeviceWait;

constexpr char kDeviceName[] = "\\\\.\\KAVIPS";
constexpr char kOpenTag[] = "OpenDriver()";
constexpr char kNotifyTag[] = "NotifyDriver()";

bool hasInput(uint32_t code) {
  return code == KAVIPS_LOAD_POLICY;
}

bool hasOutput(uint32_t code) {
  return code == KAVIPS_QUERY_REFUSAL || code == KAVIPS_PSET_SNAPSHOT ||
         code == KAVIPS_QUERY_POLICY || code == KAVIPS_PROCESS_SNAPSHOT;
}

// Only a finished request has an output that nobody writes to any more.
void decodeReply(const DeviceRequest& request, std::span<std::byte> reply) {
  const std::span<const std::byte> output = request.output();
  std::copy_n(output.begin(), std::min(output.size(), reply.size()), reply.begin());
}

int32_t finish(DeviceRequest& request, std::span<std::byte> reply) {
  const uint32_t error = request.result();
  eventlog::trace(kNotifyTag, "Waited, %s", error == platform::kOk ? "okay" : "failed");
  if (error != platform::kOk && error != platform::kErrorMoreData)
    return NotifyResult::finishedWithError;
  decodeReply(request, reply);
  return error == platform::kOk ? NotifyResult::completed : NotifyResult::moreData;
}

}  // namespace

std::unique_ptr<platform::Device> Driver::open() {
  std::unique_ptr<platform::Device> device;
  const uint32_t error = _parts.devices.open(kDeviceName, device);
  if (error != platform::kOk) {
    if (!_openingFails.exchange(true)) eventlog::event(EventId::driverNotOpened, kOpenTag, {error});
    return nullptr;
  }
  if (_openingFails.exchange(false)) eventlog::event(EventId::driverOpensAgain, kOpenTag);
  return device;
}

int32_t Driver::waitFor(DeviceRequest& request, std::span<std::byte> reply, uint32_t timeoutMs) {
  eventlog::trace(kNotifyTag, "I/O pending.");
  eventlog::trace(kNotifyTag, "Waiting for I/O, max %ld ms.", timeoutMs);
  DeviceWait outcome;
  {
    StopCallback interrupt(_parts.stop, [&request] { request.interrupt(); });
    outcome = request.wait(timeoutMs);
  }
  eventlog::trace(kNotifyTag, "Done waiting.");
  switch (outcome) {
    case DeviceWait::signalled:
      return finish(request, reply);
    case DeviceWait::abandoned:
      eventlog::event(EventId::driverWaitAbandoned, kNotifyTag);
      return NotifyResult::noEvent;
    case DeviceWait::timedOut:
      eventlog::event(EventId::driverRequestTimedOut, kNotifyTag, {timeoutMs});
      request.cancel();
      return NotifyResult::timedOut;
    case DeviceWait::interrupted:
      // A stop of the agent is not a fault of the driver's and makes no event.
      eventlog::trace(kNotifyTag, "The agent stops, the request is cancelled.");
      request.cancel();
      return NotifyResult::timedOut;
    case DeviceWait::failed:
      break;
  }
  return NotifyResult::completed;
}

int32_t Driver::send(DeviceRequest& request, std::span<std::byte> reply, uint32_t timeoutMs) {
  const uint32_t error = request.issue();
  if (error == platform::kErrorIoPending) return waitFor(request, reply, timeoutMs);
  if (error == platform::kOk) {
    eventlog::trace(kNotifyTag, "I/O completed.");
    decodeReply(request, reply);
    return NotifyResult::completed;
  }
  eventlog::event(EventId::driverRequestFailed, kNotifyTag, {error});
  return NotifyResult::failedAtOnce;
}

int32_t Driver::request(uint32_t code, std::span<std::byte> buffer, uint32_t timeoutMs) {
  const std::unique_ptr<platform::Device> device = open();
  if (!device) return NotifyResult::notOpened;

  const std::span<std::byte> input = hasInput(code) ? buffer : std::span<std::byte>();
  const std::span<std::byte> reply = hasOutput(code) ? buffer : std::span<std::byte>();
  std::unique_ptr<DeviceRequest> made;
  const uint32_t error = device->prepare(code, input, reply.size(), made);
  if (error != platform::kOk) {
    eventlog::event(EventId::driverEventNotCreated, kNotifyTag, {error});
    return NotifyResult::noEvent;
  }
  return send(*made, reply, timeoutMs);
}

}  // namespace korvane
