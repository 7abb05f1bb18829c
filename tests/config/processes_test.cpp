// Real threads on one store, and real processes on real files.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "config/agent_config.h"
#include "config/ini_text.h"
#include "config/install_root.h"
#include "platform/fake/fake_platform.h"
#include "platform/paths.h"
#include "platform/platform.h"

namespace korvane {
namespace {

constexpr int kWrites = 40;

// Every version of the file that a reader without the lock may see.
void expectWhole(const std::string& path) {
  std::string bytes;
  if (platform::readWholeFile(platform::current().files, path, kMaxIniBytes, bytes) == ENOENT)
    return;
  IniText text;
  ASSERT_TRUE(parseIniText(bytes, text));
  ASSERT_TRUE(text.hasChecksum && checksumHolds(text, false)) << path << " holds\n" << bytes;
  for (const STRING writer : {"one", "two"}) {
    EXPECT_EQ(propertyValue(text.values, writer + ".a"), propertyValue(text.values, writer + ".b"));
  }
}

TEST(ConfigThreadsTest, EverythingAtOnce) {
  platform::FakePlatform fake;
  const platform::CurrentPlatform current(fake.platform());
  setInstallRoot("/opt/agent");
  fake.files.makeDirectories("/opt/agent/IPS");
  AgentConfig& config = *AgentConfig::getInstance();
  std::atomic<int> calls{0};
  config.registerSubscriber(AgentConfig::SETTINGS_CHANGED, [&](void*) { ++calls; });
  constexpr int kRounds = 100;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      const STRING key = "thread." + STRING::fromInt(t);
      for (int i = 1; i <= kRounds; ++i) {
        config.setValue(key, STRING::fromInt(i));
        config.newConfiguration({{"shared", key}, {"server.list", "a,b"}});
        fake.clock.advance(1);
        EXPECT_TRUE(config.loadIniFile());
        EXPECT_EQ(config.getValue(key), STRING::fromInt(i)) << "no thread undoes another's change";
        EXPECT_EQ(config.getServerPrimary(), STRING("a"));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(calls, kRounds);
  AgentConfig::freeInstance();
  for (int t = 0; t < 4; ++t) {
    const STRING value = AgentConfig::getInstance()->getValue("thread." + STRING::fromInt(t));
    EXPECT_EQ(value, STRING::fromInt(kRounds));
  }
}

TEST(ConfigProcessesTest, NeitherTornFilesNorLostChanges) {
  platform::Platform& system = platform::current();
  const std::filesystem::path root =
      std::filesystem::temp_directory_path() /
      ("korvane-config-" + std::to_string(system.processes.currentId()));
  std::filesystem::create_directories(root / "IPS");
  const std::string program = platform::joinPath(
      system.files, {system.systemInfo.moduleDirectory(), KORVANE_CONFIG_WRITER});
  std::vector<std::unique_ptr<platform::Process>> writers(2);
  for (size_t i = 0; i < writers.size(); ++i) {
    const std::string arguments =
        root.string() + (i == 0 ? " one " : " two ") + std::to_string(kWrites);
    ASSERT_EQ(system.processes.start(program, arguments, writers[i]), 0u) << program;
  }
  for (const auto& writer : writers) {
    platform::ProcessWait state = platform::ProcessWait::timedOut;
    for (int i = 0; i < 60000 && state == platform::ProcessWait::timedOut; ++i) {
      expectWhole((root / "IPS" / "agent.ini").string());
      expectWhole((root / "IPS" / "fallback.ini").string());
      state = writer->wait(1);
    }
    uint32_t code = 99;
    EXPECT_TRUE(state == platform::ProcessWait::ended && writer->exitCode(code) && code == 0)
        << code;
  }
  const platform::CurrentPlatform current(system);
  setInstallRoot(root.string());
  for (const STRING key : {"one.a", "one.b", "two.a", "two.b"}) {
    EXPECT_EQ(AgentConfig::getInstance()->getValue(key), STRING::fromInt(kWrites)) << key.toUtf8();
  }
  std::filesystem::remove_all(root);
}

}  // namespace
}  // namespace korvane
