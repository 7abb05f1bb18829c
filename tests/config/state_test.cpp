#include <openssl/evp.h>

#include "config/fips.h"
#include "config/log_names.h"
#include "config/service_type.h"
#include "tests/config/config_fixture.h"

namespace korvane {
namespace {

using StateTest = ConfigFixture;

constexpr char kDriver[] = "SYSTEM\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";

TEST_F(StateTest, ServiceTypes) {
  struct Case {
    int number;
    int kept;
    bool standard, cloud, type3;
  } const cases[] = {{0, 0, false, false, false}, {1, 1, true, false, false},
                     {2, 2, false, true, false},  {3, 3, false, true, true},
                     {4, 0, false, false, false}, {-1, 0, false, false, false}};
  for (const Case& c : cases) {
    fake.registry.put(kAgentRegistryKey, "AgentType", STRING::fromInt(c.number));
    beginRun();
    EXPECT_EQ(readServiceType(), c.kept);
    setServiceType(2);
    EXPECT_EQ(serviceType(), c.kept == 0 ? 2 : c.kept) << "the first one kept is never replaced";
    beginRun();
    setServiceType(c.number);
    EXPECT_EQ(isStandardAgent(), c.standard) << c.number;
    EXPECT_EQ(isCloudAgent(), c.cloud) << c.number;
    EXPECT_EQ(isType3Agent(), c.type3) << c.number;
  }
  beginRun();
  fake.registry.put(kAgentRegistryKey, "AgentType", uint32_t{3});
  EXPECT_EQ(readServiceType(), 3) << "a dword as well as a text";
}

TEST_F(StateTest, InstallRoots) {
  setInstallRoot("");
  EXPECT_EQ(installDirectory(), "");
  fake.registry.put(kAgentRegistryKey, "InstallRoot", STRING("/from/registry"));
  EXPECT_EQ(installDirectory(), "/from/registry/IPS");
  setInstallRoot("");
  fake.systemInfo.variables["KORVANE_INSTALL_ROOT"] = "/from/host";
  EXPECT_EQ(idsDirectory(), "/from/host/IDS");
  EXPECT_EQ(resolveIdsLogName("../logs/a.csv"), "/from/host/IDS/bin/../logs/a.csv");
  EXPECT_EQ(resolveIdsLogName("/var/a.csv"), "/var/a.csv");
  EXPECT_EQ(resolveIdsLogName("a.csv"), "a.csv");
  EXPECT_EQ(AgentConfig::getLogPointerFileName(HIDS_RT_LOG),
            STRING("/from/host/IPS/hidslog1rtfilepointer"));
  EXPECT_EQ(AgentConfig::getLogPointerFileName(static_cast<LogType>(3)), STRING());
}

TEST_F(StateTest, RebootState) {
  EXPECT_TRUE(config().isSystemRebootDone()) << "no value, no reboot outstanding";
  config().updateRebootRequiredFlag();
  EXPECT_TRUE(config().isIPSRebootDone());
  config().setRebootRequested(true);
  config().setRebootSource("tool");
  config().setFIMRebootRequired(true);
  config().updateRebootRequiredFlag();
  EXPECT_TRUE(config().isRebootRequested())
      << "a request stands until a reboot was outstanding and done";
  fake.registry.put(kDriver, "RebootRequired", uint32_t{1});
  EXPECT_FALSE(config().isSystemRebootDone());
  config().updateRebootRequiredFlag();
  EXPECT_FALSE(config().isIPSRebootDone());
  EXPECT_FALSE(restart().isFIMRebootDone());
  fake.registry.put(kDriver, "RebootRequired", uint32_t{0});
  const int before = writes();
  config().updateRebootRequiredFlag();
  EXPECT_TRUE(config().isIPSRebootDone() && config().isFIMRebootDone());
  EXPECT_FALSE(config().isRebootRequested());
  EXPECT_TRUE(config().getRebootSource().empty());
  EXPECT_EQ(writes(), before + 1);
  for (const auto& [text, done] :
       {std::pair{"true", false}, {"1", false}, {"0", true}, {"false", true}}) {
    fake.registry.put(kDriver, "RebootRequired", STRING(text));
    EXPECT_EQ(config().isSystemRebootDone(), done) << text;
  }
}

TEST_F(StateTest, IdentityIsClearedOnlyWhileItIsTheOneUsed) {
  config().setUniqueId("new");
  EXPECT_FALSE(config().clearUniqueId("old"));
  EXPECT_TRUE(config().registered());
  EXPECT_TRUE(config().clearUniqueId("new"));
  EXPECT_FALSE(restart().registered());
}

TEST_F(StateTest, MarksOfThePolicy) {
  EXPECT_FALSE(config().hasPolicyStateChanged());
  config().setPolicyState(-100, "builtin");
  EXPECT_TRUE(config().hasPolicyStateChanged() && config().hasRealPolicyStateChanged());
  config().setPolicyStateChanged(false);
  config().setPolicyState(-100, "builtin");
  EXPECT_TRUE(config().hasPolicyStateChanged());
  EXPECT_FALSE(config().hasRealPolicyStateChanged());

  config().setPolicyError(66, "bad");
  EXPECT_TRUE(config().hasPolicyErrorChanged());
  config().setPolicyErrorChanged(false);
  config().setPolicyError(65, "other");
  config().setPolicyError(66, "bad");
  EXPECT_FALSE(config().hasPolicyErrorChanged()) << "back at what was reported";
  config().setPolicyErrorChanged(true);
  EXPECT_TRUE(config().hasPolicyErrorChanged());
  EXPECT_FALSE(restart().hasPolicyErrorChanged()) << "what the file holds was reported";
  EXPECT_EQ(config().getPolicyErrorStr(), STRING("bad"));
  config().setPolicyError(11264, "IPS Enabled.\n");
  EXPECT_EQ(config().getPolicyErrorStr(), STRING("IPS Enabled. "));
  config().setPolicyErrorChanged(false);
  EXPECT_FALSE(config().hasPolicyErrorChanged());
  EXPECT_EQ(restart().getPolicyErrorStr(), STRING("IPS Enabled."));

  EXPECT_FALSE(config().useBuiltInPolicyChanged());
  config().setUseBuiltInPolicy(true);
  EXPECT_TRUE(config().useBuiltInPolicyChanged());
  config().updatedDriverForBuiltIn();
  EXPECT_FALSE(config().useBuiltInPolicyChanged());
}

// Debian ships no FIPS provider: the switch must fail and leave the library as it was.
TEST_F(StateTest, FipsSwitchNeedsAWorkingProvider) {
  const auto fetch = [](const char* properties) {
    EVP_MD* digest = EVP_MD_fetch(nullptr, "SHA2-256", properties);
    EVP_MD_free(digest);
    return digest != nullptr;
  };
  config().setFipsEnabled(true);
  EXPECT_TRUE(config().isFipsEnabled()) << "the request is stored in any case";
  EXPECT_EQ(fipsModeOn(), fetch("fips=yes"));
  EXPECT_TRUE(fetch(nullptr));
  STRING error;
  if (!switchFipsMode(true, fake.files, fake.platform().sharedLibraries, error)) {
    EXPECT_NE(error.find("error:"), STRING::npos) << error.toUtf8();
  }
  config().setFipsEnabled(false);
  EXPECT_FALSE(fipsModeOn());
  EXPECT_TRUE(fetch(nullptr));
}

TEST_F(StateTest, SubscribersHearOfAnotherProgramsChange) {
  std::vector<int> moments;
  config().registerSubscriber(AgentConfig::SETTINGS_RELOADED, [&](void*) { moments.push_back(1); });
  config().registerSubscriber(AgentConfig::SETTINGS_CHANGED, [&](void*) { moments.push_back(3); });
  config().setAgentName("own");
  EXPECT_EQ(moments, (std::vector<int>{3}));
  put(kAgentIni, withChecksum("agent.name=theirs\n"));
  config().loadIniFile();
  config().loadIniFile();
  EXPECT_EQ(moments, (std::vector<int>{3, 1, 3}));
}

TEST_F(StateTest, TheLogChainIsBrokenByAPointerToAMissingLog) {
  std::string pointer(4365, '\0');
  const std::string name = "/logs/a";
  for (size_t i = 0; i < name.size(); ++i) pointer[1 + 2 * i] = name[i];
  EXPECT_TRUE(walkLogChain(fake.files));
  fake.files.put("/opt/agent/IPS/hidslog1rtfilepointer", pointer);
  EXPECT_FALSE(walkLogChain(fake.files));
  fake.files.put("/logs/a", "");
  EXPECT_TRUE(walkLogChain(fake.files));
  fake.files.remove("/logs/a");
  fake.files.put("/opt/agent/IPS/hidslog1rtfilepointer", pointer.substr(0, 100));
  EXPECT_TRUE(walkLogChain(fake.files)) << "a damaged pointer names no log";
}

}  // namespace
}  // namespace korvane
