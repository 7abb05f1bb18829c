#include <optional>

#include "tests/driver/driver_fixture.h"

namespace korvane {
namespace {

using platform::DeviceScript;
using platform::DeviceWait;

constexpr uint32_t kLoad = 0x80008001;
constexpr char kNotLoaded[] = "IPS Driver is not loaded. Failed to apply translated policy";
constexpr char kFailed[] = "Driver failed to load new policy";

class PolicyLoadingTest : public DriverFixture {
 protected:
  void reset(const char* flag, bool driverUsesBuiltIn) {
    fake.registry.put(kParameters, "UseBuiltin", STRING(flag));
    fake.registry.put(kParameters, "Filter File", STRING("/old.conf"));
    fake.registry.put(kParameters, "PolicyEffectiveDt", STRING("5"));
    fake.devices.setHandler([driverUsesBuiltIn](const auto& call) -> std::optional<DeviceScript> {
      if (call.controlCode != 0x80004018) return std::nullopt;
      return DeviceScript::atOnce(0, policyRecord(driverUsesBuiltIn));
    });
  }
};

TEST_F(PolicyLoadingTest, EveryOutcomeLeavesTheSettingsAsItShould) {
  struct Case {
    const char* what;
    DeviceScript load;
    std::optional<DeviceScript> reason;  // the answer to the question for the refusal
    const char* flag;
    bool driverUsesBuiltIn;
    int result;
    const char* message;
    const char* flagAfter;
  };
  const DeviceScript refused = DeviceScript::pending(1, 13);
  const DeviceScript reason = DeviceScript::atOnce(0, refusalRecord(u"Rule 4: no such set"));
  const std::vector<Case> cases = {
      {"accepted", DeviceScript::pending(1, 0), {}, "1", true, 0, nullptr, "0"},
      {"refused, with a text", refused, reason, "0", false, 4, "Rule 4: no such set", "0"},
      {"refused, the recorded flag was on", refused, reason, "1", false, 4, "Rule 4: no such set",
       "1"},
      {"refused, the driver used the built-in one", refused, reason, "0", true, 4,
       "Rule 4: no such set", "1"},
      {"refused, no text to be had", refused, DeviceScript::pending(1, 31), "1", false, 4, kFailed,
       "1"},
      {"refused with an empty text", refused, DeviceScript::atOnce(0), "0", false, 4, kFailed, "0"},
      {"timed out", DeviceScript::waitEnds(DeviceWait::timedOut), {}, "1", false, 5, kFailed, "1"},
      {"failed at once", DeviceScript::atOnce(87), {}, "0", true, 6, kFailed, "1"},
      {"abandoned", DeviceScript::waitEnds(DeviceWait::abandoned), {}, "0", false, 3, kFailed, "0"},
      {"more data", DeviceScript::pending(1, 234), {}, "0", false, 8, kFailed, "0"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    reset(each.flag, each.driverUsesBuiltIn);
    const int loads = requests(kLoad);
    fake.devices.queue(kLoad, each.load);
    if (each.reason) fake.devices.queue(0x80004024, *each.reason);
    const DriverResult loaded = driver.newPolicy("/new.conf");
    EXPECT_EQ(loaded.code, each.result);
    EXPECT_EQ(loaded.text.toUtf8(), each.message ? each.message : "");
    if (each.message) {
      EXPECT_EQ(DriverConfig::getErrorMessage(), loaded.text);
    }
    EXPECT_EQ(parameter("UseBuiltin"), each.flagAfter);
    EXPECT_EQ(parameter("Filter File"), each.result == 0 ? "/new.conf" : "/old.conf");
    EXPECT_EQ(DriverConfig::getPolApplicationDate(),
              each.result == 0 ? static_cast<uint64_t>(fake.clock.wallMs()) : 5u);
    EXPECT_EQ(requests(kLoad), loads + 1);
  }
}

TEST_F(PolicyLoadingTest, ThePathGoesAsUtf16WithItsTerminator) {
  ASSERT_EQ(DriverConfig::newPolicy("/p\xc3\xa4"), 0);
  const std::vector<std::byte> expected = {
      std::byte{'/'}, {}, std::byte{'p'}, {}, std::byte{0xE4}, {}, {}, {}};
  for (const auto& call : fake.devices.calls())
    if (call.controlCode == kLoad) {
      EXPECT_EQ(call.input, expected);
    }
  EXPECT_EQ(DriverConfig::newPolicy(""), 3);
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING(kFailed));
  EXPECT_EQ(requests(kLoad), 1);
}

TEST_F(PolicyLoadingTest, ADriverThatIsNotThereCountsOnlyWhileItsRebootIsOutstanding) {
  fake.devices.setOpenError(2);
  AgentConfig* config = AgentConfig::getInstance();
  struct Case {
    bool enabled;
    bool rebootRequired;
    int result;
    int restored;  // result of putting an earlier setting back
  };
  for (const Case& each :
       {Case{true, true, 0, 0}, Case{true, false, 2, 2}, Case{false, true, 2, 0}}) {
    reset("1", false);
    config->setIPSEnabled(each.enabled);
    config->setIPSRebootRequired(each.rebootRequired);
    EXPECT_EQ(DriverConfig::newPolicy("/new.conf"), each.result);
    EXPECT_EQ(parameter("Filter File"), each.result == 0 ? "/new.conf" : "/old.conf");
    EXPECT_EQ(parameter("UseBuiltin"), each.result == 0 ? "0" : "1");
    EXPECT_EQ(DriverConfig::getPolApplicationDate() == 5, each.result != 0);
    EXPECT_EQ(driver.restorePolicySetting({"/before.conf", false}).code, each.restored);
  }
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING(kNotLoaded));
}

TEST_F(PolicyLoadingTest, ARegistryThatRefusesEndsTheChangeOrTakesItBack) {
  reset("0", false);
  fake.registry.refuseBelow(kParameters, 5);
  DriverResult loading = driver.newPolicy("/new.conf");
  EXPECT_EQ(loading.code, 7);
  EXPECT_EQ(requests(kLoad), 0);
  EXPECT_TRUE(loading.text.endsWith("Parameters\\UseBuiltin"));
  EXPECT_EQ(DriverConfig::getErrorMessage(), loading.text);

  // The registry refuses once the driver has accepted: the old policy goes back.
  for (const uint32_t revert : {0u, 13u}) {
    fake.registry.refuseBelow(kParameters, 0);
    reset("0", false);
    std::vector<std::vector<std::byte>> loaded;
    fake.devices.setHandler([&](const auto& call) -> std::optional<DeviceScript> {
      if (call.controlCode != kLoad) return std::nullopt;
      loaded.push_back(call.input);
      fake.registry.refuseBelow(kParameters, 5);
      return DeviceScript::pending(0, loaded.size() == 1 ? 0 : revert);
    });
    loading = driver.newPolicy("/new.conf");
    EXPECT_EQ(loading.code, 7);
    ASSERT_EQ(loaded.size(), 2u);
    EXPECT_EQ(loaded[1][2], std::byte{'o'}) << "the old file";
    EXPECT_EQ(loading.text == STRING("Driver failed  to load the old policy"), revert != 0);
    EXPECT_EQ(DriverConfig::getErrorMessage(), loading.text);
    EXPECT_EQ(DriverConfig::getPolApplicationDate(), 5u);
  }
}

}  // namespace
}  // namespace korvane
