// A driver simulator of a few lines for the device tests: serves the device's socket on a thread
// and does to each request what a function says. POSIX only.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/simulator_frames.h"

namespace korvane::tests {

struct SimulatorRequest {
  uint32_t number = 0;
  uint32_t code = 0;
  uint32_t outputSize = 0;
  std::string input;
};

// What goes back on the connection, byte for byte; then it is kept open, or closed.
struct SimulatorReply {
  std::string bytes;
  bool close = false;
};

inline std::string simulatorFrame(platform::SimulatorFrame kind, uint32_t number, uint32_t error,
                                  const std::string& payload = "") {
  const uint32_t header[] = {static_cast<uint32_t>(payload.size()), static_cast<uint32_t>(kind),
                             number, error, 0};
  return std::string(reinterpret_cast<const char*>(header), sizeof header) + payload;
}

class SimulatorStandIn {
 public:
  using Serve = std::function<SimulatorReply(const SimulatorRequest&)>;

  SimulatorStandIn(const std::string& path, Serve serve) : _serve(std::move(serve)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    _listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::bind(_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(_listener, 8);
    _stop = ::eventfd(0, EFD_CLOEXEC);
    _thread = std::thread([this] { run(); });
  }

  ~SimulatorStandIn() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(_stop, &one, sizeof one);
    _thread.join();
    for (const int connection : _connections) ::close(connection);
    ::close(_listener);
    ::close(_stop);
  }

 private:
  void run() {
    for (;;) {
      pollfd waits[] = {{_stop, POLLIN, 0}, {_listener, POLLIN, 0}};
      ::poll(waits, 2, -1);
      if (waits[0].revents) return;
      const int connection = ::accept(_listener, nullptr, nullptr);
      if (!serve(connection)) ::close(connection);
    }
  }

  // False when the connection is to be closed.
  bool serve(int connection) {
    uint32_t header[5];
    if (::recv(connection, header, sizeof header, MSG_WAITALL) != sizeof header) return false;
    SimulatorRequest request{header[2], header[3], header[4], std::string(header[0], '\0')};
    if (!request.input.empty())
      ::recv(connection, request.input.data(), request.input.size(), MSG_WAITALL);
    const SimulatorReply reply = _serve(request);
    ::send(connection, reply.bytes.data(), reply.bytes.size(), MSG_NOSIGNAL);
    if (!reply.close) _connections.push_back(connection);
    return !reply.close;
  }

  const Serve _serve;
  int _listener = -1;
  int _stop = -1;
  std::vector<int> _connections;
  std::thread _thread;
};

}  // namespace korvane::tests
