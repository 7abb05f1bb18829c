#include <gtest/gtest.h>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/log_settings.h"
#include "config/properties_file.h"
#include "config/settings.h"
#include "ids/hids_component.h"
#include "ids/ids_log_names.h"
#include "platform/fake/fake_platform.h"

namespace korvane {
namespace {

constexpr char kSettings[] = "/opt/agent/IDS/ids.properties";

class IdsTest : public testing::Test {
 protected:
  IdsTest() {
    setInstallRoot("/opt/agent");
    fake.files.makeDirectories("/opt/agent/IDS");
  }

  // The component's side: answers the next request of a kind after a while.
  std::unique_ptr<platform::NativeThread> answer(const std::string& kind, const std::string& lines,
                                                 int64_t afterMs) {
    return sim.createThread(0, [this, kind, lines, afterMs] {
      sim.runFor(afterMs);
      const PropertyList request = parseProperties(fake.files.content(path(kind, ".request")));
      const std::string id = propertyValue(request, "request.id").toUtf8();
      fake.files.put(path(kind, ".result"), "request.id=" + id + "\n" + lines);
    });
  }
  static std::string path(const std::string& kind, const char* end) {
    return "/opt/agent/IDS/" + kind + end;
  }
  std::string result(const char* name) {
    PropertyList results;
    return component.readResults(results) ? propertyValue(results, name).toUtf8() : "none";
  }

  platform::SimThreading sim{3};
  platform::FakePlatform fake{sim};
  platform::CurrentPlatform current{fake.platform()};
  HidsComponent component{
      {fake.files, sim.clock(), shutdownToken()}, "/opt/agent/IDS", [] { return 10; }};
};

TEST_F(IdsTest, SettingsAndRules) {
  STRING value;
  EXPECT_FALSE(component.present());
  EXPECT_FALSE(component.reload());
  EXPECT_FALSE(component.setting("a", value));
  fake.files.put(kSettings, "# settings\r\na = 1\nLog.x=keep=this\n\n#b=2\nc=\n");
  EXPECT_TRUE(component.present());
  EXPECT_EQ(component.settings(), (PropertyList{{"a", "1"}, {"c", ""}}));
  EXPECT_EQ(component.logRules(), (PropertyList{{"Log.x", "keep=this"}}));
  fake.files.put(kSettings, "a=2\n");
  EXPECT_TRUE(component.setting("a", value));
  EXPECT_EQ(value, STRING("1")) << "until they are read again";
  EXPECT_TRUE(component.reload());
  EXPECT_EQ(component.settings(), (PropertyList{{"a", "2"}}));
  fake.files.remove(kSettings);
  EXPECT_FALSE(component.reload());
  EXPECT_EQ(component.settings(), (PropertyList{{"a", "2"}})) << "the old ones stay";
}

TEST_F(IdsTest, HandsOverAndReadsTheAnswer) {
  EXPECT_EQ(result("IDS.Policy.ResultCode"), "none");
  auto policy =
      answer("policy", "IDS.Policy.ResultCode=7\nIDS.Policy.ResultMessage=half of it\n", 3000);
  EXPECT_TRUE(component.applyPolicy("/srv/a policy.zip"));
  EXPECT_EQ(result("IDS.Policy.ResultCode"), "7");
  EXPECT_EQ(result("IDS.Policy.ResultMessage"), "half of it");
  EXPECT_EQ(result("request.id"), "");
  const PropertyList request = parseProperties(fake.files.content(path("policy", ".request")));
  EXPECT_EQ(propertyValue(request, "policy.file"), STRING("/srv/a policy.zip"));

  auto settings = answer("config", "IDS.Config.ResultCode=0\n", 500);
  EXPECT_TRUE(component.applyConfiguration({{"ids.a", "1\nids.evil=1"}}, {{"Log.r", "x"}}));
  EXPECT_EQ(result("IDS.Config.ResultCode"), "0");
  EXPECT_EQ(result("IDS.Policy.ResultCode"), "") << "only the last answer counts";
  EXPECT_TRUE(
      fake.files.content(path("config", ".request")).ends_with("\nids.a=1 ids.evil=1\nLog.r=x\n"));
}

TEST_F(IdsTest, AStaleOrMissingAnswerIsAFailureAndAStopEndsTheWait) {
  fake.files.put(path("policy", ".result"), "request.id=old\nIDS.Policy.ResultCode=0\n");
  const int64_t start = sim.clock().monotonicMs();
  EXPECT_TRUE(component.applyPolicy("/p"));
  EXPECT_EQ(result("IDS.Policy.ResultCode"), "1001");
  EXPECT_EQ(sim.clock().monotonicMs() - start, 10000);
  const auto stopper = sim.createThread(0, [this] {
    sim.runFor(1100);
    shutdownToken().request();
  });
  EXPECT_TRUE(component.applyPolicy("/p"));
  EXPECT_EQ(result("IDS.Policy.ResultCode"), "1002");
  EXPECT_EQ(sim.clock().monotonicMs() - start, 11100);
  fake.files.remove("/opt/agent/IDS/policy.request");
  HidsComponent nowhere({fake.files, sim.clock(), shutdownToken()}, "/no/such/folder",
                        [] { return 0; });
  EXPECT_FALSE(nowhere.applyPolicy("/p"));
  PropertyList results;
  EXPECT_FALSE(nowhere.readResults(results));
}

TEST_F(IdsTest, LogNamesAreTakenOneByOne) {
  fake.files.put(kSettings, "ids.service.eventfile.name=../logs/e.csv\n");
  LogSettings& logs = settingsOf(*AgentConfig::getInstance()).logs;
  EXPECT_TRUE(fetchIdsLogFiles(component, logs));
  EXPECT_EQ(logs.getCurrentLogFile(HIDS_LOG), STRING("/opt/agent/IDS/bin/../logs/e.csv"));
  EXPECT_FALSE(fetchIdsLogFile(component, logs, HIDS_RT_LOG));
  EXPECT_FALSE(fetchIdsLogFile(component, logs, AGENT_LOG));
  EXPECT_TRUE(logs.getCurrentLogFile(HIDS_RT_LOG).empty());

  fake.files.put(kSettings, "ids.service.rteventfile.name=/var/rt.csv\n");
  EXPECT_FALSE(fetchIdsLogFiles(component, logs)) << "no event file is named any more";
  EXPECT_EQ(logs.getCurrentLogFile(HIDS_RT_LOG), STRING("/var/rt.csv"));
}

}  // namespace
}  // namespace korvane
