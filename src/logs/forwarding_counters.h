// What forwarding has done since the agent's start: the counters of this run.
//
// Threads: everything may be called by any thread. What the forwarding thread counts costs it a few
// atomic additions for each pass or batch, none for each record. A snapshot is not of one instant:
// while events flow, its numbers may be a batch apart.
//
//   {
//     ForwardingCounters::Pass pass;  // adds what it holds to the run's counters at its end
//     ++pass.read;
//   }
//   const ForwardingCounts counts = ForwardingCounters::snapshot();
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

struct ForwardingCounts {
  uint64_t read = 0;       // events read from logs; start and end markers are none
  uint64_t forwarded = 0;  // records delivered: events, and summaries of repeated ones
  uint64_t folded = 0;     // events that went into a summary instead of a record of their own
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
    Pass() = default;
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    ~Pass();
    uint64_t read = 0;
    uint64_t folded = 0;
  };

  static void addForwarded(uint64_t records);
  static void addRejected();
  static void addRetried();
  static void addDropped(uint64_t records);
  static void noteError(int code, std::string_view text);

  static ForwardingCounts snapshot();
};

}  // namespace korvane
