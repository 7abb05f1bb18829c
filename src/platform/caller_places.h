// The places of those who have connected to a pipe and are not served yet.
//
// Every ordinary account has one place; what else it connects finds none, so that no account keeps
// another out. Administrators have places of their own and are served first.
//
// A plain value, of one thread. Connection: moved; its destruction lets the caller go. Account:
// equal for the connections of one account, and for all those whose account is not known.
#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>

namespace korvane::platform {

template <class Connection, class Account>
class CallerPlaces {
 public:
  static constexpr size_t kAccounts = 16;
  static constexpr size_t kAdministrators = 16;

  struct Caller {
    Connection connection;
    Account account{};
    bool administrator = false;
  };

  // False: there is no place for it, and it is let go. hasGone(connection) tells whether the place
  // of its account is free again.
  template <class HasGone>
  bool place(Caller caller, HasGone hasGone) {
    if (caller.administrator) {
      if (isFull()) return false;
      _administrators.push_back(std::move(caller));
      return true;
    }
    const auto same = std::find_if(_others.begin(), _others.end(), [&](const Caller& waiting) {
      return waiting.account == caller.account;
    });
    if (same != _others.end()) {
      if (!hasGone(same->connection)) return false;
      same->connection = std::move(caller.connection);
      return true;
    }
    if (_others.size() >= kAccounts) return false;
    _others.push_back(std::move(caller));
    return true;
  }
  // As many administrators wait as may.
  bool isFull() const { return _administrators.size() >= kAdministrators; }
  bool empty() const { return _administrators.empty() && _others.empty(); }
  bool administratorWaits() const { return !_administrators.empty(); }
  // The next one to be served: administrators before others, each in their order. Not when empty.
  Caller next() {
    std::deque<Caller>& callers = _administrators.empty() ? _others : _administrators;
    Caller first = std::move(callers.front());
    callers.pop_front();
    return first;
  }

 private:
  std::deque<Caller> _administrators;
  std::deque<Caller> _others;
};

}  // namespace korvane::platform
