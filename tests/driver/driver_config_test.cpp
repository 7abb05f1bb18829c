#include "driver/driver_config.h"

#include <limits>

#include "tests/driver/driver_fixture.h"

namespace korvane {
namespace {

using platform::DeviceScript;

constexpr char kDriver[] = "SYSTEM\\CurrentControlSet\\Services\\KAVIPSDriver";
constexpr char kNet[] = "SYSTEM\\CurrentControlSet\\Services\\KAVIPSNetFilter";
constexpr char kTcp[] = "SYSTEM\\CurrentControlSet\\Services\\AKAVIPSTcpFilter";

class DriverConfigTest : public DriverFixture {
 protected:
  uint32_t start(const char* service) {
    uint32_t value = 99;
    fake.registry.readDword(service, "Start", value);
    return value;
  }
};

TEST_F(DriverConfigTest, ServicesGetTheStartValuesOfTheSystemsVersion) {
  for (const char* service : {kDriver, kNet, kTcp}) fake.registry.put(service, "Start", 7u);
  EXPECT_EQ(DriverConfig::StartDriver(), 0);
  EXPECT_EQ(start(kDriver), 1u);
  EXPECT_EQ(start(kNet), 2u);
  EXPECT_EQ(start(kTcp), 7u);
  EXPECT_EQ(DriverConfig::StopDriver(), 0);
  EXPECT_EQ(start(kDriver), 3u);
  EXPECT_EQ(start(kNet), 3u);

  fake.systemInfo.networkFilter = false;
  EXPECT_EQ(DriverConfig::StartDriver(), 0);
  EXPECT_EQ(start(kTcp), 1u);
  EXPECT_EQ(start(kNet), 3u);
  EXPECT_EQ(DriverConfig::StopDriver(), 0);
  EXPECT_EQ(start(kTcp), 3u);
}

TEST_F(DriverConfigTest, AMissingFilterServiceIsPassedOverARefusedOneIsNot) {
  fake.registry.put(kDriver, "Start", 7u);
  EXPECT_EQ(DriverConfig::StartDriver(), 0);
  fake.registry.put(kNet, "Start", 7u);
  fake.registry.refuseBelow(kNet, 5);
  EXPECT_EQ(DriverConfig::StartDriver(), 7);
  EXPECT_EQ(DriverConfig::getErrorMessage(),
            STRING("Failed to set Driver Configuration Registry Value "
                   "System\\CurrentControlSet\\Services\\KAVIPSNetFilter\\Start"));
  EXPECT_EQ(DriverConfig::setDWord(kTcp, "Start", 1), 2u);
  EXPECT_EQ(DriverConfig::setDWordIfKeyExists(kTcp, "Start", 1), 0u);
  EXPECT_EQ(DriverConfig::setDWordIfKeyExists(kNet, "Start", 1), 5u);
}

TEST_F(DriverConfigTest, ParametersHaveTheirNamesAndFailuresTellTheirPlace) {
  const std::pair<DriverConfig::RegKey, const char*> values[] = {
      {DriverConfig::RegKey(0), "Log File"},    {DriverConfig::RegKey(1), "Profile File"},
      {DriverConfig::RegKey(2), "Filter File"}, {DriverConfig::RegKey(3), "UseBuiltin"},
      {DriverConfig::RegKey(5), "Enable"},      {DriverConfig::RegKey(6), "PolicyEffectiveDt"}};
  for (const auto& [key, name] : values) {
    EXPECT_EQ(DriverConfig::updateDriverConfig(key, STRING(name) + STRING(" \xc3\xa4")), 0);
    EXPECT_EQ(parameter(name), std::string(name) + " \xc3\xa4");
    STRING read;
    EXPECT_EQ(DriverConfig::getDriverConfig(key, read), 0);
    EXPECT_EQ(read.toUtf8(), parameter(name));
  }
  EXPECT_EQ(DriverConfig::getDriverLog().toUtf8(), parameter("Log File"));
  EXPECT_EQ(DriverConfig::getProfileLog().toUtf8(), parameter("Profile File"));
  EXPECT_EQ(DriverConfig::getMinusFile().toUtf8(), parameter("Filter File"));

  STRING read;
  EXPECT_EQ(DriverConfig::getDriverConfig(DriverConfig::noValue, read), 7);
  EXPECT_EQ(DriverConfig::getErrorMessage(),
            STRING("Failed to get Driver Configuration Registry Value "
                   "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters\\"));
  EXPECT_EQ(DriverConfig::updateDriverConfig(DriverConfig::noValue, "x"), 7);
  fake.registry.refuseBelow(kParameters, 5);
  EXPECT_EQ(DriverConfig::updateDriverConfig(DriverConfig::enable, "1"), 7);
  EXPECT_EQ(DriverConfig::getErrorMessage(),
            STRING("Failed to set Driver Configuration Registry Value "
                   "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters\\Enable"));
}

TEST_F(DriverConfigTest, TheApplicationDateReadsBackUnchanged) {
  EXPECT_EQ(DriverConfig::getPolApplicationDate(), 0u);
  for (const uint64_t value :
       {uint64_t{0}, uint64_t{1767225600000}, std::numeric_limits<uint64_t>::max()}) {
    EXPECT_EQ(DriverConfig::setPolApplicationDate(value), 0);
    EXPECT_EQ(DriverConfig::getPolApplicationDate(), value);
  }
  for (const char* damaged : {"", "x1", "12x", "-1", "18446744073709551616"}) {
    fake.registry.put(kParameters, "PolicyEffectiveDt", STRING(damaged));
    EXPECT_EQ(DriverConfig::getPolApplicationDate(), 0u) << damaged;
  }
}

TEST_F(DriverConfigTest, ThePolicyRecordIsReadWithinItsFields) {
  // Name and version fill their fields, without a terminator; the flag's third byte alone is set.
  const std::u16string name(128, u'n');
  const std::u16string version(128, u'v');
  fake.devices.queue(0x80004018,
                     DeviceScript::pending(0, 0, policyRecord(true, name, version, u"\u00e4id")));
  STRING got[3];
  ASSERT_TRUE(DriverConfig::queryPolicy(got[0], got[1], got[2]));
  EXPECT_EQ(got[0].utf16(), name);
  EXPECT_EQ(got[1].utf16(), version);
  EXPECT_EQ(got[2].utf16(), u"\u00e4id");
  EXPECT_EQ(fake.devices.calls().back().outputSize, 1028u);

  fake.devices.queue(0x80004018, DeviceScript::atOnce(0, policyRecord(true)));
  EXPECT_TRUE(DriverConfig::usingBuiltIn());
  EXPECT_FALSE(DriverConfig::usingBuiltIn()) << "an answer without output is all zero";
  for (const uint32_t error : {31u, 234u}) {
    fake.devices.queue(0x80004018, DeviceScript::pending(0, error, policyRecord(true)));
    EXPECT_FALSE(DriverConfig::usingBuiltIn()) << error;
  }
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING("Failed to get info on Builtin Policy"));
  fake.devices.setOpenError(2);
  EXPECT_FALSE(DriverConfig::queryPolicy(got[0], got[1], got[2]));
  EXPECT_EQ(got[1].utf16(), version) << "a failure leaves the outputs alone";
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING("Failed to get info on applied Policy"));
}

TEST_F(DriverConfigTest, FallingBackIsRecordedWhateverTheDriverSays) {
  EXPECT_EQ(DriverConfig::useBuiltIn(), 0);
  EXPECT_EQ(parameter("UseBuiltin"), "1");
  fake.registry.put(kParameters, "UseBuiltin", STRING("0"));
  fake.devices.queue(0x80008014, DeviceScript::pending(0, 31));
  EXPECT_EQ(DriverConfig::useBuiltIn(), 4);
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING("Failed to tell Driver to use Builtin Policy"));
  EXPECT_EQ(parameter("UseBuiltin"), "1");
  fake.registry.refuseBelow(kParameters, 5);
  EXPECT_EQ(DriverConfig::useBuiltIn(), 7);
}

TEST_F(DriverConfigTest, ALogIsRolledOnlyOnceItsNameIsRecorded) {
  EXPECT_EQ(DriverConfig::rollDriverLog("/logs/new.csv"), 0);
  EXPECT_EQ(parameter("Log File"), "/logs/new.csv");
  fake.devices.queue(0x80008004, DeviceScript::waitEnds(platform::DeviceWait::timedOut));
  EXPECT_EQ(DriverConfig::rollProfileLog("/logs/profile.csv"), 5);
  EXPECT_EQ(parameter("Profile File"), "/logs/profile.csv");
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING("Failed to tell Driver to use new log file"));
  fake.registry.refuseBelow(kParameters, 5);
  EXPECT_EQ(DriverConfig::rollDriverLog("/logs/newer.csv"), 7);
  EXPECT_EQ(requests(0x80008008), 1);
}

}  // namespace
}  // namespace korvane
