#include "tools/server/notifications.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace korvane::server {

namespace {

constexpr timeval kLimit = {2, 0};

class Socket {
 public:
  Socket() : _descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (_descriptor >= 0) close(_descriptor);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int get() const { return _descriptor; }

 private:
  const int _descriptor;
};

}  // namespace

void sendNotification(const std::string& address, int port, unsigned char byte) {
  Socket connection;
  sockaddr_in target = {};
  target.sin_family = AF_INET;
  target.sin_port = htons(static_cast<uint16_t>(port));
  errno = EINVAL;
  const bool sent =
      inet_pton(AF_INET, address.c_str(), &target.sin_addr) == 1 &&
      setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &kLimit, sizeof kLimit) == 0 &&
      connect(connection.get(), reinterpret_cast<sockaddr*>(&target), sizeof target) == 0 &&
      send(connection.get(), &byte, 1, MSG_NOSIGNAL) == 1;
  if (sent) return;
  throw std::system_error(errno, std::generic_category(),
                          "notify " + address + ":" + std::to_string(port));
}

}  // namespace korvane::server
