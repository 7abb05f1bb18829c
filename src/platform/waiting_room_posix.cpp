#include "platform/waiting_room_posix.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace korvane::platform {
namespace {

// Its place is free for another connection of the account.
bool hasGone(const Descriptor& connection) {
  char byte;
  const ssize_t seen = ::recv(connection.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return seen == 0 || (seen < 0 && errno != EAGAIN && errno != EINTR);
}

}  // namespace

bool accountOf(int connection, uid_t& account) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  account = peer.uid;
  return true;
}

bool isAdministrator(uid_t account) {
  return account == 0 || account == ::geteuid();
}

bool WaitingRoom::admit(int listener, bool sparingly) {
  if (pauseMs() > 0) return true;
  bool surplus = false;
  for (int i = 0; i < kBatch; ++i) {
    _full = _places.isFull();
    if (_full) break;
    Descriptor caller(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!caller) {
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) return false;
      break;
    }
    surplus = !place(std::move(caller)) || sparingly || surplus;
  }
  if (surplus) _closedUntil = Deadline(kPauseMs);
  return true;
}

uint32_t WaitingRoom::pauseMs() const {
  return static_cast<uint32_t>(std::max(_closedUntil.remainingMs(), 0));
}

bool WaitingRoom::place(Descriptor connection) {
  uid_t account = 0;
  if (!accountOf(connection.get(), account)) return false;
  return _places.place({std::move(connection), account, isAdministrator(account)}, hasGone);
}

WaitingRoom::Places::Caller WaitingRoom::next() {
  _full = false;
  return _places.next();
}

}  // namespace korvane::platform
