#include "logs/forwarding_counters.h"

#include "platform/clock.h"

namespace korvane {

ForwardingCounters::Pass::~Pass() {
  add(to._read, read);
  add(to._folded, folded);
  add(to._keptBack, keptBack);
}

void ForwardingCounters::noteError(int code, std::string_view text) {
  const int64_t now = _clock.wallMs();
  const Synchronized held(_lock);
  _lastError = {code, std::string(text), now};
}

ForwardingCounts ForwardingCounters::snapshot() const {
  ForwardingCounts counts{_read, _forwarded, _folded, _keptBack, _rejected, _retried, _dropped, {}};
  const Synchronized held(_lock);
  counts.lastError = _lastError;
  return counts;
}

}  // namespace korvane
