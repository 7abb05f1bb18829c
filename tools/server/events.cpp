#include "tools/server/events.h"

#include <algorithm>
#include <charconv>

#include "tools/server/wire_message.h"

namespace korvane::server {

namespace {

// Beyond any real log; keeps the sums of numbers far from overflow.
constexpr int64_t kHighestSequence = int64_t{1} << 52;

std::optional<int64_t> decimal(std::string_view text) {
  int64_t number = 0;
  const char* last = text.data() + text.size();
  const auto [end, status] = std::from_chars(text.data(), last, number);
  if (text.empty() || status != std::errc() || end != last) return std::nullopt;
  return number;
}

// The gaps that merged, ascending spans leave in `wanted`.
std::vector<EventSpan> gaps(const std::vector<EventSpan>& merged, EventSpan wanted) {
  std::vector<EventSpan> missing;
  int64_t next = wanted.first;
  for (const EventSpan& span : merged) {
    if (span.last < next) continue;
    if (span.first > wanted.last) break;
    if (span.first > next) missing.push_back({next, span.first - 1});
    next = span.last + 1;
  }
  if (next <= wanted.last) missing.push_back({next, wanted.last});
  return missing;
}

int64_t sizeOf(const std::vector<EventSpan>& spans) {
  int64_t size = 0;
  for (const EventSpan& span : spans) size += span.last - span.first + 1;
  return size;
}

}  // namespace

std::optional<EventSpan> spanOf(std::string_view recordPayload) {
  const auto sequence = decimal(propertyIn(recordPayload, "v2"));
  if (!sequence || *sequence < 0 || *sequence > kHighestSequence) return std::nullopt;
  const int64_t repeats =
      std::clamp<int64_t>(decimal(propertyIn(recordPayload, "a5")).value_or(1), 1, *sequence + 1);
  return EventSpan{*sequence - repeats + 1, *sequence};
}

void appendSpan(std::vector<EventSpan>& spans, EventSpan span) {
  if (!spans.empty() && spans.back().last + 1 == span.first)
    spans.back().last = span.last;
  else
    spans.push_back(span);
}

EventSums sumSpans(std::vector<EventSpan> spans, std::optional<EventSpan> wanted) {
  EventSums sums;
  sums.covered = sizeOf(spans);
  std::ranges::sort(spans, {}, &EventSpan::first);
  for (const EventSpan& span : spans) {
    if (!sums.arrived.empty() && span.first <= sums.arrived.back().last + 1) {
      sums.arrived.back().last = std::max(sums.arrived.back().last, span.last);
    } else {
      sums.arrived.push_back(span);
    }
  }
  sums.distinct = sizeOf(sums.arrived);
  sums.duplicated = sums.covered - sums.distinct;
  if (!wanted && !sums.arrived.empty())
    wanted = {sums.arrived.front().first, sums.arrived.back().last};
  if (wanted) sums.missing = gaps(sums.arrived, *wanted);
  sums.lost = sizeOf(sums.missing);
  return sums;
}

int64_t countOutside(const std::vector<EventSpan>& spans, const std::vector<EventSpan>& covered) {
  int64_t outside = 0;
  for (const EventSpan& span : spans) outside += sizeOf(gaps(covered, span));
  return outside;
}

int64_t countIn(const std::vector<EventSpan>& spans, const std::vector<EventSpan>& covered) {
  return sizeOf(spans) - countOutside(spans, covered);
}

}  // namespace korvane::server
