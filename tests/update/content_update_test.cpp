// The update thread's content step: what it asks for and when, what it unpacks, reports and marks.
#include "update/content_update.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/faulty_files.h"
#include "tests/support/simulated_agent.h"
#include "tests/support/zip_maker.h"
#include "tests/update/package_answers.h"

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::Answer;
using tests::makeZip;
using tests::packages;
using tests::SimulatedMachine;

constexpr char kSettings[] = "agent.id=known\n";
constexpr char kQel[] = "/opt/korvane/IPS/content/qel/";

std::string package(const std::string& content) {
  return makeZip({{.name = "signatures.dat", .content = content}, {.name = "more/info.txt"}});
}

const std::string kCorrupt = makeZip({{.name = "a", .content = "a", .crc = 1}});
const std::string kLeaving = makeZip({{.name = "good"}, {.name = "../../evil"}});

struct Step {
  explicit Step(const std::string& settings = "[Driver]\nips.enabled=true\n")
      : machine({.settings = kSettings + settings}) {}
  AgentConfig& config() { return *AgentConfig::getInstance(); }
  void run() { content.processComponentUpdates(); }
  // The codes of the results that were reported, each with its kind.
  std::vector<std::string> results() {
    std::vector<std::string> found;
    for (const auto& request : machine.server.requests("result")) {
      const auto value = [&](const std::string& name) {
        const size_t at = request.body.find(name + "=") + name.size() + 1;
        return request.body.substr(at, request.body.find('\n', at) - at);
      };
      found.push_back(value("result.type") + " " + value("result.errorcode") + " " +
                      value("result.errormessage"));
    }
    return found;
  }
  SimulatedMachine machine;
  PendingUpdates pending;
  RetryGroup retry;
  ContentUpdate content{pending, retry};
};

TEST(ContentUpdate, UnpacksTheFlaggedKindsInOrderAndClearsAllFlagsEvenWhenOneFails) {
  Step step;
  step.pending.qel = step.pending.ferrolynRevocation = true;
  step.machine.fake.files.put("/opt/korvane/IPS/content/ferrolyn-revocation/list", "old");
  step.machine.server.queue(
      "update",
      packages("update.ferrolyn.revocation=true\nupdate.qel=true\nupdate.ferrolyn.vexvt=true\n",
               {{"zipdata", package("new")}, {"zipdata", kCorrupt}, {"zipdata", package("vt")}}));
  step.run();
  EXPECT_THAT(step.results(),
              ElementsAre("qel 0 No Error", "ferrolyn.revocation 36 Error unzipping to disk."));
  EXPECT_EQ(step.machine.fake.files.content(std::string(kQel) + "signatures.dat"), "new");
  EXPECT_EQ(step.machine.fake.files.content(std::string(kQel) + "data.zip"), package("new"));
  EXPECT_EQ(step.machine.fake.files.content("/opt/korvane/IPS/content/ferrolyn-revocation/list"),
            "old");
  EXPECT_FALSE(
      step.machine.fake.files.content("/opt/korvane/IPS/content/ferrolyn-revocation/data.zip")
          .size());
  EXPECT_TRUE(step.config().getUpdateQELNow());
  EXPECT_FALSE(step.config().getUpdateFRevoNow());
  EXPECT_FALSE(step.config().getUpdateFVTNow()) << "it had no flag";
  EXPECT_FALSE(step.pending.hasContent());
  EXPECT_THAT(step.machine.ini(), HasSubstr("update.qel.vt.now=true"));
  for (const char* line :
       {"*****Component Freshline available on server*****",
        "No Korvane error code detected. Raw FL data download.",
        "Unzipping Freshline data to /opt/korvane/IPS/content/qel",
        "UnZip VexQEL Freshline content successfully to directory /opt/korvane/IPS/content/qel",
        "Failed to unzip VexQEL Freshline content to directory "
        "/opt/korvane/IPS/content/ferrolyn-revocation Error : 15",
        ",10585,"})
    EXPECT_EQ(step.machine.countLines(line), 1U) << line;
  step.run();
  EXPECT_EQ(step.machine.server.count("update"), 1U);
}

TEST(ContentUpdate, EachKindHasItsFolderItsFlagAndItsResultType) {
  struct KindCase {
    bool PendingUpdates::*flag;
    const char* property;
    const char* settings;
    const char* folder;
    const char* resultType;
    bool (AgentConfig::*now)() const;
  };
  const KindCase cases[] = {
      {&PendingUpdates::qel, "update.qel", "", "/opt/korvane/IPS/content/qel/", "qel",
       &AgentConfig::getUpdateQELNow},
      {&PendingUpdates::ferrolynRevocation, "update.ferrolyn.revocation",
       "[Freshline]\nferrolyn.revo.flpkg.path=/elsewhere/revo\n", "/elsewhere/revo/",
       "ferrolyn.revocation", &AgentConfig::getUpdateFRevoNow},
      {&PendingUpdates::ferrolynSettings, "update.ferrolyn.settings", "",
       "/opt/korvane/IPS/content/ferrolyn-settings/", "ferrolyn.settings",
       &AgentConfig::getUpdateFSettingsNow},
      {&PendingUpdates::ferrolynVexVT, "update.ferrolyn.vexvt", "",
       "/opt/korvane/IPS/content/ferrolyn-vexvt/", "ferrolyn.vexvt", &AgentConfig::getUpdateFVTNow},
  };
  for (const KindCase& row : cases) {
    Step step(std::string("[Driver]\nips.enabled=true\n") + row.settings);
    step.pending.*row.flag = true;
    step.machine.server.queue(
        "update", packages(std::string(row.property) + "=true\n", {{"zipdata", package("x")}}));
    step.run();
    EXPECT_EQ(step.machine.fake.files.content(row.folder + std::string("signatures.dat")), "x");
    EXPECT_TRUE((step.config().*row.now)());
    EXPECT_THAT(step.results(), ElementsAre(row.resultType + std::string(" 0 No Error")));
  }
}

TEST(ContentUpdate, RunsOnlyWithPreventionAndWithAFlagOrADueRetry) {
  struct Case {
    bool ips, flag, pending;
    int countdown;
    size_t requests;
  };
  const Case cases[] = {{true, true, false, 5, 1},
                        {true, false, true, 0, 1},
                        {true, false, true, 1, 0},
                        {true, false, false, 0, 0},
                        {false, true, true, 0, 0}};
  for (const Case& row : cases) {
    Step step(row.ips ? "[Driver]\nips.enabled=true\n" : "[Driver]\nips.enabled=false\n");
    step.pending.qel = row.flag;
    step.retry.pending = row.pending;
    step.retry.countdown = row.countdown;
    step.retry.kinds = row.pending ? HttpsHandler::VEXQEL_UPDATE : 0;
    step.run();
    EXPECT_EQ(step.machine.server.count("update"), row.requests);
    EXPECT_EQ(step.pending.qel, row.flag && !row.ips) << "flags wait while prevention is off";
  }
}

TEST(ContentUpdate, WhatTheServersAnswerDoesToFlagsRetryAndIdentity) {
  struct Case {
    Answer answer;
    bool retry;
    std::string identifier;
    const char* line;
  };
  const Case cases[] = {
      {Answer::failure(7), false, "known", "Communication error while requesting Freshline data."},
      {Answer::http(500), false, "known", "Communication error while requesting Freshline data."},
      {Answer::error(200), true, "known",
       "processComponentUpdates:VexQEL and Ferrolyn:httpSender.getKorvaneError Server asked us to "
       "retry after "
       "sometime. Retry count 0"},
      {Answer::error(400), false, "", "Return Code - 400"},
      {Answer::error(17), false, "known", ",10232,"},
      {Answer::error(17), false, "known",
       "UpdateThread::getComponentUpdate( HttpsHandler &httpSender ) Error Message - Server did "
       "not return any error "
       "string. Return Code - 17"},
      {Answer(), false, "known", "No Freshline data from Server"},
  };
  for (const Case& row : cases) {
    Step step;
    step.pending.ferrolynVexVT = true;
    step.machine.server.queue("update", row.answer);
    step.run();
    EXPECT_FALSE(step.pending.hasContent()) << row.line;
    EXPECT_EQ(step.retry.pending, row.retry) << row.line;
    EXPECT_EQ(step.config().getUniqueId(), STRING(row.identifier)) << row.line;
    EXPECT_EQ(step.machine.countLines(row.line), 1U) << row.line;
    EXPECT_EQ(step.machine.server.count("result"), 0U);
  }
}

TEST(ContentUpdate, TheRetryUnpacksTheKindsThatWereRefused) {
  Step step;
  step.pending.ferrolynSettings = true;
  for (int i = 0; i < 3; ++i) step.machine.server.queue("update", Answer::error(200));
  step.machine.server.queue("update",
                            packages("update.qel=true\nupdate.ferrolyn.settings=true\n",
                                     {{"zipdata", package("q")}, {"zipdata", package("s")}}));
  int cycles = 0;
  for (; step.machine.server.count("update") < 4 && cycles < 100; ++cycles) {
    step.run();
    step.retry.step();
  }
  EXPECT_EQ(cycles, 1 + 5 + 6 + 6) << "the countdown is reloaded in a cycle of its own";
  EXPECT_THAT(step.results(), ElementsAre("ferrolyn.settings 0 No Error"));
  EXPECT_FALSE(step.retry.pending);
  EXPECT_EQ(step.retry.count, 0);
}

TEST(ContentUpdate, GivesUpAfterTheTenthRefusalForAsLongAsTheServerRefuses) {
  Step step;
  const auto requestsAfter = [&step](int cycles, bool offered) {
    step.pending.qel = offered;
    for (; cycles > 0; --cycles) {
      step.run();
      step.retry.step();
    }
    return step.machine.server.count("update");
  };
  step.machine.server.always("update", Answer::error(200));
  EXPECT_EQ(requestsAfter(200, true), 10U);
  EXPECT_EQ(requestsAfter(6000, true), 11U) << "an offer is one more request";
  EXPECT_EQ(requestsAfter(6000, true), 12U);
  step.machine.server.queue("update", Answer());
  EXPECT_EQ(requestsAfter(600, true), 13U);
  EXPECT_EQ(requestsAfter(600, true), 23U) << "what was answered begins the count anew";
}

TEST(ContentUpdate, AnotherRefusalEndsTheRetryAndTheCountStays) {
  for (const int code : {17, 300, 400}) {
    Step step;
    for (int i = 0; i < 3; ++i) step.machine.server.queue("update", Answer::error(200));
    step.machine.server.queue("update", Answer::error(code));
    step.machine.server.always("update", Answer::error(200));
    const auto runOffered = [&step] {
      step.pending.qel = true;
      for (int i = 0; i < 600; ++i) {
        step.run();
        step.retry.step();
      }
      return step.machine.server.count("update");
    };
    EXPECT_EQ(runOffered(), 4U) << code;
    step.config().setUniqueId("known");
    EXPECT_EQ(runOffered(), 11U) << code << ": three refusals before, seven now";
  }
}

TEST(ContentUpdate, ARefusedPackageLeavesNothingAndTheOneBeforeStays) {
  for (const std::string& bad : {kCorrupt, kLeaving, std::string("no zip")}) {
    Step step;
    for (const std::string& bytes : {package("good"), bad}) {
      step.pending.qel = true;
      step.machine.server.queue("update", packages("update.qel=true\n", {{"zipdata", bytes}}));
      step.run();
    }
    EXPECT_EQ(step.results().back(), "qel 36 Error unzipping to disk.");
    EXPECT_TRUE(step.config().getUpdateQELNow()) << "the good one still waits";
    EXPECT_EQ(step.machine.fake.files.content(std::string(kQel) + "data.zip"), package("good"));
    for (const std::string& path : step.machine.fake.files.paths()) {
      EXPECT_EQ(path.find("evil"), std::string::npos) << path;
      EXPECT_EQ(path.find(".unpacking"), std::string::npos) << path;
    }
  }
}

TEST(ContentUpdate, EveryFailingFileOperationIsReportedAndTheFlagAgreesWithTheFiles) {
  using platform::FileOperation;
  int points = 0;
  for (const FileOperation operation :
       {FileOperation::open, FileOperation::write, FileOperation::flush, FileOperation::replace,
        FileOperation::makeDirectories, FileOperation::flushDirectory}) {
    for (int nth = 1;; ++nth) {
      Step step;
      platform::FaultyFiles faulty(step.machine.fake.files);
      platform::Platform& fake = step.machine.fake.platform();
      platform::Platform withFaults = platform::withFiles(fake, faulty);
      step.config();
      platform::setCurrent(&withFaults);
      const std::string bytes = package("new");
      faulty.failNth(operation, nth, ENOSPC, "content/qel");
      const int result = ContentUpdate::processComponentData(HttpsHandler::VEXQEL_UPDATE, &bytes,
                                                             "/opt/korvane/IPS/content/qel");
      AgentConfig::freeInstance();
      platform::setCurrent(&fake);
      const bool done = result == 0;
      EXPECT_EQ(step.results(), std::vector<std::string>{done ? "qel 0 No Error"
                                                              : "qel 36 Error unzipping to disk."});
      EXPECT_EQ(step.config().getUpdateQELNow(), done);
      if (done) break;
      ++points;
    }
  }
  RecordProperty("points", points);
  EXPECT_GT(points, 15);
}

}  // namespace
}  // namespace korvane
