// The model against the agent's forwarding, and against a simple forwarder and its faults, which shows that the
// account sees what it is there for. Other seeds and longer runs: log_model --schedules N --seed S.
#include <gtest/gtest.h>

#include "tests/logs/model/naive_forwarder.h"
#include "tests/logs/model/schedule.h"

namespace korvane::log_model {
namespace {

MakeForwarder naive(Fault fault) {
  return [fault](Machine& machine, Receiver& receiver) {
    return makeNaiveForwarder(machine, receiver, fault);
  };
}

constexpr int kCases = 8, kSchedulesACase = 2500;

class AgentsForwarding : public testing::TestWithParam<int> {};

TEST_P(AgentsForwarding, losesNothingAndInventsNothing) {
  Counts counts;
  const auto first = static_cast<uint64_t>(1 + GetParam() * kSchedulesACase);
  EXPECT_EQ(runSchedules(first, kSchedulesACase, makeAgentForwarder, counts), "");
}
INSTANTIATE_TEST_SUITE_P(Seeds, AgentsForwarding, testing::Range(0, kCases));

TEST(LogModelTest, aSimpleForwarderKeepsThePromises) {
  Counts counts;
  EXPECT_EQ(runSchedules(1, 1500, naive(Fault::none), counts), "");
  for (const uint64_t rotations : counts.rotations) EXPECT_GT(rotations, 100u);
  EXPECT_GT(counts.kills, 1000u);
  EXPECT_GT(counts.summaries, 300u);
  EXPECT_LT(counts.excluded * 100, counts.events * 15);  // the account covers nearly all
}

class ForwardersFault : public testing::TestWithParam<int> {};

TEST_P(ForwardersFault, isSeen) {
  Counts counts;
  EXPECT_NE(runSchedules(1, 1500, naive(static_cast<Fault>(GetParam())), counts), "");
}
INSTANTIATE_TEST_SUITE_P(Each, ForwardersFault, testing::Range(1, kFaults));

}  // namespace
}  // namespace korvane::log_model
