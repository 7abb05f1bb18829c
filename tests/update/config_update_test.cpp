// Configuration: what is done with the answers.
#include <gmock/gmock.h>

#include "tests/update/cycles.h"
#include "tests/update/policy_world.h"
#include "util/errors.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::Cycles;
using tests::NotifiedCycles;
using tests::TestIds;

TEST(ConfigUpdate, AsksForThePolicyOnlyWhilePreventionIsInForce) {
  struct PolicyCase {
    const char* settings;
    char byte;
    size_t updates;
    size_t withPolicy;
  };
  for (const PolicyCase& row :
       {PolicyCase{"[Driver]\nips.enabled=true\n", 3, 1, 1},
        {"[Driver]\nips.enabled=false\n", 3, 1, 0},
        {"[Driver]\nips.enabled=false\n", 2, 0, 0},
        {"[Driver]\nips.enabled=true\nips.reboot.required=true\n", 2, 1, 1}}) {
    NotifiedCycles cycles(row.settings);
    cycles.notify(row.byte);
    EXPECT_EQ(cycles.updates(), row.updates) << row.settings;
    EXPECT_EQ(cycles.updates("update.policy=true"), row.withPolicy) << row.settings;
  }
}

TEST(ConfigUpdate, TellsWhyTheIdsComponentDidNotTakeItsSettings) {
  struct FailureCase {
    bool installed, takes;
    char byte;
    int code;
    const char* text;
  };
  for (const FailureCase& row :
       {FailureCase{true, false, 16, 36,
                    "Failed to save new configuration data from server to disk."},
        {true, true, 16, 7, "no"},
        {false, true, 16, 1003, "The IDS component is not installed."},
        {false, true, 1, 0, "No Error"}}) {
    NotifiedCycles cycles;
    TestIds ids;
    ids.installed = row.installed;
    ids.takes = row.takes;
    ids.results = {{"IDS.Config.ResultCode", "7"}, {"IDS.Config.ResultMessage", "no"}};
    cycles.machine.server.queue("update",
                                Answer::properties("update.configuration=true\nids.a=b\n"));
    cycles.notify(row.byte);
    EXPECT_EQ(cycles.results("result.errorcode=" + std::to_string(row.code) +
                             "\nresult.errormessage=" + row.text + "\n"),
              1U)
        << row.text;
  }
}

TEST(ConfigUpdate, ACorruptIdsResultEndsTheThread) {
  struct CorruptCase {
    PropertyList results;
    int code;
  };
  for (const CorruptCase& row :
       {CorruptCase{{}, 51},
        {{{"IDS.Config.ResultCode", "0"}}, 51},
        {{{"IDS.Config.ResultMessage", "x"}}, 51},
        {{{"IDS.Config.ResultCode", ""}, {"IDS.Config.ResultMessage", "x"}}, 39}}) {
    NotifiedCycles cycles;
    TestIds ids;
    ids.results = row.results;
    cycles.machine.server.queue(
        "update", Answer::properties("update.configuration=true\nids.a=b\nfailback.interval=77\n"));
    try {
      cycles.notify(16);
      ADD_FAILURE() << "nothing was raised";
    } catch (const AgentError& error) {
      EXPECT_EQ(error.code(), row.code);
    }
    EXPECT_EQ(cycles.results("result.errorcode=" + std::to_string(row.code) + "\n"), 1U);
    EXPECT_EQ(cycles.config().getFailbackInterval(), 77U) << "the agent's own settings count";
  }
}

TEST(ConfigUpdate, TakesLogRulesWholeOrNotAtAll) {
  constexpr char kFile[] = "/opt/korvane/IPS/log.rules";
  constexpr char kBefore[] = "korvane-log-rules 1 1\nLog.old=*:1\n";
  constexpr char kAfter[] = "korvane-log-rules 1 2\nLog.a=TFIL:1\nLog.b=*:0\n";
  const std::string refusal = "No log rule counts because of Log.b: it does not end with :0 or :1.";
  const struct {
    const char *rules, *idsCode, *file;
    std::string result;
    size_t given;  // to the component: a setting and the rules
  } cases[] = {
      {"Log.a=TFIL:1\nLog.b=*:0\n", "0", kAfter, "0\nresult.errormessage=fine\n", 3},
      {"Log.a=TFIL:1\nLog.b=*:0\n", "7", kAfter, "7\nresult.errormessage=fine\n", 3},
      {"", "0", kBefore, "0\nresult.errormessage=fine\n", 1},
      {"Log.a=TFIL:1\nLog.b=*\n", "0", kBefore, "1005\nresult.errormessage=" + refusal, 1},
      {"Log.a=TFIL:1\nLog.b=*\n", "7", kBefore, "7\nresult.errormessage=fine " + refusal, 1},
      {"Log.a=TFIL:1\nLog.b=*:0\n", "none", kAfter, "0\nresult.errormessage=No Error\n", 0},
  };
  for (const auto& c : cases) {
    NotifiedCycles cycles;
    cycles.machine.fake.files.put(kFile, kBefore);
    TestIds ids;
    ids.installed = c.idsCode != std::string("none");
    ids.results = {{"IDS.Config.ResultCode", c.idsCode}, {"IDS.Config.ResultMessage", "fine"}};
    cycles.machine.server.queue(
        "update", Answer::properties("update.configuration=true\nids.a=b\nfailback.interval=77\n" +
                                     std::string(c.rules)));
    cycles.notify(1);
    EXPECT_EQ(cycles.machine.fake.files.content(kFile), c.file);
    EXPECT_EQ(cycles.results("result.errorcode=" + c.result), 1U) << c.result;
    EXPECT_EQ(ids.given.size(), c.given) << c.result;
    EXPECT_EQ(cycles.config().getFailbackInterval(), 77U);
    EXPECT_EQ(cycles.machine.countLines(",10740,"), c.file == kBefore && *c.rules ? 1U : 0U);
  }
}

// A notification that has something of each kind fetched, and an answer that gives it.
constexpr std::pair<char, const char*> kOutcomes[] = {
    {1, "update.configuration=true\npolling.interval=9000000\n"},
    {2, "update.policy=false\n"},
    {4, "update.software=false\n"},
    {8, "update.policy.ids=true\n"},
};

TEST(Report, IsAnsweredLikeAStatus) {
  struct ReplyCase {
    Answer answer;
    const char* identifier;
    size_t events10217;
  };
  for (const auto& [byte, update] : kOutcomes) {
    for (const ReplyCase& row : {ReplyCase{Answer(), "known", 0},
                                 {Answer::error(200), "known", 0},
                                 {Answer::error(300), "known", 1},
                                 {Answer::error(400), "", 1},
                                 {Answer::http(400), "known", 0},
                                 {Answer::failure(7), "known", 0}}) {
      NotifiedCycles cycles;
      cycles.machine.server.queue("update", Answer::properties(update));
      cycles.machine.server.queue("result", row.answer);
      cycles.notify(byte);
      EXPECT_EQ(cycles.machine.server.count("result"), 2U) << update;
      EXPECT_EQ(cycles.config().getUniqueId(), STRING(row.identifier)) << update;
      EXPECT_EQ(cycles.machine.countLines(",10217,"), row.events10217) << update;
      PolicyProcessor(policyPartsOfRun())
          .reconcile();  // the next agent of the process has nothing to tell
    }
  }
}

TEST(Report, OfAPolicyIsRepeatedWithTheStatusUntilItIsTaken) {
  for (const Answer& answer : {Answer::error(400), Answer::error(300), Answer::http(500)}) {
    Cycles cycles("[Polling]\npolling.interval=10\n[TCP]\ntcp.enabled=true\ntcp.port=2222\n");
    cycles.run(1);
    const auto told = [&cycles] { return cycles.results("result.errorcode=19\n"); };
    cycles.machine.server.queue("result", Answer::properties("update.policy=true\n"));
    cycles.run(11);
    EXPECT_EQ(told(), 1U);
    cycles.machine.server.queue("result", Answer::properties("update.policy=true\n"));
    cycles.machine.server.queue("result", answer);
    cycles.run(11);
    EXPECT_EQ(told(), 2U);
    cycles.config().setUniqueId("new");
    cycles.run(11);
    EXPECT_EQ(told(), 3U) << answer.status << answer.headers;
    cycles.run(33);
    EXPECT_EQ(told(), 3U) << "once it is taken it is told";
  }
}

TEST(ApplicationData, IsTakenFromTheAnswerToAnyReport) {
  const Answer offer =
      Answer::properties("send.application.request=true\nsend.application.requestID=r-7\n");
  Answer refusal = offer, later = offer;
  refusal.headers = "Korvane-Error: 300\r\n";
  later.headers = "Korvane-Error: 200\r\n";
  for (const auto& [byte, update] : kOutcomes) {
    for (const auto& [answer, taken] :
         {std::pair(&offer, true), {&refusal, false}, {&later, true}}) {
      NotifiedCycles cycles;
      cycles.machine.server.queue("update", Answer::properties(update));
      cycles.machine.server.queue("result", *answer);
      cycles.notify(byte);
      EXPECT_EQ(cycles.config().isAppDataRequested(), taken) << update;
      EXPECT_EQ(cycles.config().getAppDataRequestID(), STRING(taken ? "r-7" : "")) << update;
    }
  }
  NotifiedCycles cycles;
  cycles.machine.server.queue("update", offer);
  cycles.notify(1);
  EXPECT_FALSE(cycles.config().isAppDataRequested()) << "an update is not a report";
}

}  // namespace
}  // namespace korvane
