// The whole agent, the library under its host, with this system's stand-in driver in all its moods.
// It is of the kind that needs no server.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "driver/driver_config.h"
#include "platform/fake/fake_platform.h"
#include "tests/support/temp_directory.h"

// DriverWorld, the driver of this system.
#include KORVANE_DRIVER_WORLD

namespace korvane {
namespace {

namespace fs = std::filesystem;
using tests::fsPath;

constexpr char kAgentKey[] = "SOFTWARE\\Dalvora\\Intrusion Security\\agent";
constexpr uint32_t kLongMs = 60000;
constexpr int64_t kStopLimitMs = 5000;

class AgentAndDriverTest : public testing::Test {
 protected:
  AgentAndDriverTest() {
    fs::create_directories(fsPath(at("root/IPS")));
    fs::create_directories(fsPath(at("root/IDS/bin")));
    world.system.registry.createKey(kAgentKey);
    world.system.registry.readString(kAgentKey, "AgentType", _typeBefore);
    world.system.registry.writeString(kAgentKey, "AgentType", "3");
    writeSettings(false);
  }
  ~AgentAndDriverTest() override {
    killAgent();
    world.system.registry.writeString(kAgentKey, "AgentType",
                                      _typeBefore.empty() ? STRING("1") : _typeBefore);
  }

  // Every change of the flag makes the agent ask the driver again.
  void writeSettings(bool builtIn) {
    std::unique_ptr<platform::FileLock> lock;
    ASSERT_TRUE(soon([&] { return world.system.files.lock(at("root/IPS/lockFile"), lock) == 0; }));
    std::ofstream(fsPath(at("root/IPS/agent.ini")))
        << "[AgentLog]\nagentlog.log.trace.messages=true\n[Driver]\nuse.builtin.policy="
        << (builtIn ? "true" : "false") << '\n';
  }

  void startAgent() {
    ASSERT_EQ(
        world.system.processes.start(
            KORVANE_HOST, "run --install-root " + at("root") + " " + world.hostOptions(), _host),
        0u);
  }
  // How long the stop took; the host must end with status 0.
  int64_t stopAgent() {
    const int64_t before = world.system.clock.monotonicMs();
    world.stopHost(*_host);
    uint32_t code = 99;
    EXPECT_EQ(_host->wait(kLongMs), platform::ProcessWait::ended);
    EXPECT_TRUE(_host->exitCode(code));
    EXPECT_EQ(code, 0u) << log();
    _host.reset();
    return world.system.clock.monotonicMs() - before;
  }

  void killAgent() {
    if (!_host) return;
    _host->terminate();
    _host->wait(kLongMs);
    _host.reset();
  }
  // Whether so many requests come to wait in the driver.
  bool pending(int count) {
    const std::string part = "\"pending\":" + std::to_string(count);
    return soon([&] { return world.command("state").find(part) != std::string::npos; });
  }

  std::string log() const {
    std::ostringstream text;
    std::error_code none;
    for (const auto& file : fs::directory_iterator(fsPath(at("root/IPS/logs")), none))
      text << std::ifstream(file.path(), std::ios::binary).rdbuf();
    return text.str();
  }
  int logged(const std::string& part) const {
    const std::string text = log();
    int count = 0;
    for (size_t found = text.find(part); found != std::string::npos; ++count)
      found = text.find(part, found + 1);
    return count;
  }
  // Waits until the log has `part` that often; false when it does not come to that.
  bool comes(const std::string& part, int times = 1) {
    return soon([&] { return logged(part) >= times; });
  }
  static bool soon(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLongMs);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
  }

  std::string at(const std::string& name) const { return world.at(name); }

  tests::DriverWorld world;
  platform::CurrentPlatform current{world.system};

 private:
  std::unique_ptr<platform::Process> _host;
  STRING _typeBefore;
};

TEST_F(AgentAndDriverTest, AMissingDriverIsReportedOnceAndSoIsItsReturn) {
  world.stop();
  startAgent();
  ASSERT_TRUE(comes(",10112,")) << log();
  writeSettings(true);
  ASSERT_TRUE(comes("Querying policy.", 2)) << log();
  world.start();
  writeSettings(false);
  ASSERT_TRUE(comes(",10400,")) << log();
  ASSERT_TRUE(comes("Querying policy.", 3)) << log();
  EXPECT_LE(stopAgent(), kStopLimitMs);
  EXPECT_EQ(logged(",10112,"), 1);
  EXPECT_EQ(logged(",10400,"), 1);
  EXPECT_EQ(logged("Querying policy."), 3) << "once at the start, once for each change";
}

TEST_F(AgentAndDriverTest, AKilledAgentLeavesNothingPending) {
  world.command("stall");
  startAgent();
  ASSERT_TRUE(comes("I/O pending.")) << log();
  EXPECT_TRUE(pending(1));
  killAgent();
  EXPECT_TRUE(pending(0));
  world.command("normal");
  startAgent();
  EXPECT_TRUE(comes(",10104,")) << "the next one is served: " << log();
  EXPECT_LE(stopAgent(), kStopLimitMs);
}

TEST_F(AgentAndDriverTest, StopsPromptlyWhateverTheDriverDoes) {
  struct Case {
    const char* command;
    const char* reached;
  };
  for (const Case& each :
       {Case{"stall", "I/O pending."}, Case{"delay 3600000", "I/O pending."},
        Case{"late-error 200 31", "Waited, failed"}, Case{"fail 5", ",10119,"}}) {
    fs::remove_all(fsPath(at("root/IPS/logs")));
    world.command(each.command);
    startAgent();
    ASSERT_TRUE(comes(each.reached)) << each.command << '\n' << log();
    const int64_t took = stopAgent();
    EXPECT_LE(took, kStopLimitMs) << each.command;
    std::printf("stop, driver told '%s': %lld ms\n", each.command, static_cast<long long>(took));
    EXPECT_EQ(logged(",10110,"), 1) << each.command;
    EXPECT_TRUE(pending(0)) << each.command;
  }
}

}  // namespace
}  // namespace korvane
