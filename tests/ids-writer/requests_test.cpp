// The stand-in's answers, seen through the agent's own interface to the component.
#include "ids-writer/requests.h"

#include <gtest/gtest.h>

#include "agent/thread/stop_token.h"
#include "ids-writer/settings_file.h"
#include "ids/hids_component.h"
#include "platform/fake/fake_platform.h"

namespace korvane::ids_writer {
namespace {

constexpr char kFolder[] = "/k/IDS";
constexpr char kPolicyFile[] = "/k/IPS/driver/policy1.ids";
constexpr char kPolicy[] = "korvane-ids-policy 1\nname N 1\nversion 2.0\nid i\n";

class RequestsTest : public testing::Test {
 protected:
  RequestsTest() {
    fake.files.makeDirectories(kFolder);
    fake.files.put(kPolicyFile, kPolicy);
  }

  // Lets the component answer with `requests` while the agent's call waits; the results, one text.
  std::string during(Requests& requests, const std::function<bool()>& call) {
    bool over = false;
    const auto thread = sim.createThread(0, [&] {
      while (!over) {
        answered += requests.answerPending();
        sim.runFor(100);
      }
    });
    const bool handed = call();
    over = true;
    sim.runFor(200);
    PropertyList results;
    if (!handed || !component.readResults(results)) return "none";
    std::string text;
    for (const Property& each : results)
      text += each.first.toUtf8() + "=" + each.second.toUtf8() + ";";
    return text;
  }
  std::string applyPolicy(Requests& requests, const char* file = kPolicyFile) {
    return during(requests, [&] { return component.applyPolicy(file); });
  }
  std::string settings() { return readSettings(fake.platform(), kFolder); }

  platform::SimThreading sim{3};
  platform::FakePlatform fake{sim};
  platform::CurrentPlatform current{fake.platform()};
  HidsComponent component{{fake.files, sim.clock(), shutdownToken()}, kFolder, [] { return 10; }};
  int answered = 0;
};

TEST_F(RequestsTest, WhatIsNoPolicyIsRefusedAndTheStandingAnswerHoldsWhereNothingIsAsked) {
  Requests requests(fake.platform(), kFolder, {});
  EXPECT_EQ(applyPolicy(requests, "/none"),
            "IDS.Policy.ResultCode=2;IDS.Policy.ResultMessage=Cannot read the policy /none: error "
            "2;");
  fake.files.put("/p", "korvane-policy 1\n");
  EXPECT_EQ(applyPolicy(requests, "/p"),
            "IDS.Policy.ResultCode=3;IDS.Policy.ResultMessage=/p is not an IDS policy.;");
  Requests refusing(fake.platform(), kFolder, *parseAnswer("refuse 5 Not today"));
  EXPECT_EQ(refusing.answerPending(), 0) << "the last request has its answer already";
  EXPECT_EQ(applyPolicy(refusing), "IDS.Policy.ResultCode=5;IDS.Policy.ResultMessage=Not today;");
  for (const char* none : {"", "applied", "refuse", "refuse x", "refuse 0 x", "refuse 1x"})
    EXPECT_FALSE(parseAnswer(none)) << none;
}

TEST_F(RequestsTest, SettingsAreMergedAndRulesReplaced) {
  Requests requests(fake.platform(), kFolder, {});
  changeSettings(fake.platform(), kFolder, [](const std::string&) {
    return "# kept\nids.a=1\nids.service.rteventfile.name=../logs/x.csv\nLog.old=1\n";
  });
  const PropertyList sent = {{"ids.b", "2=3"},
                             {"ids.a", ""},
                             {"ids.service.rteventfile.name", "/evil"},
                             {"ids.policy.name", "evil"}};
  const auto apply = [&](const PropertyList& rules) {
    return during(requests, [&] { return component.applyConfiguration(sent, rules); });
  };
  EXPECT_EQ(apply({{"Log.new", "x"}}), "IDS.Config.ResultCode=0;IDS.Config.ResultMessage=;");
  const std::string kept = "# kept\nids.service.rteventfile.name=../logs/x.csv\n";
  EXPECT_EQ(settings(), kept + "ids.b=2=3\nids.a=\nLog.new=x\n");
  EXPECT_EQ(component.logRules(), (PropertyList{{"Log.new", "x"}}));
  apply({});
  EXPECT_EQ(settings(), kept + "Log.new=x\nids.b=2=3\nids.a=\n") << "no rules: the old ones stay";
  const auto refused = during(requests, [&] {
    return component.applyConfiguration({{"ids.c", "1"}, {"ids.stand-in.answer", "refuse 9 No"}},
                                        {});
  });
  EXPECT_EQ(refused, "IDS.Config.ResultCode=9;IDS.Config.ResultMessage=No;");
  EXPECT_EQ(settings().find("ids.c"), std::string::npos);
}

}  // namespace
}  // namespace korvane::ids_writer
