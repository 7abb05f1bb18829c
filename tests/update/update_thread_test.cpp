#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ids/hids_component.h"
#include "tests/update/cycles.h"
#include "update/prevention_state.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::Cycles;

TEST(UpdateThread, PollsAtOnceAndThenEveryIntervalOfCycles) {
  Cycles cycles("[Polling]\npolling.interval=10\n");
  EXPECT_EQ(cycles.statusesAfter(1), 1U);
  EXPECT_EQ(cycles.statusesAfter(9), 1U);
  EXPECT_EQ(cycles.statusesAfter(2), 2U);
  EXPECT_EQ(cycles.statusesAfter(11), 3U);
  cycles.config().setPollingEnabled(false);
  EXPECT_EQ(cycles.statusesAfter(100), 3U);
  cycles.config().setPollingEnabled(true);
  EXPECT_EQ(cycles.statusesAfter(13), 4U) << "polling resumes";
}

TEST(UpdateThread, ActsOnWhatTheServerAnswersToAStatus) {
  struct AnswerCase {
    Answer answer;
    bool firstUpdateDone;
    size_t updates;
    size_t events10217;
    std::string identifier;
  };
  const auto withFlags = [](Answer answer) {
    answer.body = Answer::properties("update.configuration=true\n").body;
    return answer;
  };
  const AnswerCase cases[] = {
      {withFlags(Answer()), true, 1U, 0, "known"},
      {withFlags(Answer::error(200)), true, 1U, 0, "known"},
      {withFlags(Answer::error(400)), false, 0U, 1, ""},
      {withFlags(Answer::error(17)), false, 0U, 1, "known"},
      {Answer::failure(7), false, 0U, 0, "known"},
      {Answer::http(500), false, 0U, 0, "known"},
      {Answer(), true, 0U, 0, "known"},
  };
  for (const AnswerCase& row : cases) {
    Cycles cycles("");
    cycles.machine.server.always("result", row.answer);
    cycles.thread.cycle();
    EXPECT_EQ(cycles.config().isFirstUpdateDone(), row.firstUpdateDone);
    EXPECT_EQ(cycles.updates("update.configuration=true"), row.updates);
    EXPECT_EQ(cycles.machine.countLines(",10217,"), row.events10217);
    EXPECT_EQ(cycles.config().getUniqueId(), STRING(row.identifier));
  }
}

TEST(UpdateThread, RepeatsAFirstStatusThatFailedWithAGrowingPauseWhilePollingIsDisabled) {
  Cycles cycles("[Polling]\npolling.enabled=false\n");
  cycles.machine.server.always("result", Answer::failure(7));
  std::vector<int> at;
  for (int cycle = 0; cycle < 1500; ++cycle)
    if (const size_t before = cycles.statuses(); cycles.statusesAfter(1) > before)
      at.push_back(cycle);
  EXPECT_EQ(at, (std::vector<int>{0, 2, 6, 14, 30, 62, 126, 254, 510, 810, 1110, 1410}));
  cycles.machine.server.always("result", Answer());
  EXPECT_EQ(cycles.statusesAfter(400), at.size() + 1);
  EXPECT_TRUE(cycles.config().isFirstUpdateDone());
}

TEST(UpdateThread, RepeatsNoStatusThatWasAnsweredWhilePollingIsDisabled) {
  for (const int code : {17, 200, 300, 301, 302, 400, 600}) {
    Cycles cycles("[Polling]\npolling.enabled=false\n");
    cycles.machine.server.always("result", Answer::error(code));
    EXPECT_EQ(cycles.statusesAfter(1000), 1U) << code;
    EXPECT_EQ(cycles.machine.countLines(",10221,"), 0U) << "none is tried without an identity";
    cycles.config().setUniqueId("new");
    EXPECT_EQ(cycles.statusesAfter(1000), code == 400 ? 2U : 1U) << "the new identity's first";
    // A server that knows no identity that it gives is not asked in a loop.
    for (int i = 0; i < 1000 && code == 400; ++i) {
      cycles.config().setUniqueId("new");
      cycles.run(1);
    }
    EXPECT_LE(cycles.statuses(), 12U);
    EXPECT_EQ(cycles.config().isFirstUpdateDone(), code == 200);
  }
}

TEST(UpdateThread, ReportsAChangedPolicyStateOnceAndOnlyANegativeOne) {
  Cycles cycles("");
  cycles.run(1);
  const auto reportsAfter = [&](int code) {
    cycles.config().setPolicyState(code, "a state");
    cycles.run(3);
    return cycles.results("result.errormessage=a state");
  };
  EXPECT_EQ(reportsAfter(-100), 1U);
  EXPECT_EQ(reportsAfter(0), 1U);
  EXPECT_EQ(reportsAfter(-101), 2U);
}

TEST(PendingUpdates, TakesEachFlagFromItsPropertyAndClearsMissingOnes) {
  struct FlagCase {
    const char* name;
    bool PendingUpdates::*flag;
  };
  const FlagCase cases[] = {
      {"update.configuration", &PendingUpdates::configuration},
      {"update.policy", &PendingUpdates::policy},
      {"update.software", &PendingUpdates::software},
      {"update.policy.ids", &PendingUpdates::idsPolicy},
      {"update.configuration.ids", &PendingUpdates::idsConfiguration},
      {"update.qel", &PendingUpdates::qel},
      {"update.ferrolyn.revocation", &PendingUpdates::ferrolynRevocation},
      {"update.ferrolyn.settings", &PendingUpdates::ferrolynSettings},
      {"update.ferrolyn.vexvt", &PendingUpdates::ferrolynVexVT},
  };
  PendingUpdates pending;
  for (const FlagCase& set : cases) {
    pending.takePollingProperties({{set.name, "true"}, {"update.other", "true"}});
    for (const FlagCase& row : cases)
      EXPECT_EQ(pending.*row.flag, row.flag == set.flag) << row.name;
    pending.takePollingProperties({{set.name, "TRUE"}});
    EXPECT_FALSE(pending.*set.flag);
  }
  pending.takePollingProperties({{"send.application.request", "true"}});
  EXPECT_FALSE(pending.applicationRequest) << "a request without an identifier is none";
  pending.takePollingProperties(
      {{"send.application.request", "true"}, {"send.application.requestID", ""}});
  EXPECT_FALSE(pending.applicationRequest) << "nor is one with an empty identifier";
  pending.takePollingProperties(
      {{"send.application.request", "true"}, {"send.application.requestID", "r-5"}});
  EXPECT_TRUE(pending.applicationRequest);
  EXPECT_EQ(pending.applicationRequestId, STRING("r-5"));
}

TEST(Prevention, DescribesEveryStateAsTheServerKnowsIt) {
  struct StateCase {
    PreventionSettings settings;  // IPS enabled, IPS reboot done, FIM enabled, FIM reboot done
    int code;
    const char* text;
  };
  const StateCase cases[] = {
      {{true, true, true, true}, 0xC00, "IPS Enabled. "},
      {{false, true, true, true}, 0xA00, "IPS Disabled. "},
      {{true, true, false, true}, 0x14C00, "RTFIM Disabled. IPS Enabled. "},
      {{true, 0U, 0U, true},
       0x15400,
       "RTFIM Disabled. IPS Enabled. This setting will take effect after the reboot."},
      {{true, true, false, false},
       0x25000 | 0x1400,
       "RTFIM Disabled. This setting will take effect after the reboot. IPS Enabled. "},
      {{false, 0U, true, false},
       0x29000 | 0x1200,
       "RTFIM Enabled. This setting will take effect after the reboot. IPS Disabled. "},
      {{true, false, true, true},
       0x1400,
       "IPS Enabled. This setting will take effect after the reboot."},
  };
  for (const StateCase& row : cases) {
    const PreventionReport report = describePrevention(row.settings);
    EXPECT_EQ(report.code, row.code) << row.text;
    EXPECT_EQ(report.text, STRING(row.text));
  }
}

TEST(Prevention, TellsARefusedTestKeyFromOneThatCouldBeMade) {
  struct KeyCase {
    uint32_t refusal;
    bool prevented;
    const char* trace;
  };
  for (const KeyCase& row : {KeyCase{5, true, "Registry Access denied"},
                             {0, false, "Registry "},
                             {1009, true, "Registry Error 1009"}}) {
    Cycles cycles("");
    cycles.machine.fake.registry.refuseBelow(
        "Software\\Dalvora\\Intrusion Security\\agent\\IPS\\TestForPrevention", row.refusal);
    cycles.thread.cycle();
    if (row.prevented) {
      EXPECT_EQ(cycles.config().getPolicyErrorCode() & 0x2400, 0x2400);
    } else {
      EXPECT_EQ(cycles.config().getPolicyErrorCode(), 500);
      EXPECT_EQ(cycles.config().getPolicyErrorStr(), STRING("Prevention Disabled"));
    }
    EXPECT_EQ(cycles.machine.countLines(row.trace), row.prevented ? 1U : 0U);
  }
}

TEST(Prevention, TakesTheIdsLogSearchAlong) {
  Cycles cycles("[Driver]\nips.enabled=false\n");
  cycles.machine.fake.files.put("/opt/korvane/IDS/ids.properties",
                                "ids.service.eventfile.name=/var/e.csv\n"
                                "ids.service.rteventfile.name=../logs/rt.csv\n");
  HidsComponent ids(idsDirectory(), [] { return 1; });
  AgentConfig::setHIDSInterface(&ids);
  cycles.thread.cycle();
  AgentConfig::setHIDSInterface(nullptr);
  EXPECT_EQ(cycles.config().getHIDSLogFile(), STRING("/var/e.csv"));
  EXPECT_EQ(cycles.config().getHIDSRTLogFile(), STRING("/opt/korvane/IDS/bin/../logs/rt.csv"));
}

}  // namespace
}  // namespace korvane
