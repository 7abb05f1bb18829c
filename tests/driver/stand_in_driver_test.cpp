// DriverConfig and NotifyDriver against this system's stand-in driver: the simulator as a process
// on Linux, kavips.sys on Windows. Both must do the same.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "driver/driver_config.h"
#include "driver/notify_driver.h"
#include "platform/fake/fake_platform.h"
#include "tests/support/logged_events.h"
#include "tests/support/watchdog.h"
#include "update/prevention_state.h"

// DriverWorld, the driver of this system.
#include KORVANE_DRIVER_WORLD

namespace korvane {
namespace {

namespace fs = std::filesystem;
using tests::fsPath;

constexpr char kParameters[] = "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";
constexpr char kTestKey[] = "Software\\Dalvora\\Intrusion Security\\agent\\IPS\\TestForPrevention";
constexpr char kNoFileText[] = "The request names no policy file.";

int32_t notify(uint32_t code, void* buffer, size_t size, uint32_t timeoutMs = 10000) {
  return NotifyDriver(static_cast<int32_t>(code), buffer, static_cast<uint32_t>(size), timeoutMs);
}

class StandInDriverTest : public testing::Test {
 protected:
  StandInDriverTest() {
    write("good.conf",
          "korvane-policy 1\r\nname Web\nversion 3.2\nid x-1\nrule deny file web C:\\*\nrule deny "
          "file mail D:\\*\n");
    fs::create_directories(fsPath(at("root/IPS")));
    setInstallRoot(at("root"));
    world.system.registry.writeString(kParameters, "UseBuiltin", "0");
  }

  void write(const std::string& name, const std::string& content) {
    std::ofstream(fsPath(at(name)), std::ios::binary) << content;
  }
  std::string at(const std::string& name) const { return world.at(name); }
  int load(const std::string& name) { return DriverConfig::newPolicy(STRING(at(name))); }
  std::string applied() {
    STRING name, version, id;
    if (!DriverConfig::queryPolicy(name, version, id)) return "unknown";
    return (name + STRING("/") + version + STRING("/") + id).toUtf8();
  }
  std::string refusal() {
    char record[KAVIPS_REFUSAL_BYTES] = {};
    EXPECT_EQ(notify(KAVIPS_QUERY_REFUSAL, record, sizeof record), 0);
    std::u16string text;
    for (size_t i = KAVIPS_REFUSAL_TEXT_OFFSET; record[i] != 0 || record[i + 1] != 0; i += 2)
      text += static_cast<char16_t>(static_cast<unsigned char>(record[i]) |
                                    static_cast<unsigned char>(record[i + 1]) << 8);
    return STRING(text).toUtf8();
  }
  bool stateHas(const std::string& part) {
    return world.command("state").find(part) != std::string::npos;
  }

  tests::DriverWorld world;
  platform::CurrentPlatform current{world.system};
  LoggedEvents events{world.system.files, at("log")};
};

TEST_F(StandInDriverTest, LogsAreRolledToWhereTheParametersSay) {
  EXPECT_EQ(DriverConfig::rollDriverLog(STRING(at("driv\xc3\xa4r.csv"))), 0);
  EXPECT_TRUE(fs::exists(fsPath(at("driv\xc3\xa4r.csv"))));
  write("profile.csv", "kept");
  EXPECT_EQ(DriverConfig::rollProfileLog(STRING(at("profile.csv"))), 0);
  EXPECT_EQ(fs::file_size(fsPath(at("profile.csv"))), 4u);
  EXPECT_EQ(DriverConfig::rollProfileLog(STRING(at("none/profile.csv"))), 4);
  EXPECT_EQ(DriverConfig::rollDriverLog(STRING()), 4);
}

TEST_F(StandInDriverTest, SnapshotsGiveWholeRecords) {
  ASSERT_EQ(load("good.conf"), 0);
  KorvanePsetSnapshot sets[3] = {};
  EXPECT_EQ(DriverConfig::psetsnapshot(sets, sizeof sets), 0);
  EXPECT_EQ(std::u16string(sets[1].name), u"mail");
  EXPECT_EQ(sets[1].rules, 1u);
  EXPECT_EQ(sets[2].number, 0u);
  KorvanePsetSnapshot first[2] = {};
  EXPECT_EQ(DriverConfig::psetsnapshot(first, sizeof first - 1), 8);
  EXPECT_EQ(first[0].number, 1u);
  EXPECT_EQ(first[1].number, 0u);

  std::vector<KorvaneProcessSnapshot> processes(1024);
  const int room = static_cast<int>(sizeof processes[0]);
  EXPECT_EQ(DriverConfig::processdump(processes.data(), room), 8);
  EXPECT_EQ(processes[0].recordBytes, sizeof processes[0]);
  EXPECT_EQ(processes[1].recordBytes, 0u);
  EXPECT_EQ(DriverConfig::processdump(processes.data(), 1024 * room), 0);
  const uint64_t own = world.system.processes.currentId();
  const auto found = std::find_if(processes.begin(), processes.end(),
                                  [own](const auto& each) { return each.processId == own; });
  ASSERT_NE(found, processes.end());
  EXPECT_TRUE(std::any_of(processes.begin(), processes.end(), [&](const auto& each) {
    return each.parentId != 0 &&
           std::any_of(processes.begin(), processes.end(),
                       [&](const auto& other) { return other.processId == each.parentId; });
  }));
  EXPECT_NE(std::u16string(found->imagePath).find(u"driver"), std::u16string::npos);
}

TEST_F(StandInDriverTest, LengthsAreKeptTo) {
  const std::u16string path = STRING(at("good.conf")).utf16() + u'\0';
  std::string whole(reinterpret_cast<const char*>(path.data()), 2 * path.size());
  const std::string inputs[] = {"",
                                whole.substr(0, 1),
                                whole.substr(0, 2),
                                whole.substr(0, whole.size() - 2),
                                whole + "\0",
                                std::string(whole) + std::string(2, '\0'),
                                std::string(2, '\0'),
                                std::string(4, '\0')};
  for (std::string input : inputs) {
    if (input == whole) continue;
    EXPECT_EQ(notify(KAVIPS_LOAD_POLICY, input.data(), input.size()), 4) << input.size();
    EXPECT_EQ(refusal(), kNoFileText) << input.size();
  }
  EXPECT_EQ(notify(KAVIPS_LOAD_POLICY, whole.data(), whole.size()), 0);

  char buffer[2048] = {};
  struct Case {
    uint32_t code;
    size_t room;
    int32_t result;
  };
  for (const Case& each : {Case{KAVIPS_QUERY_POLICY, 1028, 0}, Case{KAVIPS_QUERY_POLICY, 1027, 8},
                           Case{KAVIPS_QUERY_POLICY, 0, 8}, Case{KAVIPS_QUERY_POLICY, 2048, 0},
                           Case{KAVIPS_QUERY_REFUSAL, 516, 0}, Case{KAVIPS_QUERY_REFUSAL, 515, 8},
                           Case{KAVIPS_PSET_SNAPSHOT, 0, 8}, Case{KAVIPS_PROCESS_SNAPSHOT, 0, 8},
                           Case{KAVIPS_PROCESS_SNAPSHOT, 659, 8}, Case{0x80001234, 0, 4}}) {
    std::fill(std::begin(buffer), std::end(buffer), '\x5A');
    EXPECT_EQ(notify(each.code, buffer, each.room), each.result) << std::hex << each.code;
    EXPECT_EQ(buffer[each.room % sizeof buffer], each.room < sizeof buffer ? 0x5A : 0);
  }
}

TEST_F(StandInDriverTest, TheBootedPolicyIsTheRecordedOne) {
  ASSERT_EQ(load("good.conf"), 0);
  world.stop();
  EXPECT_FALSE(world.isThere());
  world.start();
  EXPECT_EQ(applied(), "Web/3.2/x-1");
  EXPECT_EQ(DriverConfig::useBuiltIn(), 0);
  world.stop();
  world.start();
  EXPECT_TRUE(DriverConfig::usingBuiltIn());
}

TEST_F(StandInDriverTest, RequestsEndAsTheOperatorWantsThem) {
  struct Case {
    const char* command;
    uint32_t timeoutMs;
    int32_t result;
    int event;  // 0: none
  };
  for (const Case& each : {Case{"delay 200", 30000, 0, 0}, Case{"late-error 100", 30000, 4, 0},
                           Case{"late-error 100 22", 30000, 4, 0},
                           Case{"late-error 50 234", 30000, 8, 0}, Case{"fail 22", 30000, 6, 10119},
                           Case{"fail 5", 30000, 6, 10119}, Case{"stall", 100, 5, 10118},
                           Case{"delay 3600000", 50, 5, 10118}, Case{"normal", 30000, 0, 0}}) {
    const size_t before = events.all().size();
    world.command(each.command);
    EXPECT_EQ(notify(KAVIPS_USE_BUILTIN, nullptr, 0, each.timeoutMs), each.result) << each.command;
    const std::vector<int> now = events.all();
    ASSERT_EQ(now.size() - before, each.event == 0 ? 0u : 1u) << each.command;
    if (each.event != 0) {
      EXPECT_EQ(now.back(), each.event) << each.command;
    }
  }
  EXPECT_TRUE(tests::waitFor("the cancelled ones to go by themselves",
                             [&] { return stateHas("\"pending\":0"); }));

  for (const char* text : {"delay", "delay x", "delay 3600001", "stall now", "vanish now",
                           "late-error 1 2 3", "prevention maybe", "frobnicate"}) {
    EXPECT_NE(world.command(text).find("not understood"), std::string::npos) << text;
    EXPECT_TRUE(stateHas("\"mode\":\"normal\"")) << text;
  }
}

// A request that the driver never answers, on a thread of its own; `end` makes it come back.
TEST_F(StandInDriverTest, AStalledRequestEndsWithTheAgentOrWithTheDriver) {
  struct Case {
    const char* what;
    std::function<void()> end;
    int result;
  };
  for (const Case& each : {Case{"vanish", [this] { world.command("vanish"); }, 4},
                           Case{"unload", [this] { world.stop(); }, 4},
                           Case{"stop", [] { shutdownToken().request(); }, 5}}) {
    if (!world.isThere()) world.start();
    world.command("normal");
    world.command("stall");
    int result = -1;
    std::thread asking([&] { result = notify(KAVIPS_USE_BUILTIN, nullptr, 0, 100000); });
    EXPECT_TRUE(tests::waitFor("the request", [&] { return stateHas("\"pending\":1"); }));
    each.end();
    asking.join();
    EXPECT_EQ(result, each.result) << each.what;
    if (each.what == std::string("vanish")) world.stop();
  }
  EXPECT_TRUE(tests::waitFor("the requests to go", [&] { return stateHas("\"pending\":0"); }));
  EXPECT_EQ(events.all(), std::vector<int>{}) << "none of it is the driver's fault";
}

TEST_F(StandInDriverTest, ADriverThatGoesIsReportedOnceAndComesBack) {
  ASSERT_EQ(load("good.conf"), 0);
  world.command("vanish");
  for (int i = 0; i < 4; ++i) EXPECT_EQ(applied(), "unknown");
  EXPECT_EQ(load("good.conf"), 2);
  EXPECT_EQ(events.all(), std::vector<int>{10112});
  world.command("normal");
  EXPECT_TRUE(tests::waitFor("the driver", [&] { return world.isThere(); }));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(applied(), "Web/3.2/x-1");
  world.stop();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(applied(), "unknown");
  world.start();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(applied(), "Web/3.2/x-1");
  EXPECT_EQ(events.all(), (std::vector<int>{10112, 10400, 10112, 10400}));
}

TEST_F(StandInDriverTest, TheServicesThatAnInstallationMakesGetTheirStartValues) {
  const auto starts = [this] {
    std::vector<uint32_t> values;
    for (const char* service : {"KAVIPSDriver", "KAVIPSNetFilter", "AKAVIPSTcpFilter"}) {
      const std::string key = std::string("System\\CurrentControlSet\\Services\\") + service;
      world.system.registry.readDword(key, "Start", values.emplace_back(99));
    }
    return values;
  };
  EXPECT_EQ(DriverConfig::StartDriver(), 0);
  EXPECT_EQ(starts(), (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(DriverConfig::StopDriver(), 0);
  EXPECT_EQ(starts(), (std::vector<uint32_t>{3, 3, 3}));
}

TEST_F(StandInDriverTest, TheSelfTestFindsOutWhetherPreventionIsInForce) {
  world.setPrevention(true);
  EXPECT_EQ(testPrevention(world.system.registry), PreventionTest::refused);
  EXPECT_EQ(testPrevention(world.system.registry), PreventionTest::refused);
  EXPECT_NE(events.text().find("::monitorPrevention Registry Access denied"), std::string::npos);
  world.setPrevention(false);
  EXPECT_EQ(testPrevention(world.system.registry), PreventionTest::keyMade);
  EXPECT_EQ(testPrevention(world.system.registry), PreventionTest::keyMade);
  world.setPrevention(true);
  EXPECT_EQ(testPrevention(world.system.registry), PreventionTest::refused)
      << "a key that was made before is refused as well";
  world.setPrevention(false);
  world.system.registry.deleteKey(kTestKey);
}

}  // namespace
}  // namespace korvane
