#include "discovery/pace.h"

#include <algorithm>
#include <limits>

#include "platform/clock.h"

namespace korvane {
namespace {

constexpr int64_t kSliceMs = 20;
// No step works for longer; one that took more has waited for a disk or a network that hangs.
constexpr int64_t kMostWorkMs = 5000;

}  // namespace

Pace::Pace(platform::Clock& clock, StopToken& stop, unsigned share, uint64_t seconds)
    : _clock(clock),
      _stop(stop),
      _share(share),
      _end(clock.monotonicMs() + static_cast<int64_t>(seconds) * 1000),
      _since(clock.monotonicMs()) {}

bool Pace::goOn() {
  if (_stop.requested() || _timeIsUp) return false;
  const int64_t now = _clock.monotonicMs();
  _timeIsUp = now >= _end;
  if (_timeIsUp) return false;
  // The clock counts whole milliseconds: a slice may have taken up to one more than it shows.
  const int64_t worked = now - _since;
  if (worked < kSliceMs) return true;
  const int64_t counted = std::min(worked + 1, kMostWorkMs);
  const int64_t rest = std::min(counted * (100 - _share) / _share, _end - now);
  constexpr int64_t kLongest = std::numeric_limits<int32_t>::max();
  if (rest > 0 && _stop.sleepFor(static_cast<uint32_t>(std::min(rest, kLongest)))) return false;
  _since = _clock.monotonicMs();
  return true;
}

}  // namespace korvane
