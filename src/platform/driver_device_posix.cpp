#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/error_codes.h"
#include "platform/interrupt_posix.h"
#include "platform/native.h"
#include "platform/simulator_frames.h"

namespace korvane::platform {
namespace {

// How long issue() waits for the first answer before it takes the request as pending.
constexpr uint32_t kFirstAnswerMs = 200;

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

class SimulatorRequest final : public DeviceRequest {
 public:
  SimulatorRequest(std::string path, Descriptor connection, uint32_t controlCode,
                   std::span<const std::byte> input, size_t outputSize)
      : _path(std::move(path)), _connection(std::move(connection)), _output(outputSize) {
    putU32(_frame, kSimulatorMagic);
    putU32(_frame, controlCode);
    putU32(_frame, static_cast<uint32_t>(input.size()));
    putU32(_frame, static_cast<uint32_t>(outputSize));
    _frame.insert(_frame.end(), input.begin(), input.end());
  }

  bool valid() const { return _interrupt.valid(); }

  uint32_t issue() override {
    if (!_connection)
      if (const uint32_t error = connectTo(_path, _connection)) return error;
    const Deadline deadline(kFirstAnswerMs);
    if (const uint32_t error = sendFrame(deadline)) return error;
    const PollResult first = readAnswer(deadline);
    if (first != PollResult::ready || _result == kErrorIoPending) {
      _pendingSeen = first == PollResult::ready;
      return kErrorIoPending;
    }
    _finished = true;
    return _result;
  }

  DeviceWait wait(uint32_t timeoutMs) override {
    const Deadline deadline(timeoutMs);
    while (!_finished) {
      switch (readAnswer(deadline)) {
        case PollResult::timedOut:
          return DeviceWait::timedOut;
        case PollResult::interrupted:
          return DeviceWait::interrupted;
        case PollResult::failed:
          return DeviceWait::failed;
        case PollResult::ready:
          break;
      }
      // Only the first of the answers may say that there is another to come.
      _finished = _result != kErrorIoPending || _pendingSeen;
      if (_finished && _result == kErrorIoPending) _result = kErrorGenFailure;
      _pendingSeen = true;
    }
    return DeviceWait::signalled;
  }

  uint32_t result() override { return _finished ? _result : kErrorIoPending; }

  void cancel() override {
    if (_finished) return;
    _connection = Descriptor();
    finish(kErrorOperationAborted);
    _finished = true;
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

  PollResult finish(uint32_t result) {
    _result = result;
    return PollResult::ready;
  }

  // Reads one answer into _result and _output; what a time-out or an interrupt leaves half read is
  // taken up by the next call. A connection that ends early is a device that has gone.
  PollResult readAnswer(const Deadline& deadline) {
    if (const PollResult header = fill(_header.data(), _header.size(), _headerGot, deadline);
        header != PollResult::ready || _gone)
      return _gone ? finish(kErrorDeviceNotConnected) : header;
    const uint32_t length = getU32(&_header[4]);
    if (length > _output.size()) return finish(kErrorGenFailure);
    if (const PollResult body = fill(_output.data(), length, _bodyGot, deadline);
        body != PollResult::ready || _gone)
      return _gone ? finish(kErrorDeviceNotConnected) : body;
    _headerGot = _bodyGot = 0;
    return finish(getU32(&_header[0]));
  }

  PollResult fill(std::byte* to, size_t size, size_t& got, const Deadline& deadline) {
    while (got < size) {
      const PollResult ready = pollFor(_connection.get(), POLLIN, deadline, _interrupt);
      if (ready != PollResult::ready) return ready;
      const ssize_t n = ::recv(_connection.get(), to + got, size - got, 0);
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (n <= 0) {
        _gone = true;
        break;
      }
      got += static_cast<size_t>(n);
    }
    return PollResult::ready;
  }

  const std::string _path;
  Descriptor _connection;
  Interrupt _interrupt;
  std::vector<std::byte> _frame;
  std::vector<std::byte> _output;
  std::array<std::byte, kSimulatorAnswerHeaderBytes> _header{};
  size_t _headerGot = 0;
  size_t _bodyGot = 0;
  uint32_t _result = kErrorIoPending;
  bool _pendingSeen = false;
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
