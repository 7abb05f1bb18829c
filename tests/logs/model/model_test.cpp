// The model against the agent's forwarding, and against a simple forwarder and its faults, which shows that the
// account sees what it is there for. For other seeds and longer runs: log_model --help.
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

TEST(LogModelTest, aSimpleForwarderKeepsThePromises) {
  Counts counts;
  EXPECT_EQ(runSchedules(1, 1500, naive(Fault::none), counts), "");
  for (const uint64_t rotations : counts.rotations) EXPECT_GT(rotations, 100u);
}

class ForwardersFault : public testing::TestWithParam<int> {};

TEST_P(ForwardersFault, isSeen) {
  Counts counts;
  EXPECT_NE(runSchedules(1, 1500, naive(static_cast<Fault>(GetParam())), counts), "");
}
INSTANTIATE_TEST_SUITE_P(Each, ForwardersFault, testing::Range(1, kFaults));

}  // namespace
}  // namespace korvane::log_model
