// TCP sockets over IPv4 and host names. Returns are 0 or a Winsock error number.
// Threads: a socket is used by one thread; interrupt() may be called by any other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane::platform {

enum class SocketWait { ready, timedOut, interrupted, failed };

// Closed by its destructor.
class Socket {
 public:
  virtual ~Socket() = default;
  // Binds to a local address: any when `anyAddress`, else 127.0.0.1. Port 0 picks a free one.
  [[nodiscard]] virtual int bind(bool anyAddress, uint16_t port) = 0;
  [[nodiscard]] virtual int listen(int backlog) = 0;
  virtual uint16_t localPort() = 0;
  // Waits until there is something to read or a connection to accept. `error` is set for `failed`.
  [[nodiscard]] virtual SocketWait waitReadable(uint32_t timeoutMs, int& error) = 0;
  [[nodiscard]] virtual int accept(std::unique_ptr<Socket>& out) = 0;
  // Connects to a dotted address within timeoutMs: 10060 when the time is up, 10004 after
  // interrupt(), 10061 when nothing listens there.
  [[nodiscard]] virtual int connect(const std::string& address, uint16_t port,
                                    uint32_t timeoutMs) = 0;
  [[nodiscard]] virtual int setNonBlocking(bool on) = 0;
  // got 0 with no error: the peer has closed. 10035: nothing there (non-blocking).
  [[nodiscard]] virtual int receive(void* buffer, size_t size, size_t& got) = 0;
  [[nodiscard]] virtual int send(const void* bytes, size_t size, size_t& sent) = 0;
  [[nodiscard]] virtual int shutdownBoth() = 0;
  // Makes waitReadable and connect, the present call and every later one, end as
  // interrupted. Any thread.
  virtual void interrupt() = 0;
};

class Sockets {
 public:
  virtual ~Sockets() = default;
  // Windows: WSAStartup(2.0) and WSACleanup, counted. Elsewhere nothing.
  [[nodiscard]] virtual int startup() = 0;
  virtual void cleanup() = 0;
  [[nodiscard]] virtual int createTcp(std::unique_ptr<Socket>& out) = 0;
  // The IPv4 addresses of a host name, dotted, in the resolver's order; a dotted address
  // gives itself. May block for as long as the system's resolver does: call it on a thread
  // that can be left behind.
  [[nodiscard]] virtual int resolve(const std::string& host, std::vector<std::string>& out) = 0;
  // Shuts down a connected socket that another library owns, so that its blocked calls return.
  virtual void shutdownForeign(uint64_t handle) = 0;
  // Closes such a socket, for a library that leaves the closing to its user.
  virtual void closeForeign(uint64_t handle) = 0;
};

}  // namespace korvane::platform
