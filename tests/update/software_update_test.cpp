// The update thread's software step, its results file, and the report at the next start.
#include "update/software_update.h"

#include <gmock/gmock.h>

#include <gtest/gtest.h>
#include <cstdio>
#include <set>

#include "platform/fake/recording_files.h"
#include "tests/support/simulated_agent.h"
#include "tests/support/zip_maker.h"
#include "tests/update/package_answers.h"
#include "update/update_results_file.h"

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::Answer;
using tests::makeZip;
using tests::packages;
using tests::SimulatedMachine;

constexpr char kFolder[] = "/opt/korvane/IPS/update/software/";
constexpr char kNamed[] =
    "update.software=true\nsoftware.name=agent-2\nsoftware.version=2.0\nmod.time=5\n";

struct Step {
  explicit Step(const std::string& settings = "")
      : machine({.settings = "agent.id=known\n" + settings}) {}
  AgentConfig& config() { return *AgentConfig::getInstance(); }
  void run() { software.processSoftwareUpdate(); }
  void fetch(const Answer& answer) {
    pending.software = true;
    machine.server.queue("update", answer);
    run();
  }
  std::string lastReport() {
    const auto requests = machine.server.requests("result");
    return requests.empty() ? "" : requests.back().body;
  }
  std::string file(const std::string& name) { return machine.fake.files.content(kFolder + name); }
  std::vector<std::string> files() {
    std::vector<std::string> found;
    for (const std::string& path : machine.fake.files.paths())
      if (path.starts_with("/opt/korvane/IPS/update"))
        found.push_back(path.substr(sizeof kFolder - 1));
    return found;
  }
  SimulatedMachine machine;
  PendingUpdates pending;
  RetryGroup retry;
  SoftwareUpdate software{pending, retry};
};

const std::string kPackage = makeZip({{.name = "setup.bin", .content = "program"}});

TEST(SoftwareUpdate, UnpacksANamedPackageRecordsItAndReports) {
  Step step;
  step.machine.fake.files.put(std::string(kFolder) + "left/behind", "x");
  step.fetch(packages(kNamed, {{"zipdata", kPackage}}));
  EXPECT_FALSE(step.pending.software);
  const auto files = step.files();
  ASSERT_EQ(files.size(), 3U);
  EXPECT_TRUE(files[0].starts_with("policy2026") && files[0].ends_with(".sbp.zip")) << files[0];
  EXPECT_EQ(step.file(files[0]), kPackage);
  EXPECT_EQ(step.file("setup.bin"), "program");
  EXPECT_EQ(step.file("swupdate.results"), "software.name=agent-2\nsoftware.version=2.0\n");
  EXPECT_TRUE(step.config().updateInProgress());
  EXPECT_THAT(step.machine.ini(), HasSubstr("agent.update=/opt/korvane/IPS/update/software"));
  EXPECT_THAT(step.lastReport(),
              HasSubstr("result.type=software\nresult.errorcode=0\nresult.errormessage=No Error\n"
                        "software.name=agent-2\nsoftware.version=2.0"));
  EXPECT_EQ(step.machine.countLines("Directory already exists"), 1U);
  EXPECT_EQ(step.machine.countLines("After Create Dir"), 1U);
}

TEST(SoftwareUpdate, WhichAnswerGivesWhichCode) {
  struct Case {
    Answer answer;
    const char* report;
    const char* line;
  };
  const std::string bad = makeZip({{.name = "setup"}, {.name = "/etc/evil"}});
  const Case cases[] = {
      {Answer(), "result.errorcode=19\nresult.errormessage=No new software data provided",
       "No Software Update"},
      {packages("update.software=false\n", {}), "result.errorcode=19\n", "No Software Update"},
      {packages("update.software=true\nsoftware.name=x\n", {}), "result.errorcode=35\n",
       "Software update information not provided"},
      {packages("update.software=true\n", {{"zipdata", kPackage}}),
       "result.errorcode=35\nresult.errormessage=Software update information not provided",
       "Software update information not provided"},
      {packages(kNamed, {{"zipdata", ""}}), "result.errorcode=35\n",
       "Software update information not provided"},
      {packages(kNamed, {{"zipdata", "no zip"}}),
       "result.errorcode=10\nresult.errormessage=Software Update Failed. Unknown "
       "Error.\nsoftware.name=agent-2\n",
       "Failed to decompress 1"},
      {packages(kNamed, {{"zipdata", bad}}), "result.errorcode=10\n", "Failed to decompress 8"},
      {Answer::failure(7), "", ""},
      {Answer::error(17), "", ",10218,"},
      {Answer::error(400), "", ",10217,"},
      {Answer::error(200), "",
       "::processSoftware : Server asked us to retry after sometime. Retry count 0"},
  };
  for (const Case& row : cases) {
    Step step;
    step.fetch(row.answer);
    if (*row.report)
      EXPECT_THAT(step.lastReport(), HasSubstr(row.report));
    else
      EXPECT_EQ(step.lastReport(), "");
    EXPECT_GE(step.machine.countLines(row.line), 1U) << row.line;
    EXPECT_FALSE(step.config().updateInProgress());
    const bool unusable = std::string(row.report).starts_with("result.errorcode=10");
    if (unusable) {
      EXPECT_THAT(step.files(), ElementsAre("swupdate.results"));
      EXPECT_EQ(
          step.file("swupdate.results"),
          "result.errorcode=10\nresult.errormessage=Software Update Failed. Unknown Error.\n");
    }
    EXPECT_EQ(step.retry.pending, row.answer.headers.find("200") != std::string::npos);
    EXPECT_EQ(step.config().getUniqueId().empty(),
              row.answer.headers.find("400") != std::string::npos);
  }
}

TEST(SoftwareUpdate, RetriesWhatWasRefusedFiveCyclesLater) {
  Step step;
  step.fetch(Answer::error(200));
  step.machine.server.queue("update", packages(kNamed, {{"zipdata", kPackage}}));
  for (int i = 0; i < 20; ++i) {
    step.retry.step();
    step.run();
    EXPECT_EQ(step.machine.server.count("update"), i < 4 ? 1U : 2U) << i;
  }
  EXPECT_TRUE(step.config().updateInProgress());
}

TEST(SoftwareUpdate, GivesUpAfterTenRefusalsAndAtOnceWhenItIsRefusedOtherwise) {
  for (const int code : {200, 300}) {
    Step step;
    step.machine.server.queue("update", Answer::error(200));
    step.machine.server.always("update", Answer::error(code));
    const auto requestsAfter = [&step](int cycles) {
      step.pending.software = true;
      for (; cycles > 0; --cycles) {
        step.run();
        step.retry.step();
      }
      return step.machine.server.count("update");
    };
    const size_t most = code == 200 ? 10 : 2;
    EXPECT_EQ(requestsAfter(300), most);
    EXPECT_EQ(requestsAfter(6000), most + 1);
  }
}

TEST(SoftwareUpdate, TheNextStartReportsWhatTheInstallerLeft) {
  struct Case {
    std::string file;
    std::vector<std::string> reported;
  };
  const std::string failed =
      "result.errorcode=10\nresult.errormessage=Software Update Failed. Unknown Error.";
  const Case cases[] = {
      {"software.name=agent-2\nresult.errorcode=3\r\nresult.errormessage=no space\n",
       {"software.name=agent-2\nresult.errorcode=3\nresult.errormessage=no space"}},
      {"software.name=agent-2\nresult.errorcode=1\nresult.errorcode=0\n",
       {"software.name=agent-2\nresult.errorcode=0"}},
      {"software.name=agent-2\n", {failed, "software.name=agent-2"}},
      {"", {failed}},
      {updateResultsText({{"software.name", "\u00fcpdate"}, {"result.errorcode", "0"}}, true),
       {"software.name=\u00fcpdate\nresult.errorcode=0"}},
      {std::string("a\0=\0b\0\n\0", 8), {failed, "a=b"}},
  };
  for (const Case& row : cases) {
    Step step("agent.update=/opt/korvane/IPS/update/software\n");
    if (!row.file.empty())
      step.machine.fake.files.put(std::string(kFolder) + "swupdate.results", row.file);
    step.machine.server.queue("result", Answer::failure(7));
    SoftwareUpdate::sendUpdateResults(step.config().getSoftwareUpdateDirectory());
    EXPECT_TRUE(step.config().updateInProgress()) << "reported again at the next start";
    SoftwareUpdate::sendUpdateResults(step.config().getSoftwareUpdateDirectory());
    EXPECT_FALSE(step.config().updateInProgress());
    EXPECT_THAT(step.lastReport(), HasSubstr("result.type=software"));
    for (const std::string& lines : row.reported) EXPECT_THAT(step.lastReport(), HasSubstr(lines));
  }
}

TEST(SoftwareUpdate, AfterACrashTheNextStartKnowsOfAWholePackageOrOfNone) {
  Step step;
  step.config().UpdateAllIni();
  AgentConfig::freeInstance();
  platform::Platform& fake = step.machine.fake.platform();
  platform::RecordingFiles recorded(step.machine.fake.files);
  platform::Platform recording = platform::withFiles(fake, recorded);
  platform::setCurrent(&recording);
  step.fetch(packages(kNamed, {{"zipdata", kPackage}}));
  AgentConfig::freeInstance();
  int states = 0, known = 0;
  const auto broken = [&] {
    std::vector<std::string> found;
    recorded.forEachCrash([&](const std::string& state, platform::MemoryFiles& disk) {
      platform::Platform after = platform::withFiles(fake, disk);
      platform::setCurrent(&after);
      ++states;
      const auto file = [&disk](const char* name) {
        return disk.content(std::string(kFolder) + name);
      };
      const bool inProgress = step.config().updateInProgress();
      known += inProgress;
      if (inProgress &&
          (file("setup.bin") != "program" || parseUpdateResults(file("swupdate.results")).empty()))
        found.push_back(state);
      AgentConfig::freeInstance();
    });
    platform::setCurrent(&fake);
    return found;
  };
  EXPECT_THAT(broken(), testing::IsEmpty());
  EXPECT_GT(known, 0);
  std::printf("%d states of a software package\n", states);
  std::set<std::string> missed;
  for (size_t flush = 0; flush < recorded.flushes(); ++flush) {
    recorded.leaveOutFlush(flush);
    if (!broken().empty()) missed.insert(recorded.describeFlush(flush));
  }
  // A file's name is sure with the next flush of its folder, so those that go together are named.
  for (const std::string flush : {".unpacking/setup.bin", "/swupdate.results.new"})
    EXPECT_TRUE(missed.contains("flush /opt/korvane/IPS/update/software" + flush)) << flush;
  EXPECT_TRUE(missed.contains("flush directory /opt/korvane/IPS/update/software"));
}

TEST(SoftwareUpdate, TheResultsFileIsWrittenInTheAgentsEncoding) {
  Step step("agent.charset=UTF-16LE\n");
  step.fetch(packages(kNamed, {{"zipdata", kPackage}}));
  ASSERT_TRUE(step.config().isUnicode());
  const std::string bytes = step.file("swupdate.results");
  EXPECT_TRUE(bytes.starts_with(std::string("\xff\xfes\0o\0", 6)));
  EXPECT_EQ(parseUpdateResults(bytes),
            (PropertyList{{"software.name", "agent-2"}, {"software.version", "2.0"}}));
}

}  // namespace
}  // namespace korvane
