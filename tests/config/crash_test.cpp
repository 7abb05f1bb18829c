// Every state that a crash of the machine may leave, and whether a setting that was written survives it.
#include <gtest/gtest.h>

#include <algorithm>

#include "config/agent_config.h"
#include "config/install_root.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/recording_files.h"

namespace korvane {
namespace {

using platform::DataLoss;
using platform::MemoryFiles;
using platform::NameLoss;

// Files that say "flushed" and are not.
class NoFlush : public platform::ForwardingFiles {
 public:
  using ForwardingFiles::ForwardingFiles;
  int open(const std::string& path, platform::OpenMode mode,
           std::unique_ptr<platform::File>& out) override {
    struct Unflushed : platform::ForwardingFile {
      using ForwardingFile::ForwardingFile;
      int flush() override { return 0; }
    };
    const int error = ForwardingFiles::open(path, mode, out);
    if (error == 0) out = std::make_unique<Unflushed>(std::move(out));
    return error;
  }
};

class NoDirectoryFlush : public platform::ForwardingFiles {
 public:
  using ForwardingFiles::ForwardingFiles;
  int flushDirectory(const std::string&) override { return 0; }
};

class CrashTest : public testing::Test {
 protected:
  ~CrashTest() override {
    AgentConfig::freeInstance();
    setInstallRoot("");
    platform::setCurrent(nullptr);
  }

  // Runs the agent's way of using its store over `recorded`, noting after which entry of the journal each
  // value was promised to be safe.
  void work(platform::Files& throughFiles, platform::RecordingFiles& recorded) {
    use(throughFiles);
    AgentConfig::freeInstance();
    AgentConfig& config = *AgentConfig::getInstance();
    config.UpdateAllIni();
    for (int i = 1; i <= 3; ++i) {
      config.setUniqueId(STRING::fromInt(i));
      _promises.emplace_back(recorded.size(), i);
      if (i == 2) config.UpdateAllIni();
    }
    AgentConfig::freeInstance();
  }

  // How many states after a crash break a promise: a value older than one that was safe by then, or a
  // damaged file.
  int brokenPromises(platform::RecordingFiles& recorded) {
    int broken = 0;
    for (size_t entries = 0; entries <= recorded.size(); ++entries) {
      int64_t safe = 0;
      for (const auto& [at, value] : _promises) {
        if (at <= entries) safe = value;
      }
      for (const DataLoss data :
           {DataLoss::none, DataLoss::all, DataLoss::torn, DataLoss::zeroed, DataLoss::lastOnly}) {
        for (const NameLoss names : {NameLoss::none, NameLoss::all}) {
          MemoryFiles disk(fake.clock);
          recorded.crash(entries, data, names, disk);
          use(disk);
          const STRING found = AgentConfig::getInstance()->getUniqueId();
          AgentConfig::freeInstance();
          const bool damaged = std::ranges::any_of(disk.paths(), [](const std::string& path) {
            return path.find(".damaged-") != std::string::npos;
          });
          broken += damaged || (found.empty() ? 0 : found.toInt()) < safe;
        }
      }
    }
    return broken;
  }

  void use(platform::Files& files) {
    platform::Platform& base = fake.platform();
    system = std::make_unique<platform::Platform>(platform::Platform{
        base.clock, base.threading, files, base.registry, base.devices, base.processes,
        base.sockets, base.systemInfo, base.sharedLibraries, base.pipes});
    platform::setCurrent(system.get());
    setInstallRoot("/opt/agent");
  }

  platform::FakePlatform fake;
  std::unique_ptr<platform::Platform> system;

 private:
  std::vector<std::pair<size_t, int64_t>> _promises;
};

TEST_F(CrashTest, WhatASetterHasWrittenSurvivesEveryCrash) {
  MemoryFiles disk(fake.clock);
  platform::RecordingFiles recorded(disk);
  work(recorded, recorded);
  EXPECT_GT(recorded.size(), 20u);
  EXPECT_EQ(brokenPromises(recorded), 0);
}

TEST_F(CrashTest, TheCheckNoticesAMissingFlushOfTheFile) {
  MemoryFiles disk(fake.clock);
  platform::RecordingFiles recorded(disk);
  NoFlush files(recorded);
  work(files, recorded);
  EXPECT_GT(brokenPromises(recorded), 0);
}

TEST_F(CrashTest, TheCheckNoticesAMissingFlushOfTheDirectory) {
  MemoryFiles disk(fake.clock);
  platform::RecordingFiles recorded(disk);
  NoDirectoryFlush files(recorded);
  work(files, recorded);
  EXPECT_GT(brokenPromises(recorded), 0);
}

}  // namespace
}  // namespace korvane
