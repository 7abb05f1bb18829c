#include "platform/error_codes.h"
#include "platform/handles_win.h"
#include "platform/interrupt_win.h"
#include "platform/native.h"
#include "platform/sockets.h"
#include "platform/wide_win.h"

// Behind winsock2.h, which it needs.
#include <ws2tcpip.h>

#include <algorithm>
#include <limits>

namespace korvane::platform {
namespace {

constexpr size_t kMostBytes = std::numeric_limits<int>::max();

int socketOutcome(int returned) {
  return returned == SOCKET_ERROR ? ::WSAGetLastError() : 0;
}

sockaddr_in socketAddress(in_addr host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr = host;
  address.sin_port = ::htons(port);
  return address;
}

const sockaddr* plainAddress(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool parseDotted(const std::string& text, in_addr& out) {
  return ::InetPtonW(AF_INET, wide(text).c_str(), &out) == 1;
}

// Ties a socket's network events to an event object for a scope; the socket does not block
// meanwhile.
class EventSelection {
 public:
  EventSelection(SOCKET socket, long networkEvents) : _socket(socket), _event(::WSACreateEvent()) {
    if (!_event)
      _error = ::WSAGetLastError();
    else
      _error = socketOutcome(::WSAEventSelect(socket, _event.get(), networkEvents));
  }
  ~EventSelection() {
    if (_event) ::WSAEventSelect(_socket, nullptr, 0);
  }
  EventSelection(const EventSelection&) = delete;
  EventSelection& operator=(const EventSelection&) = delete;

  int error() const { return _error; }
  HANDLE event() const { return _event.get(); }
  // What became of the network event of that bit: 0, or its error.
  int outcome(int bit) {
    WSANETWORKEVENTS events{};
    const int error = socketOutcome(::WSAEnumNetworkEvents(_socket, _event.get(), &events));
    return error ? error : events.iErrorCode[bit];
  }

 private:
  const SOCKET _socket;
  const SocketEvent _event;
  int _error = 0;
};

bool readableNow(SOCKET socket) {
  fd_set sockets;
  FD_ZERO(&sockets);
  FD_SET(socket, &sockets);
  timeval none{};
  return ::select(0, &sockets, nullptr, nullptr, &none) == 1;
}

class WinSocket final : public Socket {
 public:
  explicit WinSocket(SocketHandle socket) : _socket(std::move(socket)) {}

  bool valid() const { return _socket && _interrupt.valid(); }

  int bind(bool anyAddress, uint16_t port) override {
    // Without it another program could bind to the same port and take the connections.
    const BOOL on = TRUE;
    if (::setsockopt(_socket.get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                     reinterpret_cast<const char*>(&on), sizeof on) != 0)
      return ::WSAGetLastError();
    in_addr host{};
    host.s_addr = ::htonl(anyAddress ? INADDR_ANY : INADDR_LOOPBACK);
    const sockaddr_in address = socketAddress(host, port);
    return socketOutcome(::bind(_socket.get(), plainAddress(address), sizeof address));
  }

  int listen(int backlog) override { return socketOutcome(::listen(_socket.get(), backlog)); }

  uint16_t localPort() override {
    sockaddr_in address{};
    int size = sizeof address;
    if (::getsockname(_socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    return ::ntohs(address.sin_port);
  }

  SocketWait waitReadable(uint32_t timeoutMs, int& error) override {
    const SocketWait outcome = waitForInput(timeoutMs, error);
    // The selection has left the socket non-blocking.
    const int restored = setNonBlocking(_nonBlocking);
    if (outcome == SocketWait::failed || !restored) return outcome;
    error = restored;
    return SocketWait::failed;
  }

  int accept(std::unique_ptr<Socket>& out) override {
    SocketHandle accepted(::accept(_socket.get(), nullptr, nullptr));
    if (!accepted) return ::WSAGetLastError();
    ::SetHandleInformation(reinterpret_cast<HANDLE>(accepted.get()), HANDLE_FLAG_INHERIT, 0);
    auto socket = std::make_unique<WinSocket>(std::move(accepted));
    if (!socket->valid()) return kWsaTooManySockets;
    // It has the listener's manner of blocking.
    if (const int error = socket->setNonBlocking(false)) return error;
    out = std::move(socket);
    return 0;
  }

  int connect(const std::string& address, uint16_t port, uint32_t timeoutMs) override {
    in_addr host{};
    if (!parseDotted(address, host)) return kWsaInvalidArgument;
    if (_interrupt.raised()) return kWsaInterrupted;
    const int error = connectWithin(socketAddress(host, port), timeoutMs);
    const int restored = setNonBlocking(_nonBlocking);
    return error ? error : restored;
  }

  int setNonBlocking(bool on) override {
    u_long value = on ? 1 : 0;
    const int error =
        socketOutcome(::ioctlsocket(_socket.get(), static_cast<long>(FIONBIO), &value));
    if (!error) _nonBlocking = on;
    return error;
  }

  int receive(void* buffer, size_t size, size_t& got) override {
    const int n = ::recv(_socket.get(), static_cast<char*>(buffer),
                         static_cast<int>(std::min(size, kMostBytes)), 0);
    got = n < 0 ? 0 : static_cast<size_t>(n);
    return n < 0 ? ::WSAGetLastError() : 0;
  }

  int send(const void* bytes, size_t size, size_t& sent) override {
    const int n = ::send(_socket.get(), static_cast<const char*>(bytes),
                         static_cast<int>(std::min(size, kMostBytes)), 0);
    sent = n < 0 ? 0 : static_cast<size_t>(n);
    return n < 0 ? ::WSAGetLastError() : 0;
  }

  int shutdownBoth() override { return socketOutcome(::shutdown(_socket.get(), SD_BOTH)); }
  void interrupt() override { _interrupt.raise(); }

 private:
  // Looks before it waits, since an event that came before the selection may not be recorded in it;
  // an interrupt wins over input, as it does on the other system.
  SocketWait waitForInput(uint32_t timeoutMs, int& error) {
    error = 0;
    if (_interrupt.raised()) return SocketWait::interrupted;
    EventSelection selection(_socket.get(), FD_READ | FD_ACCEPT | FD_CLOSE);
    error = selection.error();
    if (error) return SocketWait::failed;
    if (readableNow(_socket.get())) return SocketWait::ready;
    switch (waitForObject(selection.event(), timeoutMs, _interrupt)) {
      case ObjectWait::signalled:
        return SocketWait::ready;
      case ObjectWait::timedOut:
        return SocketWait::timedOut;
      case ObjectWait::interrupted:
        return SocketWait::interrupted;
      case ObjectWait::abandoned:
      case ObjectWait::failed:
        break;
    }
    error = kWsaSystemCallFailure;
    return SocketWait::failed;
  }

  int connectWithin(const sockaddr_in& address, uint32_t timeoutMs) {
    EventSelection selection(_socket.get(), FD_CONNECT);
    if (selection.error()) return selection.error();
    if (::connect(_socket.get(), plainAddress(address), sizeof address) == 0) return 0;
    if (const int error = ::WSAGetLastError(); error != WSAEWOULDBLOCK) return error;
    switch (waitForObject(selection.event(), timeoutMs, _interrupt)) {
      case ObjectWait::signalled:
        return selection.outcome(FD_CONNECT_BIT);
      case ObjectWait::timedOut:
        return kWsaTimedOut;
      case ObjectWait::interrupted:
        return kWsaInterrupted;
      case ObjectWait::abandoned:
      case ObjectWait::failed:
        break;
    }
    return kWsaSystemCallFailure;
  }

  const SocketHandle _socket;
  WinInterrupt _interrupt;
  bool _nonBlocking = false;
};

std::string dottedText(const ADDRINFOW& entry) {
  wchar_t text[INET_ADDRSTRLEN] = L"";
  const auto* address = reinterpret_cast<const sockaddr_in*>(entry.ai_addr);
  ::InetNtopW(AF_INET, &address->sin_addr, text, std::size(text));
  return narrow(text);
}

class WinSockets final : public Sockets {
 public:
  int startup() override {
    WSADATA data;
    return ::WSAStartup(MAKEWORD(2, 0), &data);
  }

  void cleanup() override { ::WSACleanup(); }

  int createTcp(std::unique_ptr<Socket>& out) override {
    SocketHandle socket(::WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                                     WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
    if (!socket) return ::WSAGetLastError();
    auto made = std::make_unique<WinSocket>(std::move(socket));
    if (!made->valid()) return kWsaTooManySockets;
    out = std::move(made);
    return 0;
  }

  int resolve(const std::string& host, std::vector<std::string>& out) override {
    out.clear();
    in_addr dotted{};
    if (parseDotted(host, dotted)) {
      out.push_back(host);
      return 0;
    }
    ADDRINFOW hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    ADDRINFOW* found = nullptr;
    if (const int error = ::GetAddrInfoW(wide(host).c_str(), nullptr, &hints, &found)) return error;
    const std::unique_ptr<ADDRINFOW, void(WSAAPI*)(ADDRINFOW*)> owned(found, ::FreeAddrInfoW);
    for (const ADDRINFOW* entry = found; entry; entry = entry->ai_next)
      out.push_back(dottedText(*entry));
    return out.empty() ? kWsaHostNotFound : 0;
  }

  void shutdownForeign(uint64_t handle) override {
    ::shutdown(static_cast<SOCKET>(handle), SD_BOTH);
  }
  void closeForeign(uint64_t handle) override { ::closesocket(static_cast<SOCKET>(handle)); }
};

}  // namespace

std::unique_ptr<Sockets> makeNativeSockets() {
  return std::make_unique<WinSockets>();
}

}  // namespace korvane::platform
