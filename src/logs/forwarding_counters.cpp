#include "logs/forwarding_counters.h"

#include <atomic>

#include "agent/thread/locks.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

using Counter = std::atomic<uint64_t>;

struct Counters {
  Counter read{0}, forwarded{0}, folded{0}, rejected{0}, retried{0}, dropped{0};
  Win32Mutex lock;
  ForwardingCounts::LastError lastError GUARDED_BY(lock);
};

Counters& counters() {
  return AgentRun::current().part<Counters>(RunPart::forwardingCounters);
}

void add(Counter& counter, uint64_t amount) {
  if (amount > 0) counter.fetch_add(amount, std::memory_order_relaxed);
}

}  // namespace

ForwardingCounters::Pass::~Pass() {
  add(counters().read, read);
  add(counters().folded, folded);
}

void ForwardingCounters::addForwarded(uint64_t records) {
  add(counters().forwarded, records);
}

void ForwardingCounters::addRejected() {
  add(counters().rejected, 1);
}

void ForwardingCounters::addRetried() {
  add(counters().retried, 1);
}

void ForwardingCounters::addDropped(uint64_t records) {
  add(counters().dropped, records);
}

void ForwardingCounters::noteError(int code, std::string_view text) {
  const int64_t now = platform::current().clock.wallMs();
  Synchronized held(counters().lock);
  counters().lastError = {code, std::string(text), now};
}

ForwardingCounts ForwardingCounters::snapshot() {
  Counters& of = counters();
  ForwardingCounts counts{of.read,    of.forwarded, of.folded, of.rejected,
                          of.retried, of.dropped,   {}};
  Synchronized held(of.lock);
  counts.lastError = of.lastError;
  return counts;
}

}  // namespace korvane
