#include "platform/waiting_room_posix.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace korvane::platform {
namespace {

// Its place is free for another connection of the account.
bool hasGone(const Caller& caller) {
  char byte;
  const ssize_t seen = ::recv(caller.connection.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return seen == 0 || (seen < 0 && errno != EAGAIN && errno != EINTR);
}

Caller take(std::deque<Caller>& callers) {
  Caller first = std::move(callers.front());
  callers.pop_front();
  return first;
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
    _full = _administrators.size() >= kAdministrators;
    if (_full) break;
    Caller caller{Descriptor(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK))};
    if (!caller.connection) {
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

bool WaitingRoom::place(Caller caller) {
  if (!accountOf(caller.connection.get(), caller.account)) return false;
  caller.administrator = isAdministrator(caller.account);
  if (caller.administrator) {
    _administrators.push_back(std::move(caller));
    return true;
  }
  const auto same = std::find_if(_others.begin(), _others.end(), [&](const Caller& waiting) {
    return waiting.account == caller.account;
  });
  if (same != _others.end()) {
    if (!hasGone(*same)) return false;
    same->connection = std::move(caller.connection);
    return true;
  }
  if (_others.size() >= kAccounts) return false;
  _others.push_back(std::move(caller));
  return true;
}

Caller WaitingRoom::next() {
  _full = false;
  return take(_administrators.empty() ? _others : _administrators);
}

}  // namespace korvane::platform
