#include "tools/server/events.h"

#include <gmock/gmock.h>

namespace korvane::server {

void PrintTo(const EventSpan& span, std::ostream* out) {
  *out << span.first << ".." << span.last;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Events, SpanOfARecord) {
  const struct {
    const char* record;
    std::optional<EventSpan> span;
  } cases[] = {
      {"v2=7\nv1=TFIL\n", EventSpan{7, 7}},
      {"v2=7\na5=1\n", EventSpan{7, 7}},
      {"v2=7\na5=3\n", EventSpan{5, 7}},
      {"v2=7\na5=100\n", EventSpan{0, 7}},
      {"v2=7\na5=-2\n", EventSpan{7, 7}},
      {"v2=7\na5=x\n", EventSpan{7, 7}},
      {"xv2=7\n", std::nullopt},
      {"v2=\n", std::nullopt},
      {"v2=7a\n", std::nullopt},
      {"v2=-7\n", std::nullopt},
      {"v2=9223372036854775807\n", std::nullopt},
  };
  for (const auto& tried : cases) EXPECT_EQ(spanOf(tried.record), tried.span) << tried.record;
}

TEST(Events, ConsecutiveSpansGrowTogether) {
  std::vector<EventSpan> spans;
  for (const EventSpan span : {EventSpan{1, 1}, {2, 4}, {4, 4}, {6, 6}, {7, 7}})
    appendSpan(spans, span);
  EXPECT_THAT(spans, ElementsAre(EventSpan{1, 4}, EventSpan{4, 4}, EventSpan{6, 7}));
}

TEST(Events, SumsTellLossFromDuplication) {
  const EventSums none = sumSpans({}, std::nullopt);
  EXPECT_EQ(none.lost, 0);
  EXPECT_EQ(sumSpans({}, EventSpan{1, 10}).lost, 10);

  const EventSums sums = sumSpans({{20, 29}, {1, 10}, {8, 12}, {25, 25}, {13, 13}}, std::nullopt);
  EXPECT_EQ(sums.covered, 10 + 10 + 5 + 1 + 1);
  EXPECT_EQ(sums.distinct, 23);
  EXPECT_EQ(sums.duplicated, 4);
  EXPECT_EQ(sums.lost, 6);
  EXPECT_THAT(sums.arrived, ElementsAre(EventSpan{1, 13}, EventSpan{20, 29}));
  EXPECT_THAT(sums.missing, ElementsAre(EventSpan{14, 19}));

  const EventSums wanted = sumSpans({{5, 6}, {9, 20}}, EventSpan{1, 10});
  EXPECT_THAT(wanted.missing, ElementsAre(EventSpan{1, 4}, EventSpan{7, 8}));
  EXPECT_THAT(sumSpans({{0, 99}}, EventSpan{1, 10}).missing, IsEmpty());
}

TEST(Events, NumbersInsideAndOutside) {
  const std::vector<EventSpan> covered = {{1, 3}, {6, 9}};
  EXPECT_EQ(countOutside({{2, 7}, {20, 21}}, covered), 2 + 2);
  EXPECT_EQ(countIn({{2, 7}, {20, 21}}, covered), 4);
  EXPECT_EQ(countOutside({{2, 7}}, {}), 6);
}

}  // namespace
}  // namespace korvane::server
