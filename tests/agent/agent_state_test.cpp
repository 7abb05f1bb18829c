// The status text for every state it is made of.
#include "agent/agent_state_handler.h"

#include <gmock/gmock.h>

#include "config/service_type.h"
#include "tests/config/config_fixture.h"
#include "tests/support/logged_events.h"

namespace korvane {
namespace {

class AgentState : public ConfigFixture {
 protected:
  AgentStateHandler handler() {
    return AgentStateHandler(settingsOf(*AgentConfig::getInstance()), fake.processes);
  }
};

TEST_F(AgentState, everyStateHasItsWord) {
  const struct {
    int type;
    bool ips, reboot, ids, localDiscovery, cloudDiscovery;
    const char* status;
  } cases[] = {
      {1, true, false, true, false, true, "IPS Online\nIDS Online\nAPP_DISCOVERY Offline\n"},
      {1, false, true, false, true, false, "IPS Offline\nIDS Offline\nAPP_DISCOVERY Online\n"},
      {2, true, true, true, true, false, "IPS Reboot\nIDS Online\nAPP_DISCOVERY Online\n"},
      {0, false, false, true, false, true, "IPS Offline\nIDS Online\nAPP_DISCOVERY Offline\n"},
      {3, true, false, false, false, true,
       "IPS Online\nIDS Offline\nAPP_DISCOVERY Online\nAGENT_FRAMEWORK Online\n"},
      {3, true, true, true, true, false,
       "IPS Reboot\nIDS Online\nAPP_DISCOVERY Offline\nAGENT_FRAMEWORK Offline\n"},
      {3, false, true, true, true, false,
       "IPS Offline\nIDS Online\nAPP_DISCOVERY Offline\nAGENT_FRAMEWORK Offline\n"},
  };
  for (const auto& c : cases) {
    beginRun();
    LoggedEvents log(fake.files);
    const size_t before = log.text().size();
    setServiceType(c.type);
    config().setIPSEnabled(c.ips);
    config().setIPSRebootRequired(c.reboot);
    config().setLocalAppDiscoveryOn(c.localDiscovery);
    config().setCloudAppDiscoveryOn(c.cloudDiscovery);
    fake.processes.setRunning("KAVIDSService.exe", c.ids);
    EXPECT_EQ(handler().getTechStatus(), c.status);
    const bool traced = log.text().find("status = reboot", before) != std::string::npos;
    EXPECT_EQ(traced, c.ips && c.reboot) << c.status;
  }
}

TEST_F(AgentState, namesAndVersion) {
  put("/opt/agent/IPS/kav-version.properties", "version=6.1\nbuild.number=77\n");
  EXPECT_EQ(handler().getTechNames(), "IDS IPS APP_DISCOVERY AGENT_FRAMEWORK");
  EXPECT_EQ(handler().getAgentVersion(), "6.1.77");
}

}  // namespace
}  // namespace korvane
