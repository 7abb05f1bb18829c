// What the server reads out of event records: sequence numbers, folded repeats, and the sums that
// tell whether everything arrived.
//
// A record's sequence number is its value "v2"; its value "a5" tells for how many events it stands,
// the last of which carries that number. A record so covers the numbers v2-a5+1 to v2. Pure
// functions over values; any thread.
//
//   EventSpan span = spanOf("v2=7\nv1=TFIL\na5=3\n");   // 5 to 7
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace korvane::server {

// Sequence numbers first to last, both included.
struct EventSpan {
  int64_t first = 0;
  int64_t last = 0;

  friend bool operator==(const EventSpan&, const EventSpan&) = default;
};

// Nothing for a record without a decimal "v2".
std::optional<EventSpan> spanOf(std::string_view recordPayload);

// Appends a span to a list, grown into the last one when it follows directly on it.
void appendSpan(std::vector<EventSpan>& spans, EventSpan span);

struct EventSums {
  int64_t covered = 0;     // sequence numbers that arrived, each counted as often as it came
  int64_t distinct = 0;    // each counted once
  int64_t duplicated = 0;  // covered - distinct
  int64_t lost = 0;        // numbers of the wanted span that never came
  std::vector<EventSpan> arrived;  // merged, ascending
  std::vector<EventSpan> missing;  // within the wanted span, ascending
};

// Sums over spans in any order. `wanted` is the span that should have arrived; without it, the one
// from the lowest to the highest number seen.
EventSums sumSpans(std::vector<EventSpan> spans, std::optional<EventSpan> wanted);

// The numbers of `spans` that lie in none of the merged, ascending `covered`.
int64_t countOutside(const std::vector<EventSpan>& spans, const std::vector<EventSpan>& covered);

// The numbers of `spans`, none twice, that lie in one of them.
int64_t countIn(const std::vector<EventSpan>& spans, const std::vector<EventSpan>& covered);

}  // namespace korvane::server
