// The update thread's content step: what it asks for and when, what it unpacks, reports and marks.
#include "update/content_update.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/faulty_files.h"
#include "tests/support/simulated_agent.h"
#include "tests/support/zip_maker.h"
#include "tests/update/package_answers.h"
#include "tests/update/parts_of_run.h"

namespace korvane {
namespace {

using testing::ElementsAre;
using tests::Answer;
using tests::makeZip;
using tests::packages;
using tests::SimulatedMachine;

constexpr char kSettings[] = "agent.id=known\n";

std::string contentPackage(const std::string& content) {
  return makeZip({{.name = "signatures.dat", .content = content}, {.name = "more/info.txt"}});
}

struct ContentStep {
  explicit ContentStep(const std::string& settings = "[Driver]\nips.enabled=true\n")
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
  ContentUpdate content{tests::contentParts(), pending, retry};
};

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
      {&PendingUpdates::ferrolynSettings, "update.ferrolyn.settings",
       "[Freshline]\nferrolyn.settings.flpkg.path=place/of settings\n",
       "/opt/korvane/IPS/place/of settings/", "ferrolyn.settings",
       &AgentConfig::getUpdateFSettingsNow},
      {&PendingUpdates::ferrolynVexVT, "update.ferrolyn.vexvt", "",
       "/opt/korvane/IPS/content/ferrolyn-vexvt/", "ferrolyn.vexvt", &AgentConfig::getUpdateFVTNow},
  };
  for (const KindCase& row : cases) {
    ContentStep step(std::string("[Driver]\nips.enabled=true\n") + row.settings);
    step.pending.*row.flag = true;
    step.machine.server.queue("update", packages(std::string(row.property) + "=true\n",
                                                 {{"zipdata", contentPackage("x")}}));
    step.run();
    EXPECT_EQ(step.machine.fake.files.content(row.folder + std::string("signatures.dat")), "x");
    EXPECT_TRUE((step.config().*row.now)());
    EXPECT_THAT(step.results(), ElementsAre(row.resultType + std::string(" 0 No Error")));
  }
}

TEST(ContentUpdate, TheRetryUnpacksTheKindsThatWereRefused) {
  ContentStep step;
  step.pending.ferrolynSettings = true;
  for (int i = 0; i < 3; ++i) step.machine.server.queue("update", Answer::error(200));
  step.machine.server.queue(
      "update", packages("update.qel=true\nupdate.ferrolyn.settings=true\n",
                         {{"zipdata", contentPackage("q")}, {"zipdata", contentPackage("s")}}));
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

TEST(ContentUpdate, AnotherRefusalEndsTheRetryAndTheCountStays) {
  for (const int code : {17, 300, 400}) {
    ContentStep step;
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

TEST(ContentUpdate, EveryFailingFileOperationIsReportedAndTheFlagAgreesWithTheFiles) {
  using platform::FileOperation;
  int points = 0;
  for (const FileOperation operation :
       {FileOperation::open, FileOperation::write, FileOperation::flush, FileOperation::replace,
        FileOperation::makeDirectories, FileOperation::flushDirectory}) {
    for (int nth = 1;; ++nth) {
      ContentStep step;
      platform::FaultyFiles faulty(step.machine.fake.files);
      platform::Platform& fake = step.machine.fake.platform();
      platform::Platform withFaults = platform::withFiles(fake, faulty);
      step.config();
      std::optional<platform::OtherPlatform> other(withFaults);
      const std::string bytes = contentPackage("new");
      faulty.failNth(operation, nth, ENOSPC, "content/qel");
      const int result =
          tests::receiveContent(HttpsHandler::VEXQEL_UPDATE, bytes, "/opt/korvane/IPS/content/qel");
      AgentConfig::freeInstance();
      other.reset();
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
