#include "driver-simulator/server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace korvane::simulator {
namespace {

using platform::Descriptor;

constexpr size_t kMaxConnections = 64;

bool addressOf(const std::string& path, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  std::copy(path.begin(), path.end(), address.sun_path);
  return true;
}

// True when a program answers on that path.
bool isServed(const sockaddr_un& address) {
  const Descriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool isSameUser(int descriptor) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.uid == ::geteuid();
}

}  // namespace

Server::Server(std::string runDirectory, Simulator& simulator, platform::Clock& clock)
    : _devicePath(runDirectory + "/kavips.sock"),
      _controlPath(runDirectory + "/kavips-control.sock"),
      _simulator(simulator),
      _clock(clock) {}

Server::~Server() {
  if (_device) ::unlink(_devicePath.c_str());
  if (_control) ::unlink(_controlPath.c_str());
}

bool Server::open(std::string& problem) {
  return listen(_controlPath, _control, problem) && listen(_devicePath, _device, problem);
}

bool Server::listen(const std::string& path, Descriptor& out, std::string& problem) {
  sockaddr_un address{};
  if (!addressOf(path, address)) {
    problem = path + ": the path is too long for a socket";
    return false;
  }
  if (isServed(address)) {
    problem = path + ": another simulator serves it";
    return false;
  }
  ::unlink(path.c_str());
  Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const mode_t before = ::umask(0177);
  const bool bound =
      ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::umask(before);
  if (!bound || ::listen(listener.get(), 16) != 0) {
    problem = path + ": " + std::strerror(errno);
    return false;
  }
  out = std::move(listener);
  return true;
}

// Makes the device's socket come and go as the operator wants it.
void Server::followPresence() {
  std::string problem;
  if (_simulator.present() && !_device) listen(_devicePath, _device, problem);
  if (_simulator.present() || !_device) return;
  ::unlink(_devicePath.c_str());
  _device = Descriptor();
  std::vector<int> gone;
  for (const auto& [number, connection] : _connections)
    if (!connection.control) gone.push_back(number);
  for (const int number : gone) close(number);
}

void Server::accept(const Descriptor& listener, bool control) {
  Descriptor peer(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!peer || !isSameUser(peer.get()) || _connections.size() >= kMaxConnections) return;
  Connection& connection = _connections[++_lastNumber];
  connection.descriptor = std::move(peer);
  connection.control = control;
}

bool Server::serve(int number, Connection& connection, const Frame& frame) {
  if (!connection.control) return _simulator.request(number, frame, _clock.monotonicMs());
  connection.unsent += encode(_simulator.command(frame));
  return true;
}

bool Server::read(int number, Connection& connection) {
  std::array<char, 65536> buffer;
  const ssize_t got = ::recv(connection.descriptor.get(), buffer.data(), buffer.size(), 0);
  if (got < 0) return errno == EAGAIN || errno == EINTR;
  if (got == 0) return false;
  connection.reader.append({buffer.data(), static_cast<size_t>(got)});
  while (const auto frame = connection.reader.next())
    if (!serve(number, connection, *frame)) return false;
  return !connection.reader.broken();
}

bool Server::write(Connection& connection) {
  while (!connection.unsent.empty()) {
    const ssize_t sent = ::send(connection.descriptor.get(), connection.unsent.data(),
                                connection.unsent.size(), MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN || errno == EINTR;
    connection.unsent.erase(0, static_cast<size_t>(sent));
  }
  return true;
}

void Server::close(int number) {
  _simulator.closed(number);
  _connections.erase(number);
}

void Server::answerDue() {
  for (const Answer& answer : _simulator.due(_clock.monotonicMs())) {
    const auto found = _connections.find(answer.connection);
    if (found != _connections.end()) found->second.unsent += encode(answer.frame);
  }
}

int Server::pollTimeout() const {
  const auto next = _simulator.nextDue();
  if (!next) return -1;
  return static_cast<int>(std::clamp<int64_t>(*next - _clock.monotonicMs(), 0, 3600000));
}

void Server::pass(int stopDescriptor, bool& stop) {
  std::vector<pollfd> polled = {{stopDescriptor, POLLIN, 0},
                                {_control.get(), POLLIN, 0},
                                {_device.get(), POLLIN, 0}};  // a negative one is skipped
  std::vector<int> numbers;
  for (const auto& [number, connection] : _connections) {
    const int events = connection.unsent.empty() ? POLLIN : POLLIN | POLLOUT;
    polled.push_back({connection.descriptor.get(), static_cast<short>(events), 0});
    numbers.push_back(number);
  }
  if (::poll(polled.data(), polled.size(), pollTimeout()) < 0) return;
  stop = polled[0].revents != 0;
  if (polled[1].revents != 0) accept(_control, true);
  if (polled[2].revents != 0) accept(_device, false);
  for (size_t i = 0; i < numbers.size(); ++i) {
    Connection& connection = _connections.at(numbers[i]);
    if ((polled[i + 3].revents & ~POLLOUT) != 0 && !read(numbers[i], connection)) close(numbers[i]);
  }
}

void Server::run(int stopDescriptor) {
  bool stop = false;
  while (!stop) {
    pass(stopDescriptor, stop);
    answerDue();
    followPresence();
    std::vector<int> broken;
    for (auto& [number, connection] : _connections)
      if (!write(connection)) broken.push_back(number);
    for (const int number : broken) close(number);
  }
}

}  // namespace korvane::simulator
