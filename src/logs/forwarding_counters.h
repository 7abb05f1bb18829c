// What forwarding has done since the agent's start.
//
// Threads: everything may be called by any thread. What the forwarding thread counts costs it a few
// atomic additions for each pass or batch, none for each record. A snapshot is not of one instant:
// while events flow, its numbers may be a batch apart.
//
//   {
//     ForwardingCounters::Pass pass(counters);  // adds what it holds to them at its end
//     ++pass.read;
//   }
//   const ForwardingCounts counts = counters.snapshot();
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "agent/thread/locks.h"
#include "platform/fwd.h"

namespace korvane {

struct ForwardingCounts {
  uint64_t read = 0;       // events read from logs; start and end markers are none,
                           // nor is what a log rule keeps back
  uint64_t forwarded = 0;  // records delivered: events, and summaries of repeated ones
  uint64_t folded = 0;     // events that went into a summary instead of a record of their own
  uint64_t keptBack = 0;   // events that a log rule keeps back
  uint64_t rejected = 0;   // lines that are not events, skipped
  uint64_t retried = 0;    // batches that were offered again
  uint64_t dropped = 0;    // records that the server answered with 302 or 600
  struct LastError {
    int code = 0;        // as the destination gave it; 0: there was none
    std::string text;    // UTF-8
    int64_t wallMs = 0;  // milliseconds since 1970 UTC
  } lastError;           // the newest failure; it stays when forwarding works again
};

class ForwardingCounters {
 public:
  struct Pass {
    explicit Pass(ForwardingCounters& counters) : to(counters) {}
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    ~Pass();
    ForwardingCounters& to;
    uint64_t read = 0;
    uint64_t folded = 0;
    uint64_t keptBack = 0;
  };

  // clock: outlives the counters.
  explicit ForwardingCounters(platform::Clock& clock) : _clock(clock) {}

  void addForwarded(uint64_t records) { add(_forwarded, records); }
  void addRejected() { add(_rejected, 1); }
  void addRetried() { add(_retried, 1); }
  void addDropped(uint64_t records) { add(_dropped, records); }
  void noteError(int code, std::string_view text);

  ForwardingCounts snapshot() const;

 private:
  using Counter = std::atomic<uint64_t>;

  static void add(Counter& counter, uint64_t amount) {
    if (amount > 0) counter.fetch_add(amount, std::memory_order_relaxed);
  }

  platform::Clock& _clock;
  Counter _read{0}, _forwarded{0}, _folded{0}, _keptBack{0}, _rejected{0}, _retried{0}, _dropped{0};
  mutable Win32Mutex _lock;
  ForwardingCounts::LastError _lastError GUARDED_BY(_lock);
};

}  // namespace korvane
