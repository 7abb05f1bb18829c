#include "tools/server/listener.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace korvane::server {

namespace {

constexpr int kBacklog = 64;
constexpr std::chrono::milliseconds kReapInterval = std::chrono::seconds(5);
// Out of descriptors, most likely: the waiting connection would be reported again at once.
constexpr std::chrono::milliseconds kPauseAfterFailure{20};

}  // namespace

Listener::Listener(const std::string& address, int port, Serve serve)
    : _address(address), _serve(std::move(serve)) {
  const auto fail = [&](int error) {
    if (_socket >= 0) close(_socket);
    throw std::system_error(error, std::generic_category(),
                            "listen on " + address + ":" + std::to_string(port));
  };
  sockaddr_in wanted = {};
  wanted.sin_family = AF_INET;
  wanted.sin_port = htons(static_cast<uint16_t>(port));
  if (inet_pton(AF_INET, address.c_str(), &wanted.sin_addr) != 1) fail(EINVAL);
  _socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (_socket < 0) fail(errno);
  const int on = 1;
  setsockopt(_socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  socklen_t length = sizeof wanted;
  auto* name = reinterpret_cast<sockaddr*>(&wanted);
  if (bind(_socket, name, length) != 0 || listen(_socket, kBacklog) != 0 ||
      getsockname(_socket, name, &length) != 0) {
    fail(errno);
  }
  _port = ntohs(wanted.sin_port);
}

Listener::~Listener() {
  stop();
  close(_socket);
}

void Listener::start() {
  _acceptor = std::thread(&Listener::acceptConnections, this);
}

void Listener::stop() {
  _stop.set();
  if (_acceptor.joinable()) _acceptor.join();
  joinEnded(true);
}

void Listener::acceptConnections() {
  while (!_stop.isSet()) {
    if (_stop.waitFor(_socket, POLLIN, kReapInterval)) {
      const int accepted = accept4(_socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (accepted >= 0)
        startWorker(accepted);
      else
        _stop.pause(kPauseAfterFailure);
    }
    joinEnded(false);
  }
}

void Listener::startWorker(int socket) {
  Worker& worker = _workers.emplace_back();
  worker.thread = std::thread([this, socket, &worker] {
    {
      Connection connection(socket, _stop);
      _serve(connection);
    }
    worker.ended = true;
  });
}

void Listener::joinEnded(bool all) {
  for (auto worker = _workers.begin(); worker != _workers.end();) {
    if (!all && !worker->ended) {
      ++worker;
      continue;
    }
    worker->thread.join();
    worker = _workers.erase(worker);
  }
}

}  // namespace korvane::server
