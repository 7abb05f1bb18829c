#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/standard_agent_comm.h"
#include "tests/support/simulated_agent.h"

namespace korvane {
namespace {

using ::testing::HasSubstr;
using tests::Answer;
using tests::kRegistered;
using tests::SimulatedMachine;

// One registration step; `elapsed` is how long it took in simulated time.
struct Step {
  explicit Step(SimulatedMachine& machine) : comm(*AgentConfig::getInstance()) {
    const int64_t before = machine.now();
    result = comm.registerAgent(builtinReported);
    elapsed = machine.now() - before;
  }
  StandardAgentComm comm;
  uint8_t builtinReported = 0;
  bool result = false;
  int64_t elapsed = 0;
};

TEST(Registration, RetriesTheCodesThatMayPassAfterTwentySeconds) {
  struct CodeCase {
    Answer answer;
    const char* meaning;  // in the trace
  };
  const CodeCase cases[] = {
      {Answer::failure(5), "couldnt resolve proxy -- retry"},
      {Answer::failure(6), "couldnt resolve host -- retry"},
      {Answer::failure(7), "couldnot connect -- retry"},
      {Answer::failure(28), "operation timed out -- retry"},
      {Answer::failure(35), "ssl connect error -- retry"},
      {Answer::failure(45), "http port failed -- retry"},
      {Answer::failure(47), "too many redirects -- retry"},
      {Answer::failure(53), "SSL engine not found -- retry"},
      {Answer::failure(54), "ssl engine failed -- retry"},
      {Answer::failure(55), "send error -- retry"},
      {Answer::failure(56), "recieve error -- retry"},
      {Answer::failure(58), "problem with the cert -- retry"},
      {Answer::failure(59), "ssl cipher error -- retry"},
      {Answer::failure(60), "problem with the CA cert -- retry"},
      {Answer::error(300), "database error -- retry"},
      {Answer::error(301), "bad policy -- retry"},
      {Answer::http(400),
       "HTTPS Bad Request Error (caused by configuring the agent to use the console port) -- "
       "retry"},
      {Answer::error(600), "unknown error -- retry"},
  };
  for (const CodeCase& row : cases) {
    SCOPED_TRACE(row.meaning);
    SimulatedMachine machine;
    machine.server.queue("register", row.answer);
    machine.server.always("register", Answer::properties(kRegistered));
    const Step step(machine);
    EXPECT_TRUE(step.result);
    EXPECT_EQ(machine.server.count("register"), 2U);
    EXPECT_EQ(step.elapsed, 20000);
    EXPECT_EQ(machine.countLines(row.meaning), 1U);
    EXPECT_EQ(machine.countLines(",10100,"), 0U);
    EXPECT_EQ(machine.countLines("unsuccessful registration -- communications error"),
              row.answer.headers.empty() ? 1U : 0U);
    EXPECT_THAT(machine.ini(), HasSubstr("agent.id=guid-7"));
    EXPECT_THAT(machine.fake.files.content("/opt/korvane/IPS/fallback.ini"),
                HasSubstr("agent.id=guid-7"));
    EXPECT_EQ(machine.countLines(",10103,"), 1U);
  }
}

TEST(Registration, ReportsAnyOtherCodeAndGoesByWhatTheServerLeft) {
  for (const Answer& answer : {Answer::failure(52), Answer::http(500), Answer::error(17)}) {
    SimulatedMachine machine;
    machine.server.queue("register", answer);
    const Step step(machine);
    EXPECT_FALSE(step.result);
    EXPECT_EQ(machine.server.count("register"), 1U);
    EXPECT_EQ(machine.countLines(",10100,"), 1U);
    EXPECT_EQ(machine.countLines("Fatal Registration."), 1U);
    EXPECT_FALSE(AgentConfig::getInstance()->registered());
  }
}

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
    const Step step(machine);
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
    StandardAgentComm comm(*AgentConfig::getInstance());
    uint8_t reported = 0;
    bool result = false;
    const auto thread = machine.sim.createThread(0, [&] { result = comm.registerAgent(reported); });
    machine.sim.runFor(65000);
    EXPECT_EQ(machine.server.count("register"), answer.hangs ? 1U : 4U);
    const int64_t before = machine.now();
    shutdownToken().request();
    thread->join(platform::kInfinite);
    EXPECT_EQ(machine.now(), before);
    EXPECT_TRUE(result);
    EXPECT_EQ(machine.countLines(",10100,"), 0U);
    EXPECT_EQ(machine.countLines("could not get guid"), 0U);
    EXPECT_TRUE(comm.registerAgent(reported)) << "nor does a later call begin anew";
    EXPECT_EQ(machine.server.count("register"), answer.hangs ? 1U : 4U);
  }
}

}  // namespace
}  // namespace korvane
