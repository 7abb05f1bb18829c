#include <mutex>
#include <vector>

#include "platform/driver_device.h"
#include "platform/error_codes.h"
#include "platform/handles_win.h"
#include "platform/interrupt_win.h"
#include "platform/native.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

// What the driver works on while a request is pending. It must stay where it is until the
// driver is done.
struct PendingIo {
  OVERLAPPED overlapped{};
  KernelObject done;
  std::vector<std::byte> input;
  std::vector<std::byte> output;

  bool finished() const { return ::WaitForSingleObject(done.get(), 0) == WAIT_OBJECT_0; }
};

// Requests that were given up before the driver was done with them. Each later one frees those that
// have finished since; a driver that never finishes keeps its buffers. Never destroyed, as the
// driver may still write while the process ends.
class AbandonedIo {
 public:
  static AbandonedIo& get() {
    static AbandonedIo& process = *new AbandonedIo;
    return process;
  }

  void keep(std::unique_ptr<PendingIo> io) {
    const std::lock_guard hold(_lock);
    std::erase_if(_kept, [](const auto& one) { return one->finished(); });
    _kept.push_back(std::move(io));
  }

 private:
  std::mutex _lock;
  std::vector<std::unique_ptr<PendingIo>> _kept;
};

class OverlappedRequest final : public DeviceRequest {
 public:
  OverlappedRequest(std::shared_ptr<FileHandle> device, uint32_t controlCode,
                    std::unique_ptr<PendingIo> io)
      : _device(std::move(device)), _controlCode(controlCode), _io(std::move(io)) {}

  ~OverlappedRequest() override {
    if (!_issued || _io->finished()) return;
    cancel();
    if (!_io->finished()) AbandonedIo::get().keep(std::move(_io));
  }

  bool valid() const { return _interrupt.valid(); }

  uint32_t issue() override {
    _io->overlapped.hEvent = _io->done.get();
    const BOOL finished =
        ::DeviceIoControl(_device->get(), _controlCode, dataOf(_io->input), sizeOf(_io->input),
                          dataOf(_io->output), sizeOf(_io->output), nullptr, &_io->overlapped);
    const uint32_t error = finished ? kOk : ::GetLastError();
    _issued = finished || error == kErrorIoPending;
    return error;
  }

  DeviceWait wait(uint32_t timeoutMs) override {
    switch (waitForObject(_io->done.get(), timeoutMs, _interrupt)) {
      case ObjectWait::signalled:
        return DeviceWait::signalled;
      case ObjectWait::timedOut:
        return DeviceWait::timedOut;
      case ObjectWait::abandoned:
        return DeviceWait::abandoned;
      case ObjectWait::interrupted:
        return DeviceWait::interrupted;
      case ObjectWait::failed:
        break;
    }
    return DeviceWait::failed;
  }

  uint32_t result() override {
    DWORD bytes = 0;
    const BOOL succeeded =
        ::GetOverlappedResult(_device->get(), &_io->overlapped, &bytes, /*bWait=*/FALSE);
    return succeeded ? kOk : ::GetLastError();
  }

  void cancel() override { ::CancelIoEx(_device->get(), &_io->overlapped); }
  void interrupt() override { _interrupt.raise(); }
  std::span<const std::byte> output() const override { return _io->output; }

 private:
  static void* dataOf(std::vector<std::byte>& bytes) {
    return bytes.empty() ? nullptr : bytes.data();
  }
  static DWORD sizeOf(const std::vector<std::byte>& bytes) {
    return static_cast<DWORD>(bytes.size());
  }

  const std::shared_ptr<FileHandle> _device;
  const uint32_t _controlCode;
  std::unique_ptr<PendingIo> _io;
  WinInterrupt _interrupt;
  bool _issued = false;
};

class WinDevice final : public Device {
 public:
  explicit WinDevice(FileHandle device)
      : _device(std::make_shared<FileHandle>(std::move(device))) {}

  uint32_t prepare(uint32_t controlCode, std::span<const std::byte> input, size_t outputSize,
                   std::unique_ptr<DeviceRequest>& out) override {
    if (input.size() > MAXDWORD || outputSize > MAXDWORD) return kErrorInvalidParameter;
    auto io = std::make_unique<PendingIo>();
    io->done = KernelObject(::CreateEventW(nullptr, /*bManualReset=*/TRUE, FALSE, nullptr));
    if (!io->done) return ::GetLastError();
    io->input.assign(input.begin(), input.end());
    io->output.resize(outputSize);
    auto request = std::make_unique<OverlappedRequest>(_device, controlCode, std::move(io));
    if (!request->valid()) return kErrorNotEnoughMemory;
    out = std::move(request);
    return kOk;
  }

 private:
  // Closed with the last request that is made on it.
  const std::shared_ptr<FileHandle> _device;
};

class WinDevices final : public Devices {
 public:
  uint32_t open(const std::string& name, std::unique_ptr<Device>& out) override {
    FileHandle device(::CreateFileW(wide(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    if (!device) return ::GetLastError();
    out = std::make_unique<WinDevice>(std::move(device));
    return kOk;
  }
};

}  // namespace

std::unique_ptr<Devices> makeNativeDevices(const NativeOptions&) {
  return std::make_unique<WinDevices>();
}

}  // namespace korvane::platform
