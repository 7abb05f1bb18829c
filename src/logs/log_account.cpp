#include "logs/log_account.h"

#include <algorithm>
#include <utility>

#include "platform/clock.h"

namespace korvane {

void LogAccount::resume(const std::optional<StreamState>& saved) {
  _state = _ledger.resume(_stream, saved);
  publish(0);
}

void LogAccount::loseLine(LossCause cause, const std::string& log, uint64_t identity, int64_t from,
                          int64_t to) {
  if (takesOut(cause)) ++_state.read;
  loseHeld(cause, log, identity, 1, from, to);
}

void LogAccount::loseHeld(LossCause cause, const std::string& log, uint64_t identity,
                          uint64_t lines, int64_t from, int64_t to) {
  const int64_t now = _clock.wallMs();
  add({_stream,
       log,
       cause,
       lines,
       true,
       {static_cast<uint64_t>(from), now},
       {static_cast<uint64_t>(to), now},
       identity});
}

void LogAccount::loseRest(LossCause cause, const std::string& log, int64_t from) {
  const LossPlace place{static_cast<uint64_t>(from), _clock.wallMs()};
  add({_stream, log, cause, 1, false, place, place, 0});
}

void LogAccount::add(Loss loss) {
  const uint64_t boundary = _boundary();
  for (Pending& pending : _pending) {
    Loss& known = pending.loss;
    if (pending.boundary != boundary || known.cause != loss.cause || !known.counted ||
        !loss.counted || known.log != loss.log)
      continue;
    known.count += loss.count;
    known.last = loss.last;
    return;
  }
  _pending.push_back({std::move(loss), boundary});
}

uint64_t LogAccount::pendingLines() const {
  uint64_t lines = 0;
  for (const auto& [loss, boundary] : _pending)
    if (loss.counted && takesOut(loss.cause)) lines += loss.count;
  return lines;
}

bool LogAccount::lostBefore(int64_t position) const {
  return std::any_of(_pending.begin(), _pending.end(), [&](const Pending& pending) {
    return pending.loss.first.position < static_cast<uint64_t>(position);
  });
}

LogAccount::Settled LogAccount::settleBefore(int64_t position, uint64_t held) {
  std::vector<Loss> past;
  std::erase_if(_pending, [&](Pending& pending) {
    if (pending.loss.first.position >= static_cast<uint64_t>(position)) return false;
    past.push_back(std::move(pending.loss));
    return true;
  });
  _ledger.settle(_stream, past, _state);
  Settled settled{_state, !past.empty()};
  settled.state.read -= held + pendingLines();
  return settled;
}

void LogAccount::publish(uint64_t held) {
  _ledger.publish(_stream, _state, held + pendingLines());
}

}  // namespace korvane
