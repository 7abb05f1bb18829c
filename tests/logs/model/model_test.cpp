// The model against the agent's forwarding. Other seeds and longer runs: log_model
// --schedules N --seed S. That the account sees what it is there for show the faults of
// ../faults.txt (script/mutants).
#include <gtest/gtest.h>

#include "tests/logs/model/schedule.h"

namespace korvane::log_model {
namespace {

constexpr int kCases = 8, kSchedulesACase = KORVANE_SCHEDULES / kCases;

class AgentsForwarding : public testing::TestWithParam<int> {};

TEST_P(AgentsForwarding, losesNothingAndInventsNothing) {
  Counts counts;
  const auto first = static_cast<uint64_t>(1 + GetParam() * kSchedulesACase);
  EXPECT_EQ(runSchedules(first, kSchedulesACase, makeAgentForwarder, counts), "");
}
INSTANTIATE_TEST_SUITE_P(Seeds, AgentsForwarding, testing::Range(0, kCases));

}  // namespace
}  // namespace korvane::log_model
