#include "tools/server/connection.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace korvane::server {

namespace {

constexpr std::chrono::milliseconds kTransferLimit = std::chrono::seconds(60);
constexpr size_t kLargestHead = size_t{64} << 10;

using AddressGetter = int (*)(int, sockaddr*, socklen_t*);

void readAddress(AddressGetter getter, int socket, std::string& ip, int& port) {
  sockaddr_in address = {};
  socklen_t length = sizeof address;
  if (getter(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return;
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  ip = text;
  port = ntohs(address.sin_port);
}

}  // namespace

Connection::Connection(int socket, const StopSignal& stop) : _socket(socket), _stop(stop) {
  const int on = 1;
  setsockopt(_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  readAddress(getsockname, _socket, _localAddress, _localPort);
  readAddress(getpeername, _socket, _remoteAddress, _remotePort);
}

Connection::~Connection() {
  if (_tls && !_broken && SSL_is_init_finished(_tls.get())) SSL_shutdown(_tls.get());
  ERR_clear_error();
  close(_socket);
}

bool Connection::startTls(const TlsContext& context) {
  _tls.reset(SSL_new(context.get()));
  if (!_tls || SSL_set_fd(_tls.get(), _socket) != 1) return false;
  short events = POLLIN;
  for (;;) {
    const ssize_t done = tlsStep(SSL_accept(_tls.get()), events);
    if (done != 0) return done > 0;
    if (!_stop.waitFor(_socket, events, kTransferLimit)) return false;
  }
}

// The positive result of a TLS call as it is, 0 when it must be repeated after waiting for
// `events`, -1 when the connection is over.
ssize_t Connection::tlsStep(int result, short& events) const {
  if (result > 0) return result;
  const int reason = SSL_get_error(_tls.get(), result);
  ERR_clear_error();
  if (reason != SSL_ERROR_WANT_READ && reason != SSL_ERROR_WANT_WRITE) return -1;
  events = reason == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
  return 0;
}

bool Connection::waitForRequest(std::chrono::milliseconds limit) {
  if (_broken) return false;
  if (_tls && SSL_pending(_tls.get()) > 0) return true;
  return _stop.waitFor(_socket, POLLIN, limit);
}

std::string Connection::releaseHeld() {
  _holding = false;
  return std::exchange(_held, {});
}

void Connection::recordHead() {
  _head.clear();
  _recordingHead = true;
}

std::string Connection::releaseHead() {
  _recordingHead = false;
  return std::exchange(_head, {});
}

// The engine reads a head byte by byte, so nothing of the body comes along.
void Connection::record(std::string_view bytes) {
  _head.append(bytes);
  if (_head.ends_with("\r\n\r\n") || _head.size() >= kLargestHead) _recordingHead = false;
}

bool Connection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const int piece = static_cast<int>(std::min<size_t>(bytes.size(), INT_MAX));
    const ssize_t sent = transfer(POLLOUT, [&]() -> ssize_t {
      if (_tls) return SSL_write(_tls.get(), bytes.data(), piece);
      return ::send(_socket, bytes.data(), static_cast<size_t>(piece), MSG_NOSIGNAL);
    });
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// Repeats `step` until it moved bytes, waiting for the socket in between.
ssize_t Connection::transfer(short events, const std::function<ssize_t()>& step) {
  while (!_broken && !_stop.isSet()) {
    const ssize_t result = step();
    if (result > 0) return result;
    short wanted = events;
    if (_tls) {
      if (tlsStep(static_cast<int>(result), wanted) < 0) break;
    } else if (result == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
      break;
    }
    if (!_stop.waitFor(_socket, wanted, kTransferLimit)) break;
  }
  _broken = true;
  return -1;
}

void Connection::breakNow() {
  _broken = true;
  const linger reset = {1, 0};
  setsockopt(_socket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

bool Connection::is_readable() const {
  return !_broken;
}

bool Connection::is_writable() const {
  return !_broken || _holding;
}

ssize_t Connection::read(char* bytes, size_t size) {
  const ssize_t got = transfer(POLLIN, [&]() -> ssize_t {
    if (_tls) return SSL_read(_tls.get(), bytes, static_cast<int>(std::min<size_t>(size, INT_MAX)));
    return recv(_socket, bytes, size, 0);
  });
  if (_recordingHead && got > 0) record({bytes, static_cast<size_t>(got)});
  return got;
}

ssize_t Connection::write(const char* bytes, size_t size) {
  if (_holding) {
    _held.append(bytes, size);
    return static_cast<ssize_t>(size);
  }
  return send({bytes, size}) ? static_cast<ssize_t>(size) : -1;
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = _remoteAddress;
  port = _remotePort;
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
  ip = _localAddress;
  port = _localPort;
}

}  // namespace korvane::server
