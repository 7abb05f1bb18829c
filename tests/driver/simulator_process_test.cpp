// DriverConfig against the driver simulator as a process of its own.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "driver/driver_config.h"
#include "driver/notify_driver.h"
#include "platform/error_codes.h"
#include "platform/fake/fake_platform.h"
#include "platform/platform.h"
#include "tests/support/logged_events.h"
#include "tests/support/temp_directory.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;

constexpr char kDevice[] = "\\\\.\\KAVIPS";
constexpr char kControl[] = "\\\\.\\KAVIPS-CONTROL";
constexpr uint32_t kCommandCode = 0xF0000010;
constexpr char kTestKey[] =
    "Software\\Dalvora\\Intrusion Security\\agent\\IPS\\TestForPrevention\\x";

class SimulatorProcessTest : public testing::Test {
 protected:
  SimulatorProcessTest() {
    write("registry.reg",
          "Windows Registry Editor Version 5.00\n\n"
          "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters]\n"
          "\"UseBuiltin\"=\"0\"\n\"Enable\"=\"1\"\n");
    write("good.conf",
          "korvane-policy 1\nname Web\nversion 3.2\nid x-1\nrule deny file web C:\\*\nrule deny "
          "file mail D:\\*\n");
    write("refusing.conf",
          "korvane-policy 1\nname W\nversion 1\nid y\nrule refuse Not on \xc3\xa4 Sunday\n");
    fs::create_directories(at("root/IPS"));
    setInstallRoot(at("root"));
    start();
  }
  ~SimulatorProcessTest() override {
    stop();
    AgentConfig::freeInstance();
    setInstallRoot("");
    shutdownToken().reset();
  }

  void write(const std::string& name, const std::string& content) {
    std::ofstream(at(name)) << content;
  }

  void start() {
    const std::string arguments =
        "--run-dir " + folder.path() + " --registry " + at("registry.reg");
    ASSERT_EQ(system.processes.start(KORVANE_DRIVER_SIM, arguments, process), 0u);
    ASSERT_TRUE(appears(kDevice));
  }
  // Ends the simulator as its operator would and gives its exit code.
  uint32_t stop() {
    uint32_t code = 999;
    if (!process) return code;
    kill(static_cast<pid_t>(process->id()), SIGTERM);
    if (process->wait(10000) == platform::ProcessWait::ended) process->exitCode(code);
    process.reset();
    return code;
  }

  bool isThere(const char* device) {
    std::unique_ptr<platform::Device> opened;
    return system.devices.open(device, opened) == 0;
  }
  // Whether the device can be opened within ten seconds, while the simulator lives.
  bool appears(const char* device) {
    bool there = isThere(device);
    for (int i = 0; !there && i < 1000; ++i) {
      if (process->wait(10) != platform::ProcessWait::timedOut) return false;
      there = isThere(device);
    }
    return there;
  }

  std::string ctl(const std::string& command) {
    std::unique_ptr<platform::Device> device;
    std::unique_ptr<platform::DeviceRequest> request;
    if (system.devices.open(kControl, device) != 0) return "no simulator";
    device->prepare(kCommandCode, std::as_bytes(std::span(command)), 4096, request);
    if (request->issue() == platform::kErrorIoPending) request->wait(10000);
    const auto output = request->output();
    return reinterpret_cast<const char*>(output.data());
  }
  int load(const std::string& name) { return DriverConfig::newPolicy(STRING(at(name))); }
  std::string applied() {
    STRING name, version, id;
    if (!DriverConfig::queryPolicy(name, version, id)) return "unknown";
    return (name + STRING("/") + version + STRING("/") + id).toUtf8();
  }

  std::string at(const std::string& name) const { return folder.path() + "/" + name; }

  tests::TempDirectory folder;
  std::unique_ptr<platform::NativePlatform> native =
      platform::makeNativePlatform({at("registry.reg"), folder.path()});
  platform::Platform& system = native->platform();
  platform::CurrentPlatform current{system};
  LoggedEvents events{system.files, at("log")};
  std::unique_ptr<platform::Process> process;
};

TEST_F(SimulatorProcessTest, PoliciesAreLoadedRefusedAndFallenBackFrom) {
  EXPECT_TRUE(DriverConfig::usingBuiltIn());
  EXPECT_EQ(load("good.conf"), 0);
  EXPECT_EQ(applied(), "Web/3.2/x-1");
  EXPECT_FALSE(DriverConfig::usingBuiltIn());
  EXPECT_EQ(DriverConfig::getMinusFile(), STRING(at("good.conf")));

  EXPECT_EQ(load("refusing.conf"), 4);
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING("Not on \xc3\xa4 Sunday"));
  EXPECT_EQ(load("missing.conf"), 4);
  EXPECT_EQ(DriverConfig::getErrorMessage(),
            STRING("The policy file cannot be read (2): " + at("missing.conf")));
  ctl("refuse Not  now");
  EXPECT_EQ(load("good.conf"), 4);
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING("Not  now"));
  EXPECT_EQ(applied(), "Web/3.2/x-1");

  EXPECT_EQ(DriverConfig::useBuiltIn(), 0);
  EXPECT_TRUE(DriverConfig::usingBuiltIn());
  ctl("refuse");
  EXPECT_EQ(load("good.conf"), 0);
  EXPECT_FALSE(DriverConfig::usingBuiltIn());

  EXPECT_EQ(DriverConfig::rollDriverLog(STRING(at("driver.csv"))), 0);
  EXPECT_TRUE(fs::exists(at("driver.csv")));
  EXPECT_EQ(DriverConfig::rollProfileLog(STRING(at("none/profile.csv"))), 4);
  KorvanePsetSnapshot sets[3] = {};
  EXPECT_EQ(DriverConfig::psetsnapshot(sets, sizeof sets), 0);
  EXPECT_EQ(std::u16string(sets[1].name), u"mail");
  EXPECT_EQ(sets[2].number, 0u);
  std::vector<KorvaneProcessSnapshot> processes(1);
  EXPECT_EQ(DriverConfig::processdump(processes.data(), sizeof processes[0]), 8);
  EXPECT_EQ(processes[0].recordBytes, sizeof processes[0]);
}

TEST_F(SimulatorProcessTest, TheBootedPolicyIsTheRecordedOne) {
  ASSERT_EQ(load("good.conf"), 0);
  EXPECT_EQ(stop(), 0u);
  EXPECT_FALSE(fs::exists(at("kavips.sock")));
  EXPECT_FALSE(fs::exists(at("kavips-control.sock")));
  start();
  EXPECT_EQ(applied(), "Web/3.2/x-1");
  EXPECT_EQ(fs::status(at("kavips.sock")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  DriverConfig::useBuiltIn();
  kill(static_cast<pid_t>(process->id()), SIGKILL);
  process->wait(10000);
  start();  // over the sockets that the killed one left
  EXPECT_TRUE(DriverConfig::usingBuiltIn());
}

TEST_F(SimulatorProcessTest, DelayedLateAndFailedRequestsHaveTheirResults) {
  ctl("delay 200");
  EXPECT_EQ(load("good.conf"), 0);
  ctl("late-error 100 22");
  EXPECT_EQ(DriverConfig::useBuiltIn(), 4);
  ctl("late-error 100 234");
  EXPECT_EQ(DriverConfig::useBuiltIn(), 8);
  ctl("fail 22");
  EXPECT_EQ(DriverConfig::useBuiltIn(), 6);
  EXPECT_EQ(events.all(), std::vector<int>{10119});
  ctl("stall");
  EXPECT_EQ(NotifyDriver(static_cast<int32_t>(KAVIPS_USE_BUILTIN), nullptr, 0, 100), 5);
  ctl("normal");
  EXPECT_EQ(applied(), "Web/3.2/x-1");
}

TEST_F(SimulatorProcessTest, AStopCutsAStalledPolicyLoadShort) {
  ctl("stall");
  int result = -1;
  std::thread loading([&] { result = load("good.conf"); });
  while (ctl("state").find("\"pending\":1") == std::string::npos) std::this_thread::yield();
  shutdownToken().request();
  loading.join();
  EXPECT_EQ(result, 5);
  EXPECT_NE(ctl("normal").find("\"pending\":0"), std::string::npos)
      << "the cancelled request is gone";
}

TEST_F(SimulatorProcessTest, ADriverThatVanishesIsReportedOnceAndComesBack) {
  ASSERT_EQ(load("good.conf"), 0);
  ctl("vanish");
  for (int i = 0; i < 4; ++i) EXPECT_EQ(applied(), "unknown");
  EXPECT_EQ(load("good.conf"), 2);
  EXPECT_EQ(events.all(), std::vector<int>{10112});
  ctl("normal");
  ASSERT_TRUE(appears(kDevice));
  EXPECT_EQ(applied(), "Web/3.2/x-1");
  EXPECT_EQ(applied(), "Web/3.2/x-1");
  EXPECT_EQ(events.all(), (std::vector<int>{10112, 10400}));
}

TEST_F(SimulatorProcessTest, TheRegistryRefusesTheTestKeyWhilePreventionIsInForce) {
  EXPECT_EQ(system.registry.createKey(kTestKey), platform::kErrorAccessDenied);
  ctl("prevention off");
  EXPECT_EQ(system.registry.createKey(kTestKey), 0u);
  EXPECT_EQ(system.registry.deleteKey(kTestKey), 0u);
}

}  // namespace
}  // namespace korvane
