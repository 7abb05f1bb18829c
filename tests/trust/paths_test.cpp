// Every way in which a policy, content or software arrives: with trusted signers nothing of what
// does not prove itself is kept, and what was accepted works on without the signers.
#include <gmock/gmock.h>

#include <openssl/evp.h>

#include "cloud/application_policies.h"
#include "comm/https_handler.h"
#include "tests/cloud/cloud_world.h"
#include "tests/trust/trust_samples.h"
#include "tests/update/cycles.h"
#include "tests/update/parts_of_run.h"
#include "tests/update/policy_world.h"

namespace korvane {
namespace {

using testing::HasSubstr;
using tests::packages;
using tests::sample;

constexpr char kSigning[] = "[System]\nupdate.signing.keys=/opt/korvane/IPS/signers.pem\n";

struct SignedCycles : tests::NotifiedCycles {
  explicit SignedCycles(const std::string& settings) : NotifiedCycles(settings) {
    machine.fake.files.put(tests::kSigners, sample("trusted.pem"));
    ids.results = {{"IDS.Policy.ResultCode", "0"}, {"IDS.Policy.ResultMessage", "No Error"}};
  }
  // The code of the last result that the package led to.
  std::string receive(const std::string& properties, const std::string& part,
                      const std::string& bytes, char byte) {
    const size_t before = machine.server.requests("result").size();
    machine.server.queue("update", packages(properties, {{part, bytes}}));
    notify(byte);
    const auto requests = machine.server.requests("result");
    std::string code = "none";
    for (size_t i = before; i < requests.size(); ++i) {
      const size_t at = requests[i].body.find("result.errorcode=");
      if (at != std::string::npos)
        code = requests[i].body.substr(at + 17, requests[i].body.find('\n', at) - at - 17);
    }
    return code;
  }
  std::vector<std::string> kept() {
    std::vector<std::string> found;
    for (const std::string& path : machine.fake.files.paths())
      for (const char* folder : {"/driver/policy", "/update/", "/content/"})
        if (path.find(folder) != std::string::npos && !path.ends_with(".properties") &&
            !path.ends_with("history.csv"))
          found.push_back(path);
    return found;
  }
  tests::PolicyWorld world{machine};
  tests::TestIds ids;
};

TEST(SignedPaths, NothingIsKeptOfWhatDoesNotProveItself) {
  const struct {
    const char *properties, *part, *good;
    char byte;
  } ways[] = {
      {"update.policy=true\npolicy.name=Base\npolicy.path=/base\n", "policy", "version-2.signed",
       2},
      {"update.policy.ids=true\npolicy.name.ids=W\npolicy.path.ids=/w\n", "policy",
       "ids-policy-Base.signed", 8},
      {"update.software=true\nsoftware.name=agent-2\nsoftware.version=2.0\nmod.time=5\n", "policy",
       "software-agent.signed", 4},
  };
  for (const auto& way : ways) {
    SignedCycles signedOnly(kSigning);
    const std::vector<std::string> before = signedOnly.kept();
    EXPECT_EQ(signedOnly.receive(way.properties, way.part, sample("plain.zip"), way.byte), "1101")
        << way.properties;
    EXPECT_EQ(signedOnly.receive(way.properties, way.part, sample("content-qel.signed"), way.byte),
              "1107");
    EXPECT_EQ(signedOnly.kept(), before) << way.properties;
    EXPECT_EQ(signedOnly.world.translations, 0U);
    EXPECT_EQ(signedOnly.machine.countLines(",10597,"), 2U);
    EXPECT_EQ(signedOnly.receive(way.properties, way.part, sample(way.good), way.byte), "0")
        << way.properties;
    EXPECT_GT(signedOnly.kept().size(), before.size()) << way.properties;
  }
}

TEST(SignedPaths, ContentIsOfItsKindAlone) {
  SignedCycles cycles(kSigning);
  cycles.config().newConfiguration(
      {{"update.signing.keys", ""}, {"update.signing.minimum", "0"}, {"polling.interval", "77"}});
  EXPECT_EQ(cycles.config().getValue("update.signing.keys"), STRING(tests::kSigners))
      << "no server changes whom the agent trusts";
  EXPECT_EQ(cycles.config().getPollingInterval(), 77U);
  constexpr char kFolder[] = "/opt/korvane/IPS/content/qel";
  const auto receive = [&](const std::string& bytes) {
    return tests::receiveContent(HttpsHandler::VEXQEL_UPDATE, bytes, kFolder);
  };
  EXPECT_EQ(receive(sample("plain.zip")), 1101);
  EXPECT_EQ(receive(sample("version-2.signed")), 1107);
  EXPECT_FALSE(cycles.config().getUpdateQELNow());
  EXPECT_TRUE(cycles.kept().empty());
  EXPECT_EQ(receive(sample("content-qel.signed")), 0);
  EXPECT_TRUE(cycles.config().getUpdateQELNow());
  EXPECT_EQ(cycles.machine.fake.files.content(std::string(kFolder) + "/data.zip"),
            sample("plain.zip"));
}

std::string base64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, 0);
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                  reinterpret_cast<const unsigned char*>(bytes.data()), int(bytes.size()));
  text.pop_back();
  return text;
}

TEST(SignedPaths, TheCloudConnectorIsNoWayAround) {
  tests::CloudWorld world;
  const auto policy = [&world](const std::string& package) {
    return world.codeOf(
        "policy", R"({"name":"Base","path":"/base","bytes":")" + base64(sample(package)) + "\"}");
  };
  const auto application = [&world](const std::string& name, const std::string& package) {
    return world.codeOf("applicationPolicy.set",
                        R"({"name":")" + name + R"(","bytes":")" + base64(sample(package)) + "\"}");
  };
  world.machine.fake.files.put(tests::kSigners, sample("trusted.pem"));
  ASSERT_TRUE(world.config.setValue("update.signing.keys", tests::kSigners));
  EXPECT_EQ(policy("plain.zip"), -32031);
  EXPECT_EQ(policy("flipped-content.signed"), -32042);
  EXPECT_EQ(world.translations, 0U);
  ASSERT_EQ(policy("version-2.signed"), 0);
  EXPECT_EQ(application("web", "plain.zip"), -32031);
  EXPECT_EQ(application("other", "application-policy-web.signed"), -32037);
  EXPECT_EQ(application("web", "version-2.signed"), -32037);
  ASSERT_EQ(application("web", "application-policy-web.signed"), 0);
  EXPECT_THAT(world.driverPolicy, HasSubstr("/srv/web/*"));

  for (const char* setting : {"update.signing.keys\":\"", "update.signing.minimum\":\"1"}) {
    std::string detail;
    const std::string settings = "{\"settings\":{\"" + std::string(setting) + "\"}}";
    EXPECT_EQ(world.codeOf("configuration", settings, &detail), kRpcInvalidParams) << setting;
    EXPECT_THAT(detail, HasSubstr("is local"));
  }

  // Years later, without the signers: what was accepted stays, at a start and when translated anew.
  world.stop();
  world.machine.fake.files.remove(tests::kSigners);
  world.machine.sim.setWall(world.machine.sim.clock().wallMs() + 10 * 365 * int64_t{86400000});
  world.start();
  loadApplicationPolicies(policyPartsOfRun());
  EXPECT_EQ(world.codeOf("applicationPolicy.remove", R"({"name":"web"})"), 0);
  EXPECT_EQ(world.driverPolicy.find("/srv/web/*"), std::string::npos);
  EXPECT_EQ(policy("version-2.signed"), -32043);
}

}  // namespace
}  // namespace korvane
