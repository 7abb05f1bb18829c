// What becomes of an unpacked content package: verified, handed over, recorded; and what a
// crash leaves.
#include "update/component_update_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/ini_text.h"
#include "config/properties_file.h"
#include "platform/fake/faulty_files.h"
#include "platform/fake/recording_files.h"
#include "platform/paths.h"
#include "tests/support/simulated_agent.h"
#include "tests/support/zip_maker.h"
#include "tests/update/parts_of_run.h"
#include "tests/update/policy_world.h"
#include "util/sha256.h"

namespace korvane {
namespace {

using testing::HasSubstr;
using tests::makeZip;
using tests::SimulatedMachine;
using tests::ZipEntry;

constexpr char kQel[] = "/opt/korvane/IPS/content/qel";
constexpr char kIdsContent[] = "/opt/korvane/IDS/content";

std::string properties(const std::string& version, const std::string& more = "") {
  return "package.name=VWKTR QEL Signatures\npackage.version=" + version +
         "\npackage.date=2026-11-20\n" + more;
}

std::string signaturePackage(const std::string& version) {
  return makeZip({{.name = "package.properties", .content = properties(version)},
                  {.name = "rules/signatures.dat", .content = "signatures of " + version}});
}

// An agent whose one content package is `bytes`, unpacked and marked as it is on a real one.
struct Agent {
  explicit Agent(const std::string& settings = "")
      : machine({.settings = "agent.id=known\n" + settings}) {}
  AgentConfig& config() { return *AgentConfig::getInstance(); }
  void receive(const std::string& bytes) {
    ASSERT_EQ(tests::receiveContent(HttpsHandler::VEXQEL_UPDATE, bytes, kQel), 0);
  }
  SimulatedMachine machine;
  tests::TestIds ids;
  ComponentUpdateThread thread{tests::componentParts()};
};

std::string inForce(platform::Files& files) {
  std::string text;
  platform::readWholeFile(files, std::string(kIdsContent) + "/qel.properties", 10'000, text);
  return text;
}

// The version of the package that the IDS component finds, or why it finds none.
std::string versionFound(platform::Files& files) {
  const PropertyList pointer = parseProperties(inForce(files));
  if (pointer.empty()) return "none";
  const std::string directory =
      std::string(kIdsContent) + "/" + propertyValue(pointer, "package.directory").toUtf8();
  const std::string version = propertyValue(pointer, "package.version").toUtf8();
  std::string signatures, about;
  platform::readWholeFile(files, directory + "/rules/signatures.dat", 10'000, signatures);
  platform::readWholeFile(files, directory + "/package.properties", 10'000, about);
  const bool whole = signatures == "signatures of " + version && about == properties(version);
  return whole ? version : "parts of " + version;
}

std::vector<std::string> directoriesOfPackages(platform::Files& files) {
  std::vector<platform::DirectoryEntry> entries;
  files.list(kIdsContent, entries);
  std::vector<std::string> names;
  for (const auto& entry : entries)
    if (entry.isDirectory) names.push_back(entry.name);
  return names;
}

TEST(ComponentUpdate, HandsOverRecordsAndReplaces) {
  Agent agent;
  agent.receive(signaturePackage("1"));
  agent.ids.installed = false;
  agent.thread.cycle();
  EXPECT_EQ(versionFound(agent.machine.fake.files), "none");
  EXPECT_TRUE(agent.config().getUpdateQELNow()) << "it waits for a component";
  agent.ids.installed = true;
  agent.thread.cycle();
  EXPECT_EQ(versionFound(agent.machine.fake.files), "1");
  EXPECT_FALSE(agent.config().getUpdateQELNow());
  const std::string metadata =
      "name=VWKTR QEL Signatures; version=1; date=2026-11-20; files=2; sha256=" +
      sha256Hex(signaturePackage("1"));
  EXPECT_EQ(agent.config().getQelFL(), STRING(metadata));
  EXPECT_THAT(agent.machine.ini(), HasSubstr("qel.vt.metadata=" + metadata));
  EXPECT_THAT(agent.machine.ini(), HasSubstr("update.qel.vt.now=false"));
  EXPECT_EQ(agent.machine.countLines(",10586,"), 1U);
  agent.thread.cycle();
  EXPECT_EQ(agent.machine.countLines(",10586,"), 1U) << "once";

  agent.receive(signaturePackage("2"));
  agent.thread.cycle();
  EXPECT_EQ(versionFound(agent.machine.fake.files), "2");
  EXPECT_EQ(directoriesOfPackages(agent.machine.fake.files).size(), 1U);
}

TEST(ComponentUpdate, WhatAPackageMaySayOfItselfAndWhatIsRefused) {
  const std::string good = sha256Hex("content");
  const struct {
    const char* what;
    std::vector<ZipEntry> entries;
    bool handedOver;
  } cases[] = {
      {"nothing said", {{.name = "f", .content = "content"}}, true},
      {"digests that match",
       {{.name = "f", .content = "content"},
        {.name = "package.properties", .content = "sha256.f=" + good + "\n"}},
       true},
      {"another product",
       {{.name = "package.properties", .content = "package.name=VWKTR Ferrolyn VexVT\n"}},
       false},
      {"a digest that does not match",
       {{.name = "f", .content = "other"},
        {.name = "package.properties", .content = "sha256.f=" + good + "\n"}},
       false},
      {"a file that is missing",
       {{.name = "package.properties", .content = "sha256.f=" + good + "\n"}},
       false},
      {"a file without digest",
       {{.name = "f", .content = "content"},
        {.name = "g"},
        {.name = "package.properties", .content = "sha256.f=" + good + "\n"}},
       false},
  };
  for (const auto& row : cases) {
    Agent agent;
    agent.receive(makeZip(row.entries));
    agent.thread.cycle();
    EXPECT_EQ(!inForce(agent.machine.fake.files).empty(), row.handedOver) << row.what;
    EXPECT_EQ(agent.machine.countLines(",10585,"), row.handedOver ? 0U : 1U) << row.what;
    EXPECT_EQ(agent.config().getQelFL().empty(), !row.handedOver) << row.what;
    EXPECT_FALSE(agent.config().getUpdateQELNow()) << row.what;
  }
}

TEST(ComponentUpdate, FilesChangedAfterUnpackingAreNotHandedOver) {
  using Change = void (*)(platform::MemoryFiles&);
  const Change changes[] = {
      [](platform::MemoryFiles& files) {
        files.put(std::string(kQel) + "/rules/signatures.dat", "signatures of 9");
      },
      [](platform::MemoryFiles& files) {
        files.remove(std::string(kQel) + "/rules/signatures.dat");
      },
      [](platform::MemoryFiles& files) {
        files.put(std::string(kQel) + "/data.zip", signaturePackage("2"));
      },
      [](platform::MemoryFiles& files) { files.remove(std::string(kQel) + "/data.zip"); },
  };
  for (const Change change : changes) {
    Agent agent;
    agent.receive(signaturePackage("1"));
    change(agent.machine.fake.files);
    agent.thread.cycle();
    EXPECT_EQ(versionFound(agent.machine.fake.files), "none");
    EXPECT_FALSE(agent.config().getUpdateQELNow());
    EXPECT_EQ(agent.machine.countLines(",10585,"), 1U);
  }
}

TEST(ComponentUpdate, AFailingDiskIsTriedAgainAMinuteLaterAndReportedOnce) {
  Agent agent;
  agent.receive(signaturePackage("1"));
  platform::FaultyFiles faulty(agent.machine.fake.files);
  platform::Platform& fake = agent.machine.fake.platform();
  platform::Platform withFaults = platform::withFiles(fake, faulty);
  const platform::OtherPlatform other(withFaults);
  ComponentUpdateThread thread(tests::componentParts());
  faulty.failAll(platform::FileOperation::open, ENOSPC, "IDS/content");
  for (int second = 0; second < 200; ++second) {
    thread.cycle();
    agent.machine.sim.runFor(1000);
  }
  EXPECT_EQ(agent.machine.countLines(",10587,"), 1U);
  EXPECT_TRUE(agent.config().getUpdateQELNow());
  faulty.heal();
  agent.machine.sim.runFor(ComponentUpdateThread::kPauseAfterFailureMs);
  thread.cycle();
  EXPECT_EQ(versionFound(agent.machine.fake.files), "1");
}

// From the second package's arrival to the removal of the first: the component finds one of them
// whole, and once the package has been delivered again, whatever was lost, the new one.
class ComponentUpdateCrash : public testing::TestWithParam<bool> {};

TEST_P(ComponentUpdateCrash, AtAnyStepLeavesOneWholePackageAndARepeatEndsWithTheNewOne) {
  const bool firstTakenOver = GetParam();
  Agent agent;
  agent.receive(signaturePackage("1"));
  if (firstTakenOver) agent.thread.cycle();
  platform::Platform& fake = agent.machine.fake.platform();
  AgentConfig::freeInstance();
  platform::RecordingFiles recorded(agent.machine.fake.files);
  platform::Platform recording = platform::withFiles(fake, recorded);
  std::optional<platform::OtherPlatform> other(recording);
  agent.receive(signaturePackage("2"));
  ComponentUpdateThread(tests::componentParts()).cycle();
  ASSERT_EQ(versionFound(recorded), "2");
  AgentConfig::freeInstance();
  other.reset();

  int states = 0, withNew = 0;
  const std::string first = firstTakenOver ? "1" : "none";
  recorded.forEachCrash([&](const std::string& state, platform::MemoryFiles& disk) {
    ++states;
    platform::Platform after = platform::withFiles(fake, disk);
    const platform::OtherPlatform restarted(after);
    const std::string before = versionFound(disk);
    EXPECT_TRUE(before == first || before == "2") << before << " after " << state;
    withNew += before == "2";
    const bool marked = agent.config().getUpdateQELNow();
    ComponentUpdateThread next(tests::componentParts());
    next.cycle();
    const std::string found = versionFound(disk);
    EXPECT_TRUE(found == (marked ? "2" : before) || (marked && found == "1" && !firstTakenOver))
        << found << " after " << state;
    EXPECT_FALSE(agent.config().getUpdateQELNow()) << state;
    EXPECT_EQ(agent.machine.countLines(",10585,"), 0U) << state;
    agent.receive(signaturePackage("2"));
    next.cycle();
    EXPECT_EQ(versionFound(disk), "2") << state;
    EXPECT_EQ(directoriesOfPackages(disk).size(), 1U) << state;
    EXPECT_THAT(agent.config().getQelFL().toUtf8(), HasSubstr("version=2")) << state;
    AgentConfig::freeInstance();
  });
  EXPECT_GT(states, 45);
  EXPECT_GT(withNew, 3);
  RecordProperty("states", states);
}

INSTANTIATE_TEST_SUITE_P(WithTheFirstPackage, ComponentUpdateCrash, testing::Values(true, false),
                         [](const auto& row) { return row.param ? "TakenOver" : "StillWaiting"; });

TEST(ComponentUpdate, RunsUntilItIsStoppedAndTakesWhatIsMarkedMeanwhile) {
  Agent agent;
  agent.thread.start();
  agent.machine.sim.runFor(3000);
  agent.receive(signaturePackage("1"));
  agent.machine.sim.runFor(2000);
  EXPECT_EQ(versionFound(agent.machine.fake.files), "1");
  agent.thread.stop();
  agent.machine.sim.runFor(1000);
  EXPECT_FALSE(agent.thread.isAlive());
}

}  // namespace
}  // namespace korvane
