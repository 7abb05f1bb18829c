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
#include "tests/update/parts_of_run.h"
#include "update/update_results_file.h"

namespace korvane {
namespace {

using testing::HasSubstr;
using tests::Answer;
using tests::makeZip;
using tests::packages;
using tests::SimulatedMachine;

constexpr char kFolder[] = "/opt/korvane/IPS/update/software/";
constexpr char kNamed[] =
    "update.software=true\nsoftware.name=agent-2\nsoftware.version=2.0\nmod.time=5\n";

struct SoftwareStep {
  explicit SoftwareStep(const std::string& settings = "")
      : machine({.settings = "agent.id=known\n" + settings}) {}
  AgentConfig& config() { return *AgentConfig::getInstance(); }
  SoftwareUpdate software() { return {tests::softwareParts(), pending, retry}; }
  void run() { software().processSoftwareUpdate(); }
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
  SimulatedMachine machine;
  PendingUpdates pending;
  RetryGroup retry;
};

const std::string kPackage = makeZip({{.name = "setup.bin", .content = "program"}});

TEST(SoftwareUpdate, GivesUpAfterTenRefusalsAndAtOnceWhenItIsRefusedOtherwise) {
  for (const int code : {200, 300}) {
    SoftwareStep step;
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
    SoftwareStep step("agent.update=/opt/korvane/IPS/update/software\n");
    if (!row.file.empty())
      step.machine.fake.files.put(std::string(kFolder) + "swupdate.results", row.file);
    step.machine.server.queue("result", Answer::failure(7));
    step.software().sendUpdateResults(step.config().getSoftwareUpdateDirectory());
    EXPECT_TRUE(step.config().updateInProgress()) << "reported again at the next start";
    step.software().sendUpdateResults(step.config().getSoftwareUpdateDirectory());
    EXPECT_FALSE(step.config().updateInProgress());
    EXPECT_THAT(step.lastReport(), HasSubstr("result.type=software"));
    for (const std::string& lines : row.reported) EXPECT_THAT(step.lastReport(), HasSubstr(lines));
  }
}

TEST(SoftwareUpdate, AfterACrashTheNextStartKnowsOfAWholePackageOrOfNone) {
  SoftwareStep step;
  step.config().UpdateAllIni();
  AgentConfig::freeInstance();
  platform::Platform& fake = step.machine.fake.platform();
  platform::RecordingFiles recorded(step.machine.fake.files);
  platform::Platform recording = platform::withFiles(fake, recorded);
  {
    const platform::OtherPlatform other(recording);
    step.fetch(packages(kNamed, {{"zipdata", kPackage}}));
    AgentConfig::freeInstance();
  }
  int states = 0, known = 0;
  const auto broken = [&] {
    std::vector<std::string> found;
    recorded.forEachCrash([&](const std::string& state, platform::MemoryFiles& disk) {
      platform::Platform after = platform::withFiles(fake, disk);
      const platform::OtherPlatform restarted(after);
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
  SoftwareStep step("agent.charset=UTF-16LE\n");
  step.fetch(packages(kNamed, {{"zipdata", kPackage}}));
  ASSERT_TRUE(step.config().isUnicode());
  const std::string bytes = step.file("swupdate.results");
  EXPECT_TRUE(bytes.starts_with(std::string("\xff\xfes\0o\0", 6)));
  EXPECT_EQ(parseUpdateResults(bytes),
            (PropertyList{{"software.name", "agent-2"}, {"software.version", "2.0"}}));
}

}  // namespace
}  // namespace korvane
