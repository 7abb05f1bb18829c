#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "platform/error_codes.h"
#include "platform/interrupt_posix.h"
#include "platform/native.h"
#include "platform/sockets.h"

namespace korvane::platform {
namespace {

int winsockError(int error) {
  switch (error) {
    case 0:
      return 0;
    case EINTR:
      return kWsaInterrupted;
    case EBADF:
    case ENOTSOCK:
      return kWsaNotSocket;
    case EACCES:
    case EPERM:
      return kWsaAccessDenied;
    case EINVAL:
      return kWsaInvalidArgument;
    case EMFILE:
    case ENFILE:
      return kWsaTooManySockets;
    case EAGAIN:
      return kWsaWouldBlock;
    case EADDRINUSE:
      return kWsaAddressInUse;
    case EADDRNOTAVAIL:
      return kWsaAddressNotAvailable;
    case ENETUNREACH:
      return kWsaNetworkUnreachable;
    case ECONNABORTED:
      return kWsaConnectionAborted;
    case ECONNRESET:
    case EPIPE:
      return kWsaConnectionReset;
    case ENOBUFS:
    case ENOMEM:
      return kWsaNoBufferSpace;
    case EISCONN:
      return kWsaIsConnected;
    case ENOTCONN:
      return kWsaNotConnected;
    case ETIMEDOUT:
      return kWsaTimedOut;
    case ECONNREFUSED:
      return kWsaConnectionRefused;
    case EHOSTUNREACH:
      return kWsaHostUnreachable;
    default:
      return kWsaSystemCallFailure;
  }
}

int socketResult(int returned) {
  return returned == 0 ? 0 : winsockError(errno);
}

sockaddr_in addressOf(in_addr host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr = host;
  address.sin_port = htons(port);
  return address;
}

const sockaddr* generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

class PosixSocket final : public Socket {
 public:
  explicit PosixSocket(Descriptor descriptor) : _descriptor(std::move(descriptor)) {}

  bool valid() const { return _descriptor && _interrupt.valid(); }

  int bind(bool anyAddress, uint16_t port) override {
    const int on = 1;
    // A listener must come back at once after a restart, whatever connections of the last run
    // linger.
    if (::setsockopt(_descriptor.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
      return winsockError(errno);
    const sockaddr_in address = addressOf({htonl(anyAddress ? INADDR_ANY : INADDR_LOOPBACK)}, port);
    return socketResult(::bind(_descriptor.get(), generic(address), sizeof address));
  }

  int listen(int backlog) override { return socketResult(::listen(_descriptor.get(), backlog)); }

  uint16_t localPort() override {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(_descriptor.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
      return 0;
    return ntohs(address.sin_port);
  }

  SocketWait waitReadable(uint32_t timeoutMs, int& error) override {
    error = 0;
    switch (pollFor(_descriptor.get(), POLLIN, Deadline(timeoutMs), _interrupt)) {
      case PollResult::ready:
        return SocketWait::ready;
      case PollResult::timedOut:
        return SocketWait::timedOut;
      case PollResult::interrupted:
        return SocketWait::interrupted;
      case PollResult::failed:
        break;
    }
    error = winsockError(errno);
    return SocketWait::failed;
  }

  int accept(std::unique_ptr<Socket>& out) override {
    Descriptor descriptor(::accept4(_descriptor.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!descriptor) return winsockError(errno);
    auto accepted = std::make_unique<PosixSocket>(std::move(descriptor));
    if (!accepted->valid()) return kWsaTooManySockets;
    out = std::move(accepted);
    return 0;
  }

  int connect(const std::string& address, uint16_t port, uint32_t timeoutMs) override {
    in_addr host;
    if (::inet_pton(AF_INET, address.c_str(), &host) != 1) return kWsaInvalidArgument;
    if (_interrupt.raised()) return kWsaInterrupted;
    const bool wasNonBlocking = _nonBlocking;
    if (const int error = setNonBlocking(true)) return error;
    int error = startConnect(addressOf(host, port));
    if (error == kWsaWouldBlock) error = finishConnect(Deadline(timeoutMs));
    const int restored = setNonBlocking(wasNonBlocking);
    return error ? error : restored;
  }

  int setNonBlocking(bool on) override {
    const int flags = ::fcntl(_descriptor.get(), F_GETFL);
    if (flags < 0) return winsockError(errno);
    const int wanted = on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
    if (::fcntl(_descriptor.get(), F_SETFL, wanted) != 0) return winsockError(errno);
    _nonBlocking = on;
    return 0;
  }

  int receive(void* buffer, size_t size, size_t& got) override {
    const ssize_t n = repeat([&] { return ::recv(_descriptor.get(), buffer, size, 0); });
    got = n < 0 ? 0 : static_cast<size_t>(n);
    return n < 0 ? winsockError(errno) : 0;
  }

  int send(const void* bytes, size_t size, size_t& sent) override {
    const ssize_t n = repeat([&] { return ::send(_descriptor.get(), bytes, size, MSG_NOSIGNAL); });
    sent = n < 0 ? 0 : static_cast<size_t>(n);
    return n < 0 ? winsockError(errno) : 0;
  }

  int shutdownBoth() override { return socketResult(::shutdown(_descriptor.get(), SHUT_RDWR)); }
  void interrupt() override { _interrupt.raise(); }

 private:
  template <class Call>
  static ssize_t repeat(Call call) {
    ssize_t n;
    do {
      n = call();
    } while (n < 0 && errno == EINTR);
    return n;
  }

  int startConnect(const sockaddr_in& address) {
    if (::connect(_descriptor.get(), generic(address), sizeof address) == 0) return 0;
    return errno == EINPROGRESS || errno == EINTR ? kWsaWouldBlock : winsockError(errno);
  }

  int finishConnect(const Deadline& deadline) {
    switch (pollFor(_descriptor.get(), POLLOUT, deadline, _interrupt)) {
      case PollResult::timedOut:
        return kWsaTimedOut;
      case PollResult::interrupted:
        return kWsaInterrupted;
      case PollResult::failed:
        return winsockError(errno);
      case PollResult::ready:
        break;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(_descriptor.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    return winsockError(error);
  }

  Descriptor _descriptor;
  Interrupt _interrupt;
  bool _nonBlocking = false;
};

class PosixSockets final : public Sockets {
 public:
  int startup() override { return 0; }
  void cleanup() override {}

  int createTcp(std::unique_ptr<Socket>& out) override {
    Descriptor descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!descriptor) return winsockError(errno);
    auto made = std::make_unique<PosixSocket>(std::move(descriptor));
    if (!made->valid()) return kWsaTooManySockets;
    out = std::move(made);
    return 0;
  }

  int resolve(const std::string& host, std::vector<std::string>& out) override {
    out.clear();
    in_addr dotted;
    if (::inet_pton(AF_INET, host.c_str(), &dotted) == 1) {
      out.push_back(host);
      return 0;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (error) return error == EAI_AGAIN ? kWsaTryAgain : kWsaHostNotFound;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, ::freeaddrinfo);
    for (const addrinfo* entry = found; entry; entry = entry->ai_next)
      out.push_back(textOf(*entry));
    return out.empty() ? kWsaHostNotFound : 0;
  }

  void shutdownForeign(uint64_t handle) override {
    ::shutdown(static_cast<int>(handle), SHUT_RDWR);
  }
  void closeForeign(uint64_t handle) override { ::close(static_cast<int>(handle)); }

 private:
  static std::string textOf(const addrinfo& entry) {
    char text[INET_ADDRSTRLEN] = "";
    const auto* address = reinterpret_cast<const sockaddr_in*>(entry.ai_addr);
    ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
    return text;
  }
};

}  // namespace

std::unique_ptr<Sockets> makeNativeSockets() {
  return std::make_unique<PosixSockets>();
}

}  // namespace korvane::platform
