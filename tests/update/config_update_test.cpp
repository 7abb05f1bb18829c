// Configuration: the retry rules, and what is done with the answers.
#include <gmock/gmock.h>

#include "discovery/app_data_requests.h"
#include "tests/update/cycles.h"
#include "tests/update/policy_world.h"
#include "util/errors.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::Cycles;
using tests::NotifiedCycles;
using tests::TestIds;

TEST(ConfigRetry, PausesAfterTheTenthRefusalAndIsArmedAgainByTheEleventh) {
  NotifiedCycles cycles;
  cycles.machine.server.always("update", Answer::error(200));
  cycles.notify(1);
  EXPECT_EQ(cycles.updates(), 1U);
  cycles.run(4);
  EXPECT_EQ(cycles.updates(), 1U);
  cycles.run(1);
  EXPECT_EQ(cycles.updates(), 2U) << "five cycles after the refusal";
  EXPECT_EQ(cycles.updates("update.configuration=true\nupdate.policy=true"), 1U) << "both";
  cycles.run(6);
  EXPECT_EQ(cycles.updates(), 3U) << "six cycles after the next, since the reload counts as one";
  cycles.run(1000);
  EXPECT_EQ(cycles.updates(), 10U);
  cycles.notify(1);
  EXPECT_EQ(cycles.updates(), 11U);
  cycles.run(600);
  EXPECT_GE(cycles.updates(), 110U) << "the count has passed ten";
}

TEST(ConfigRetry, ForgetsTheCountOnlyByAFailedExchangeOrAnAnswerWithoutACode) {
  struct EndCase {
    Answer answer;
    size_t retries;  // of the refusals that follow ten and this answer
  };
  for (const EndCase& row : {EndCase{Answer(), 9},
                             {Answer::failure(28), 9},
                             {Answer::http(500), 9},
                             {Answer::error(300), 16},
                             {Answer::error(600), 16}}) {
    NotifiedCycles cycles;
    cycles.machine.server.always("update", Answer::error(200));
    cycles.notify(1);
    cycles.run(200);
    ASSERT_EQ(cycles.updates(), 10U);
    cycles.machine.server.queue("update", row.answer);
    cycles.notify(1);
    cycles.run(30);
    ASSERT_EQ(cycles.updates(), 11U) << "nothing is pending after it";
    cycles.notify(1);
    cycles.run(100);
    EXPECT_EQ(cycles.updates(), 12U + row.retries) << row.answer.result << row.answer.headers;
  }
}

TEST(ConfigRetry, IsEndedByWhatTheServerSaysOfAnotherExchange) {
  NotifiedCycles cycles;
  cycles.machine.server.always("update", Answer::error(200));
  cycles.notify(1);
  cycles.config().setPollingInterval(3);
  cycles.notify(0);
  cycles.run(3);
  const size_t before = cycles.updates();
  cycles.run(100);
  EXPECT_EQ(cycles.updates(), before) << "a status without a code clears the group";
}

TEST(ConfigUpdate, HandlesEachRefusal) {
  struct RefusalCase {
    int code;
    size_t events;
    const char* identifier;
  };
  for (const RefusalCase& row : {RefusalCase{300, 1, "known"},
                                 {301, 1, "known"},
                                 {600, 1, "known"},
                                 {400, 1, ""},
                                 {200, 0, "known"}}) {
    NotifiedCycles cycles;
    cycles.machine.server.queue("update", Answer::error(row.code));
    cycles.notify(1);
    EXPECT_EQ(cycles.machine.countLines(",10217,"), row.events) << row.code;
    EXPECT_EQ(cycles.config().getUniqueId(), STRING(row.identifier)) << row.code;
    EXPECT_EQ(cycles.results("result.type=config"), 0U) << "nothing is told of an answer like that";
  }
}

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

TEST(ConfigUpdate, AppliesAndReportsWhatAnAnswerHolds) {
  struct AnswerCase {
    const char* name;
    char byte;
    const char* answer;
    const char* interval;  // afterwards
    size_t idsPairs;
    const char* report;
  };
  const AnswerCase cases[] = {
      {"settings", 1,
       "update.configuration=true\nmod.time=5\nrid.applied=c4\npolling.interval=77\n", "77", 0,
       "result.type=config\nresult.errorcode=0\nresult.errormessage=No Error\nmod.time=5\n"
       "rid.applied=c4\n"},
      {"all three", 1,
       "update.configuration=true\nmod.time=5\npolling.interval=77\nids.a=b\nLog.x=y\n", "77", 2,
       "result.type=config\nresult.errorcode=0\nresult.errormessage=fine\nmod.time=5\n"},
      {"IDS settings", 16, "update.configuration=true\nids.a=b\n", "9000000", 1,
       "result.type=config.ids\nresult.errorcode=0\nresult.errormessage=fine\n"},
      {"a value that is none", 1,
       "update.configuration=true\nmod.time=5\ntcp.port=x\npolling.interval=77\n", "77", 0,
       "result.type=config\nresult.errorcode=1004\nresult.errormessage=1 setting refused: "
       "tcp.port=x "
       "is no number from 0 to 4294967295\nmod.time=5\n"},
      {"the same to an IDS component that objects", 1,
       "update.configuration=true\nids.a=b\npolling.interval=soon\n", "9000000", 1,
       "result.type=config\nresult.errorcode=7\nresult.errormessage=no 1 setting refused: "
       "polling.interval=soon is no number from 0 to 4294967295\n"},
      {"nothing", 1, "update.configuration=false\n", "9000000", 0,
       "result.type=config\nresult.errorcode=19\nresult.errormessage=No new configuration data "
       "provided.\n"},
  };
  for (const AnswerCase& row : cases) {
    NotifiedCycles cycles;
    TestIds ids;
    if (std::string(row.report).find("errorcode=7\n") != std::string::npos)
      ids.results = {{"IDS.Config.ResultCode", "7"}, {"IDS.Config.ResultMessage", "no"}};
    cycles.machine.server.queue("update", Answer::properties(row.answer));
    cycles.notify(row.byte);
    EXPECT_EQ(cycles.config().getValue("polling.interval"), STRING(row.interval)) << row.name;
    EXPECT_EQ(ids.given.size(), row.idsPairs) << row.name;
    EXPECT_EQ(cycles.results(row.report), 1U) << row.name;
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
    cycles.machine.server.queue("update",
                                Answer::properties("update.configuration=true\nids.a=b\n"));
    try {
      cycles.notify(16);
      ADD_FAILURE() << "nothing was raised";
    } catch (const AgentError& error) {
      EXPECT_EQ(error.code(), row.code);
    }
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
      PolicyProcessor::reconcile();  // the next agent of the process has nothing to tell
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
  EXPECT_FALSE(cycles.config().isAppDataRequested()) << "an update is no report";
}

TEST(ApplicationData, StoresWritesAndSignalsARequestOnce) {
  Cycles cycles("");
  STRING file;
  appDataRequests().take(file);
  cycles.announce("send.application.request=true\nsend.application.requestID=r-5\n");
  EXPECT_TRUE(cycles.config().isAppDataRequested());
  EXPECT_NE(cycles.machine.ini().find("appdata.request.id=r-5"), std::string::npos);
  ASSERT_TRUE(appDataRequests().take(file));
  EXPECT_EQ(file, STRING("/opt/korvane/IPS/shortcuts.txt"));
  cycles.announce("send.application.request=true\nsend.application.requestID=r-6\n");
  EXPECT_EQ(cycles.config().getAppDataRequestID(), STRING("r-5")) << "one is under way";
  EXPECT_FALSE(appDataRequests().take(file));
}

}  // namespace
}  // namespace korvane
