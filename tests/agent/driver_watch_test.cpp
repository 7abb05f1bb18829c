#include <gtest/gtest.h>

#include "driver/driver_values.h"
#include "tests/agent/running_agent.h"

namespace korvane {
namespace {

TEST(DriverWatch, KeepsTheSettingsInStepWithTheDriverAndTellsOfRequests) {
  tests::SimulatedMachine machine({.settings = "agent.id=known\n"});
  const auto put = [&machine](const char* name, const char* value) {
    machine.fake.registry.put(kDriverParametersKey, name, STRING(value));
  };
  put(kLogFileValue, "/kav/driver.log");
  put(kProfileFileValue, "/kav/profile.log");
  put(kPolicyEffectiveDtValue, "1795341600123");
  AgentConfig& config = *AgentConfig::getInstance();
  tests::RunningAgent run(machine);
  machine.sim.runFor(10000);
  EXPECT_EQ(config.getDriverLogFile(), STRING("/kav/driver.log"));
  EXPECT_EQ(config.getDriverProfileLogFile(), STRING("/kav/profile.log"));
  EXPECT_EQ(config.getPolicyEffectiveDate(), 1795341600123);
  EXPECT_FALSE(config.isDriverLogRolloverPending()) << "the first log follows no other one";

  config.setRebootSource("the installer");
  config.setRebootRequested(true);
  machine.sim.runFor(5000);
  EXPECT_EQ(machine.countLines(",10743,"), 1U) << "once, not every second";
  EXPECT_EQ(machine.countLines("the installer,prevention"), 1U);
  EXPECT_EQ(machine.countLines(",10744,"), 0U);
  config.setRebootRequested(false);
  config.setFIMRebootRequested(true);
  config.setRebootSource("");
  machine.sim.runFor(5000);
  EXPECT_EQ(machine.countLines(",10744,"), 1U);
  EXPECT_EQ(machine.countLines("the configuration tool,file integrity monitoring"), 1U);

  put(kLogFileValue, "/kav/driver-2.log");
  put(kProfileFileValue, "");
  put(kPolicyEffectiveDtValue, "99999999999999999");
  machine.sim.runFor(61000);
  EXPECT_EQ(config.getDriverLogFile(), STRING("/kav/driver-2.log"));
  EXPECT_EQ(config.getDriverProfileLogFile(), STRING("/kav/profile.log"));
  EXPECT_TRUE(config.isDriverLogRolloverPending());
  EXPECT_EQ(config.getPolicyEffectiveDate(), 0) << "no date";
}

}  // namespace
}  // namespace korvane
