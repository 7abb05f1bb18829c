#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/agent_context.h"
#include "agent/agent_factory.h"
#include "tests/support/simulated_agent.h"

namespace korvane {
namespace {

using ::testing::HasSubstr;
using tests::Answer;
using tests::kRegistered;
using tests::SimulatedMachine;

struct Step {
  std::unique_ptr<AgentComm> comm = makeAgentComm(contextOfRun());
  uint8_t builtinReported = 0;
  bool result = comm->registerAgent(builtinReported);
};

TEST(Registration, SendsTheConfiguredPolicyOrTheShippedOneOrNone) {
  struct PolicyCase {
    const char* settings;
    bool shipped;
    std::string sent;
  };
  const PolicyCase cases[] = {
      {"[Driver]\nplus.policy.file=/opt/korvane/own.zip\n", true, "OWN-POLICY"},
      {"[Driver]\nplus.policy.file=/opt/korvane/missing.zip\n", true, "SHIPPED-POLICY"},
      {"", true, "SHIPPED-POLICY"},
      {"", false, ""},
  };
  for (const PolicyCase& row : cases) {
    SimulatedMachine machine({.settings = row.settings});
    machine.fake.files.put("/opt/korvane/own.zip", "OWN-POLICY");
    if (row.shipped) machine.fake.files.put("/opt/korvane/IPS/builtin.zip", "SHIPPED-POLICY");
    machine.server.always("register", Answer::properties(kRegistered));
    const Step step;
    ASSERT_TRUE(step.result);
    const std::string body = machine.server.requests("register")[0].body;
    EXPECT_THAT(body, HasSubstr(row.sent));
    EXPECT_EQ(body.find("binary/zip") == std::string::npos, row.sent.empty());
    EXPECT_EQ(machine.countLines("builtin policy not present "), row.sent.empty() ? 1U : 0U);
  }
}

TEST(Registration, AStopEndsPauseAndExchangeAndIsNoFailure) {
  for (const Answer& answer : {Answer::failure(7), Answer::hanging()}) {
    SimulatedMachine machine;
    machine.server.always("register", answer);
    const std::unique_ptr<AgentComm> comm = makeAgentComm(contextOfRun());
    uint8_t reported = 0;
    bool result = false;
    const auto thread =
        machine.sim.createThread(0, [&] { result = comm->registerAgent(reported); });
    machine.sim.runFor(65000);
    EXPECT_EQ(machine.server.count("register"), answer.hangs ? 1U : 4U);
    const int64_t before = machine.now();
    shutdownToken().request();
    thread->join(platform::kInfinite);
    EXPECT_EQ(machine.now(), before);
    EXPECT_TRUE(result);
    EXPECT_EQ(machine.countLines(",10100,"), 0U);
    EXPECT_EQ(machine.countLines("could not get guid"), 0U);
    EXPECT_TRUE(comm->registerAgent(reported)) << "nor does a later call begin anew";
    EXPECT_EQ(machine.server.count("register"), answer.hangs ? 1U : 4U);
  }
}

// The stop ends the exchange before it has told the component.
TEST(Registration, AnExchangeThatAStopEndsIsNoFailureEitherWhileTheStopIsOnItsWay) {
  SimulatedMachine machine;
  machine.server.always("register", Answer::hanging());
  std::unique_ptr<platform::NativeThread> thread;
  const StopCallback slow(shutdownToken(), [&] { thread->join(1000); });
  const std::unique_ptr<AgentComm> comm = makeAgentComm(contextOfRun());
  uint8_t reported = 0;
  bool result = false;
  thread = machine.sim.createThread(0, [&] { result = comm->registerAgent(reported); });
  machine.sim.runFor(5000);
  shutdownToken().request();
  thread->join(platform::kInfinite);
  EXPECT_TRUE(result);
  EXPECT_EQ(machine.countLines("could not get guid"), 0U);
}

}  // namespace
}  // namespace korvane
