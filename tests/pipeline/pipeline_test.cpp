// The policy pipeline as it runs: source policies through the translator program into this
// system's stand-in driver, and IDS policies to the stand-in for the IDS component. Only
// the server is scripted.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/policy_settings.h"
#include "config/service_type.h"
#include "driver/driver_config.h"
#include "ids/hids_component.h"
#include "platform/fake/fake_platform.h"
#include "tests/support/logged_events.h"
#include "tests/support/scripted_server.h"
#include "translate-stand-in/source_archive.h"
#include "translator/translator.h"
#include "update/policy/policy_processor.h"

// DriverWorld, the driver of this system.
#include KORVANE_DRIVER_WORLD

namespace korvane {
namespace {

namespace fs = std::filesystem;
using tests::fsPath;

constexpr uint32_t kLongMs = 60000;

class PipelineTest : public testing::Test {
 protected:
  PipelineTest() { policy.InitializePloicyHistory(); }

  PolicyParts prepare() {
    for (const char* folder : {"root/IPS/bin", "root/IPS/driver", "root/IDS/bin"})
      fs::create_directories(fsPath(at(folder)));
    fs::copy(KORVANE_TRANSLATE, fsPath(at("root/IPS/bin")));
    std::ofstream(fsPath(at("root/IPS/agent.ini")))
        << "[Agent]\nagent.http.url=https://127.0.0.1:8443/korvane/agent/\nagent.id=guid-7\n";
    setInstallRoot(at("root"));
    setServiceType(1);
    return policyPartsOfRun();
  }

  std::string at(const std::string& name) const { return world.at(name); }
  AgentConfig& config() { return *AgentConfig::getInstance(); }

  static std::string source(const std::string& version, const std::string& rules) {
    return translate_stand_in::packPolicy("korvane-policy 1\nname Web\nversion " + version +
                                          "\nid id-" + version + "\n" + rules);
  }
  bool install(const std::string& version, const std::string& rules = "rule deny file web /a\n") {
    last = policy.installPolicy(source(version, rules),
                                {{"policy.name", "Web"}, {"policy.path", "db/web"}});
    return bool(last);
  }
  std::string applied() {
    STRING name, version, id;
    if (!DriverConfig::queryPolicy(name, version, id)) return "unknown";
    return (name + STRING("/") + version + STRING("/") + id).toUtf8();
  }
  // The files of the policy folder, the changing part of their names left out.
  std::vector<std::string> policyFiles() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(fsPath(at("root/IPS/driver")))) {
      const std::string name = entry.path().filename().string();
      names.push_back(name.substr(name.find('.')));
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  // What the server was told last: code and text.
  std::string told() {
    const auto reports = server.requests("result");
    if (reports.empty()) return "nothing";
    const auto value = [&](const std::string& key) {
      const std::string& body = reports.back().body;
      const size_t at = body.find(key + "=") + key.size() + 1;
      return body.substr(at, body.find('\n', at) - at);
    };
    return value("result.errorcode") + " " + value("result.errormessage");
  }
  bool driverState(const std::string& part) {
    return world.command("state").find(part) != std::string::npos;
  }
  // Driver, settings and files all hold this version's policy. Besides, only refused plus
  // files lie about.
  void expectInForce(const std::string& version, size_t refused = 0) {
    EXPECT_EQ(applied(), "Web/" + version + "/id-" + version);
    EXPECT_EQ(config().getPlusVersion().toUtf8(), "Web " + version);
    EXPECT_EQ(config().getPlusID().toUtf8(), "id-" + version);
    EXPECT_FALSE(config().useBuiltInPolicy());
    const std::string plus = config().getPlusPolicyFile().toUtf8();
    EXPECT_EQ(DriverConfig::getMinusFile(),
              PolicyProcessor::getPolicyBase(STRING(plus)) + STRING(".conf"));
    std::vector<std::string> names = {"..conf", "..trans", ".sbp.zip"};
    names.insert(names.end(), refused, ".sbp.zip");
    EXPECT_EQ(policyFiles(), names);
    EXPECT_TRUE(fs::exists(fsPath(plus)));
  }

  tests::DriverWorld world;
  platform::CurrentPlatform current{world.system};
  LoggedEvents events{world.system.files, at("log")};
  tests::ScriptedServer server;
  PolicyProcessor policy{prepare()};
  PolicyOutcome last;
};

TEST_F(PipelineTest, APolicyReachesTheDriverAndTheNextOneTakesItsPlace) {
  EXPECT_EQ(applied(), "Built-in/1/builtin");
  ASSERT_TRUE(install("1")) << last.text.toUtf8() << events.text();
  expectInForce("1");
  ASSERT_TRUE(install("2")) << last.text.toUtf8() << events.text();
  expectInForce("2");
  EXPECT_EQ(told(), "0 No Error");
}

TEST_F(PipelineTest, WhateverGoesWrongThePolicyBeforeStaysWholeAndTheReasonIsTold) {
  ASSERT_TRUE(install("1")) << last.text.toUtf8() << events.text();
  const std::pair<const char*, const char*> cases[] = {
      {"rule refuse Not on Sunday\n", "Not on Sunday"},
      {"stand-in fail 7 The base is unknown\n", "The base is unknown"},
      {"stand-in fail-empty 7\n", "Error during translation. No error returned by translator."},
      {"stand-in fail-silent 7\n", "Unknown error"},
      {"stand-in fail 100 whatever\n", "Translator failed to execute."},
      {"rule burn file a b\n", "The policy is malformed in line 5: unknown action"},
      {"stand-in crash\n", ""},
      {"stand-in no-output\n", ""},
  };
  size_t refused = 0;
  for (const auto& [rules, text] : cases) {
    EXPECT_FALSE(install("2", rules)) << rules;
    if (*text) {
      EXPECT_EQ(last.text.toUtf8(), text);
      EXPECT_EQ(config().getPolicyErrorStr().toUtf8(), text);
    }
    EXPECT_FALSE(last.text.empty()) << rules;
    EXPECT_EQ(config().getPolicyErrorCode(), kPolicyFailure) << rules;
    EXPECT_EQ(told(), "66 " + last.text.toUtf8());
    expectInForce("1", ++refused);
  }
  const fs::path programs = fsPath(at("root/IPS/bin"));
  fs::rename(programs, fsPath(at("elsewhere")));
  EXPECT_FALSE(install("2"));
  EXPECT_EQ(last.text, STRING("Translator failed to execute."));
  expectInForce("1", refused + 1);
  fs::rename(fsPath(at("elsewhere")), programs);
  ASSERT_TRUE(install("2")) << last.text.toUtf8();
  expectInForce("2");
}

TEST_F(PipelineTest, ARetranslationReachesTheDriverOnlyWhenTheMachineHasChanged) {
  const fs::path extensions = fs::path(KORVANE_TRANSLATOR).parent_path();
  ASSERT_TRUE(Translator::initialize(extensions.string()));
  const std::string watched = at("watched \xc3\xa4");
  ASSERT_TRUE(install("1", "rule deny file web /a\nwhen \"" + watched + "\" rule deny file w /b\n"))
      << last.text.toUtf8() << events.text();
  EXPECT_FALSE(policy.checkRetrans());
  config().setRetranslateNow(true);
  last = policy.retranslatePolicy();
  EXPECT_FALSE(last) << "the same policy comes out";
  EXPECT_FALSE(config().getRetranslateNow());
  EXPECT_TRUE(last.text.empty());
  EXPECT_TRUE(driverState("\"loaded\":1")) << world.command("state");
  expectInForce("1");

  std::ofstream(fsPath(watched)) << "x";
  EXPECT_TRUE(policy.checkRetrans());
  EXPECT_TRUE(config().getRetranslateNow());
  EXPECT_TRUE(last = policy.retranslatePolicy()) << last.text.toUtf8() << events.text();
  EXPECT_FALSE(policy.checkRetrans());
  EXPECT_TRUE(driverState("\"loaded\":2")) << world.command("state");
  expectInForce("1");
}

TEST_F(PipelineTest, AStopEndsATranslatorThatNeverEnds) {
  ASSERT_TRUE(install("1")) << last.text.toUtf8() << events.text();
  std::thread stopper([&] {
    while (!world.system.processes.isRunning("translate.exe"))
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    shutdownToken().request();
  });
  EXPECT_FALSE(install("2", "stand-in hang\n"));
  stopper.join();
  EXPECT_TRUE(last.stopped());
  shutdownToken().reset();
  EXPECT_TRUE(PolicyProcessor(policyPartsOfRun()).reconcile());
  expectInForce("1");
}

TEST_F(PipelineTest, AnIdsPolicyReachesTheComponentAndItsAnswerComesBack) {
  const struct {
    const char* rules;
    const char* code;
    const char* message;
  } cases[] = {{"rule log file a b\n", "0", "Policy Web 1 is in force."},
               {"stand-in ids-answer refuse 12 No base\n", "12", "No base"},
               {"stand-in ids-answer no-code\n", "", "Policy Web 1 is in force."}};
  std::unique_ptr<platform::Process> component;
  ASSERT_EQ(world.system.processes.start(
                KORVANE_IDS_WRITER, "--serve --requests 3 --install-root \"" + at("root") + "\"",
                component),
            0u);
  HidsComponent ids({world.system.files, world.system.clock, shutdownToken()}, at("root/IDS"),
                    [] { return 60; });
  for (const auto& each : cases) {
    const std::string packed = source("1", each.rules);
    const STRING plus = policy.savePolicyToFile(packed.data(), packed.size());
    STRING result;
    ASSERT_TRUE(last = policy.translateHIDSPolicy(plus, result)) << last.text.toUtf8();
    ASSERT_TRUE(ids.applyPolicy(result));
    PropertyList answer;
    ASSERT_TRUE(ids.readResults(answer));
    EXPECT_EQ(propertyValue(answer, "IDS.Policy.ResultCode").toUtf8(), each.code);
    EXPECT_EQ(propertyValue(answer, "IDS.Policy.ResultMessage").toUtf8(), each.message);
  }
  EXPECT_EQ(component->wait(kLongMs), platform::ProcessWait::ended);
  const std::string failing = source("1", "stand-in fail 5 No such rule\n");
  STRING result;
  const STRING plus = policy.savePolicyToFile(failing.data(), failing.size());
  EXPECT_EQ(policy.translateHIDSPolicy(plus, result).text, STRING("No such rule"));
}

}  // namespace
}  // namespace korvane
