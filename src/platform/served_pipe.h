// The server's end of a pipe: whose turn it is, how long, and how much time ordinary callers get.
//
// The same on every system. What it derives from is the end of one connection: `End` with
// hasConnection() and use(Connection). `Room` has who waits: empty(), administratorWaits(), next().
// Only for the pipes of the systems. Threads: the pipe's.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "platform/caller_allowance.h"
#include "platform/error_codes.h"
#include "platform/pipes.h"

namespace korvane::platform {

template <class End, class Room>
class ServedPipe : public End {
 public:
  template <class... RoomParts>
  explicit ServedPipe(PipeAudience audience, RoomParts&&... parts)
      : _audience(audience), _room(std::forward<RoomParts>(parts)...) {}

  uint32_t peek(size_t& available) override {
    available = 0;
    settle();
    if (mustGiveWay()) return kErrorBrokenPipe;
    return this->hasConnection() && pauseMs() > 0 ? kOk : End::peek(available);
  }

  uint32_t write(const void* bytes, size_t size, size_t& written) override {
    written = 0;
    settle();
    if (mustGiveWay()) return kErrorNoData;
    return this->hasConnection() && pauseMs() > 0 ? kOk : End::write(bytes, size, written);
  }

  uint32_t renew() override {
    settle();
    this->use(Connection());
    return kOk;
  }

 protected:
  // Lets in who has connected meanwhile.
  virtual void admit() = 0;
  // What the thread did since the last time, but for an administrator, ordinary callers have cost.
  virtual void settle() = 0;

  bool connected() override {
    if (this->hasConnection()) return true;
    admit();
    if (!mayServe()) return false;
    auto next = _room.next();
    _ordinary = !next.administrator;
    _turnEnds = Clock::now() + std::chrono::milliseconds(Pipe::kTurnMs);
    this->use(std::move(next.connection));
    return true;
  }

  // An ordinary client has had its turn, and an administrator waits. While an administrator is
  // served, only a wait looks at who has come: the others wait in any case.
  bool mustGiveWay() {
    if (!servesOrdinary()) return false;
    admit();
    return _room.administratorWaits() && turnLeftMs() == 0;
  }
  int turnLeftMs() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(_turnEnds - Clock::now());
    return static_cast<int>(std::max<int64_t>(0, left.count()));
  }

  // For how long no ordinary caller is served; 0 while an administrator is.
  uint32_t pauseMs() const {
    return this->hasConnection() && !_ordinary ? 0 : _allowance.pauseMs();
  }
  bool mayServe() const {
    return _room.administratorWaits() || (!_room.empty() && _allowance.pauseMs() == 0);
  }
  bool servesOrdinary() const { return this->hasConnection() && _ordinary; }

  const PipeAudience _audience;
  Room _room;
  CallerAllowance _allowance;

 private:
  using Connection = decltype(std::declval<Room&>().next().connection);
  using Clock = std::chrono::steady_clock;

  bool _ordinary = false;         // the present client
  Clock::time_point _turnEnds{};  // until when it has its turn whoever waits
};

}  // namespace korvane::platform
