// Every state that a crash of the machine may leave, and whether a setting that was written
// survives it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "config/agent_config.h"
#include "config/install_root.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/recording_files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

using platform::MemoryFiles;

class CrashTest : public testing::Test {
 protected:
  // Runs the agent's way of using its store over `recorded`, noting after which entry of the
  // journal each value was promised to be safe.
  void work(platform::RecordingFiles& recorded) {
    use(recorded);
    AgentConfig::freeInstance();
    AgentConfig& config = *AgentConfig::getInstance();
    config.UpdateAllIni();
    for (int i = 1; i <= 3; ++i) {
      config.setUniqueId(STRING::fromInt(i));
      _promises.emplace_back(recorded.size(), i);
      if (i == 2) config.UpdateAllIni();
      if (i == 2) _fallbackPromises.emplace_back(recorded.size(), i);
    }
    AgentConfig::freeInstance();
  }

  // How many states after a crash break a promise: a value older than one that was safe by
  // then, or a damaged file; or an older one in fallback.ini, which counts when agent.ini
  // is damaged as well.
  int brokenPromises(platform::RecordingFiles& recorded) {
    int broken = 0;
    states = 0;
    for (size_t entries = 0; entries <= recorded.size(); ++entries)
      recorded.forEachCrashAfter(entries, [&](const std::string&, MemoryFiles& disk) {
        ++states;
        broken += foundOn(disk) < safeBy(entries, _promises);
        broken += std::ranges::any_of(disk.paths(), [](const std::string& path) {
          return path.find(".damaged-") != std::string::npos;
        });
        disk.put("/opt/agent/IPS/agent.ini", "damaged");
        broken += foundOn(disk) < safeBy(entries, _fallbackPromises);
      });
    return broken;
  }

  void use(platform::Files& files) {
    platform::Platform& base = fake.platform();
    system = std::make_unique<platform::Platform>(platform::Platform{
        base.clock, base.threading, files, base.registry, base.devices, base.processes,
        base.sockets, base.systemInfo, base.sharedLibraries, base.pipes, base.rights});
    current.reset();
    current.emplace(*system);
    setInstallRoot("/opt/agent");
  }

  platform::FakePlatform fake;
  std::unique_ptr<platform::Platform> system;
  std::optional<platform::CurrentPlatform> current;
  int states = 0;
  int unfinished = 0;  // files of cut off writes that the next start has left

 private:
  using Promises = std::vector<std::pair<size_t, int64_t>>;  // the journal's length, and the value
  static int64_t safeBy(size_t entries, const Promises& promises) {
    int64_t safe = 0;
    for (const auto& [at, value] : promises)
      if (at <= entries) safe = value;
    return safe;
  }
  int64_t foundOn(MemoryFiles& disk) {
    use(disk);
    const STRING found = AgentConfig::getInstance()->getUniqueId();
    AgentConfig::freeInstance();
    for (const std::string& path : disk.paths())
      unfinished += !platform::unfinishedTarget(platform::fileNameOf(path)).empty();
    return found.empty() ? 0 : found.toInt();
  }

  Promises _promises, _fallbackPromises;
};

TEST_F(CrashTest, WhatASetterHasWrittenSurvivesEveryCrashAndNoFlushCanBeLeftOut) {
  MemoryFiles disk(fake.clock);
  platform::RecordingFiles recorded(disk);
  work(recorded);
  EXPECT_GT(recorded.size(), 20u);
  EXPECT_EQ(brokenPromises(recorded), 0);
  EXPECT_EQ(unfinished, 0);
  std::printf("%d states of agent.ini and fallback.ini\n", states);
  size_t directories = 0;
  for (size_t flush = 0; flush < recorded.flushes(); ++flush) {
    recorded.leaveOutFlush(flush);
    const bool noticed = brokenPromises(recorded) > 0;
    const bool directory = recorded.describeFlush(flush).starts_with("flush directory");
    directories += directory && noticed;
    // Before the first promise, and where another flush of the folder follows before one,
    // nothing is lost.
    EXPECT_TRUE(noticed || directory || flush < 4) << recorded.describeFlush(flush);
  }
  EXPECT_EQ(directories, 4U) << "of each setter, and of fallback.ini";
}

}  // namespace
}  // namespace korvane
