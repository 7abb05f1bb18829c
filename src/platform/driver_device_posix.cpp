#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/driver_device.h"
#include "platform/error_codes.h"
#include "platform/interrupt_posix.h"
#include "platform/native.h"
#include "platform/simulator_frames.h"

namespace korvane::platform {
namespace {

// How long issue() looks for an answer at once before it takes the request as pending.
constexpr uint32_t kAtOnceMs = 50;
constexpr uint32_t kRequestNumber = 1;

void putU32(std::vector<std::byte>& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<std::byte>(value >> shift));
}

uint32_t getU32(const std::byte* at) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | std::to_integer<uint32_t>(at[i]);
  return value;
}

uint32_t connectTo(const std::string& path, Descriptor& out) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return kErrorFileNameTooLong;
  std::copy(path.begin(), path.end(), address.sun_path);
  Descriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!descriptor) return kErrorNotEnoughMemory;
  if (::connect(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return errno == EACCES || errno == EPERM ? kErrorAccessDenied : kErrorFileNotFound;
  out = std::move(descriptor);
  return kOk;
}

// One request on a connection of its own; closing the connection is what cancels it. The driver
// writes into the socket and never into the buffers, so these need not outlive the request.
class SimulatorRequest final : public DeviceRequest {
 public:
  SimulatorRequest(std::string path, Descriptor connection, uint32_t controlCode,
                   std::span<const std::byte> input, size_t outputSize)
      : _path(std::move(path)), _connection(std::move(connection)), _output(outputSize) {
    putU32(_frame, static_cast<uint32_t>(input.size()));
    putU32(_frame, static_cast<uint32_t>(SimulatorFrame::request));
    putU32(_frame, kRequestNumber);
    putU32(_frame, controlCode);
    putU32(_frame, static_cast<uint32_t>(outputSize));
    _frame.insert(_frame.end(), input.begin(), input.end());
  }

  bool valid() const { return _interrupt.valid(); }

  uint32_t issue() override {
    if (!_connection)
      if (const uint32_t error = connectTo(_path, _connection)) return error;
    const Deadline deadline(kAtOnceMs);
    if (const uint32_t error = sendFrame(deadline)) return error;
    readAnswer(deadline);
    return _finished && _atOnce ? _result : kErrorIoPending;
  }

  DeviceWait wait(uint32_t timeoutMs) override {
    const Deadline deadline(timeoutMs);
    if (_finished) return DeviceWait::signalled;
    switch (readAnswer(deadline)) {
      case PollResult::ready:
        return DeviceWait::signalled;
      case PollResult::timedOut:
        return DeviceWait::timedOut;
      case PollResult::interrupted:
        return DeviceWait::interrupted;
      case PollResult::failed:
        break;
    }
    return DeviceWait::failed;
  }

  uint32_t result() override { return _result; }

  void cancel() override {
    if (_finished) return;
    _connection = Descriptor();
    finish(kErrorOperationAborted);
  }

  void interrupt() override { _interrupt.raise(); }

  std::span<const std::byte> output() const override { return _output; }

 private:
  uint32_t sendFrame(const Deadline& deadline) {
    size_t sent = 0;
    while (sent < _frame.size()) {
      const ssize_t n =
          ::send(_connection.get(), _frame.data() + sent, _frame.size() - sent, MSG_NOSIGNAL);
      if (n >= 0) {
        sent += static_cast<size_t>(n);
      } else if (errno != EAGAIN && errno != EINTR) {
        return kErrorDeviceNotConnected;
      } else if (pollFor(_connection.get(), POLLOUT, deadline, _interrupt) != PollResult::ready) {
        return kErrorOperationAborted;
      }
    }
    return kOk;
  }

  void finish(uint32_t result) {
    _finished = true;
    _result = result;
  }

  // Reads the answer into _result and _output. What a time-out or an interrupt leaves half read is
  // taken up by the next call. A connection that ends before the answer is a device that has gone.
  PollResult readAnswer(const Deadline& deadline) {
    PollResult read = fill(_header.data(), _header.size(), _headerGot, deadline);
    if (read == PollResult::ready && !_gone) {
      const auto kind = static_cast<SimulatorFrame>(getU32(&_header[4]));
      _atOnce = kind == SimulatorFrame::answerAtOnce;
      const bool known = _atOnce || kind == SimulatorFrame::answer;
      if (!known || getU32(&_header[8]) != kRequestNumber || answerBytes() > _output.size()) {
        finish(kErrorGenFailure);
        return PollResult::ready;
      }
      read = fill(_output.data(), answerBytes(), _bodyGot, deadline);
    }
    if (read == PollResult::ready) finish(_gone ? kErrorDeviceNotConnected : getU32(&_header[12]));
    return read;
  }

  uint32_t answerBytes() const { return getU32(_header.data()); }

  PollResult fill(std::byte* to, size_t size, size_t& got, const Deadline& deadline) {
    while (got < size && !_gone) {
      const PollResult ready = pollFor(_connection.get(), POLLIN, deadline, _interrupt);
      if (ready != PollResult::ready) return ready;
      const ssize_t n = ::recv(_connection.get(), to + got, size - got, 0);
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (n <= 0)
        _gone = true;
      else
        got += static_cast<size_t>(n);
    }
    return PollResult::ready;
  }

  const std::string _path;
  Descriptor _connection;
  Interrupt _interrupt;
  std::vector<std::byte> _frame;
  std::vector<std::byte> _output;
  std::array<std::byte, kSimulatorHeaderBytes> _header{};
  size_t _headerGot = 0;
  size_t _bodyGot = 0;
  uint32_t _result = kErrorIoPending;
  bool _atOnce = false;
  bool _gone = false;
  bool _finished = false;
};

// Holds the connection that showed that the simulator is there; the first request takes it.
class SimulatorDevice final : public Device {
 public:
  SimulatorDevice(std::string path, Descriptor connection)
      : _path(std::move(path)), _connection(std::move(connection)) {}

  uint32_t prepare(uint32_t controlCode, std::span<const std::byte> input, size_t outputSize,
                   std::unique_ptr<DeviceRequest>& out) override {
    if (input.size() > kSimulatorMaxBytes || outputSize > kSimulatorMaxBytes)
      return kErrorInvalidParameter;
    auto request = std::make_unique<SimulatorRequest>(_path, std::move(_connection), controlCode,
                                                      input, outputSize);
    if (!request->valid()) return kErrorNotEnoughMemory;
    out = std::move(request);
    return kOk;
  }

 private:
  const std::string _path;
  Descriptor _connection;
};

class SimulatorDevices final : public Devices {
 public:
  explicit SimulatorDevices(std::string runDirectory) : _runDirectory(std::move(runDirectory)) {}

  uint32_t open(const std::string& name, std::unique_ptr<Device>& out) override {
    constexpr std::string_view kPrefix = "\\\\.\\";
    if (!name.starts_with(kPrefix) || _runDirectory.empty()) return kErrorFileNotFound;
    std::string base = name.substr(kPrefix.size());
    if (base.empty() || base.find('/') != std::string::npos) return kErrorFileNotFound;
    std::transform(base.begin(), base.end(), base.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    const std::string path = _runDirectory + "/" + base + ".sock";
    Descriptor connection;
    if (const uint32_t error = connectTo(path, connection)) return error;
    out = std::make_unique<SimulatorDevice>(path, std::move(connection));
    return kOk;
  }

 private:
  const std::string _runDirectory;
};

}  // namespace

std::unique_ptr<Devices> makeNativeDevices(const NativeOptions& options) {
  return std::make_unique<SimulatorDevices>(options.runDirectory);
}

}  // namespace korvane::platform
