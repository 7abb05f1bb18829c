// What a conversation cannot show: the reader of notices, which no part of the agent calls, and
// addresses that are no server's, over libcurl itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/simulated_agent.h"
#include "tests/support/temp_directory.h"

namespace korvane::tests {
namespace {

TEST(PiggyBackedUpdate, IsTheOneOfTheLastExchangesKind) {
  struct NoticeCase {
    int kind;
    const char* answer;
    const char* own;  // the property that tells of it; null when there is no notice
  };
  const NoticeCase cases[] = {
      {HttpsHandler::CONFIG_UPDATE, "update.configuration=true\n", "update.configuration"},
      {HttpsHandler::CONFIG_UPDATE, "update.policy=true\n", nullptr},
      {HttpsHandler::CONFIG_UPDATE, "update.configuration.ids=true\n", nullptr},
      {HttpsHandler::CONFIG_UPDATE, "update.policy=true\nupdate.configuration=true\n",
       "update.configuration"},
      {HttpsHandler::POLICY_UPDATE, "update.policy=true\nupdate.software=true\n", "update.policy"},
      {HttpsHandler::POLICY_UPDATE, "update.policy=false\n", nullptr},
      {HttpsHandler::POLICY_UPDATE, "update.policy.ids=true\n", nullptr},
      {HttpsHandler::POLICY_UPDATE, "send.application.request=true\n", nullptr},
      {HttpsHandler::POLICY_UPDATE_HIDS, "update.policy.ids=true\n", "update.policy.ids"},
      {HttpsHandler::CONFIG_UPDATE_HIDS, "update.configuration.ids=true\nupdate.policy=true\n",
       "update.configuration.ids"},
      {HttpsHandler::SOFTWARE_UPDATE, "update.software=true\n", "update.software"},
      {HttpsHandler::SOFTWARE_UPDATE, "update.qel=true\n", nullptr},
      {HttpsHandler::VEXQEL_UPDATE, "update.qel=true\nupdate.software=true\n", "update.qel"},
      {HttpsHandler::FERROLYN_REVO_UPDATE, "update.qel=true\n", nullptr},
      {HttpsHandler::FERROLYN_VT_UPDATE, "update.ferrolyn.vexvt=true\n", "update.ferrolyn.vexvt"},
  };
  for (const NoticeCase& row : cases) {
    SCOPED_TRACE(std::to_string(row.kind) + " " + row.answer);
    SimulatedMachine machine({.settings = "agent.id=known\n"});
    machine.server.always("result", Answer::properties(row.answer));
    HttpsHandler handler;
    ASSERT_EQ(handler.setUpdateResult(row.kind, 0, STRING("No Error")), 0);
    PropertyList pairs;
    testing::internal::CaptureStdout();
    EXPECT_EQ(handler.getPiggyBackedUpdate(pairs), row.own ? 1 : 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.own ? "" : "No PiggyBacked Update \n");
    bool own = false;
    for (const auto& [name, value] : pairs) {
      own = own || (row.own && name == STRING(row.own) && value == STRING("true"));
      EXPECT_TRUE(!name.toUtf8().starts_with("update.") || (row.own && name == STRING(row.own)))
          << name.toUtf8();
    }
    EXPECT_EQ(own, row.own != nullptr);
  }
}

TEST(PiggyBackedUpdate, IsNotTakenFromAnErrorOrAFailure) {
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  Answer refusal = Answer::properties("update.policy=true\n");
  refusal.headers = "Korvane-Error: 700\r\n";
  machine.server.queue("result", refusal);
  HttpsHandler handler;
  PropertyList pairs;
  EXPECT_EQ(handler.setUpdateResult(HttpsHandler::POLICY_UPDATE, 0, STRING("No Error")), 0);
  EXPECT_EQ(handler.getPiggyBackedUpdate(pairs), -2);
  EXPECT_TRUE(pairs.empty());
  machine.server.queue("result", Answer::http(500));
  EXPECT_EQ(handler.setUpdateResult(HttpsHandler::POLICY_UPDATE, 0, STRING("No Error")), 500);
  EXPECT_NE(handler.getPiggyBackedUpdate(pairs), 1);
  machine.server.queue("log", Answer::properties("update.policy=true\n"));
  EXPECT_EQ(handler.log(PropertyList{{"v1", "TFIL"}}), 0);
  EXPECT_EQ(handler.getPiggyBackedUpdate(pairs), 0) << "an event asks for nothing";
}

// A folder holds what a server would answer, under the path words' names.
TEST(Address, OfAnythingButAServerDeliversNothing) {
  const TempDirectory folder;
  const std::string path = std::filesystem::path(folder.path()).generic_string();
  for (const char* word : {"register", "log", "result", "update", "testConnection", "bulk-log"})
    std::ofstream(path + "/" + word, std::ios::binary) << Answer::properties(kRegistered).body;
  const std::string slash = path.starts_with("/") ? "" : "/";
  const std::string urls[] = {"file://" + slash + path + "/",
                              "FILE://" + slash + path + "/",
                              "file://127.0.0.1" + slash + path + "/",
                              "file:" + path + "/",
                              "ftp://127.0.0.1:1/",
                              "gopher://127.0.0.1:1/",
                              "dict://127.0.0.1:1/",
                              "ldap://127.0.0.1:1/",
                              path + "/"};
  for (const std::string& url : urls) {
    SCOPED_TRACE(url);
    SimulatedMachine machine({.settings = "agent.id=known\n", .url = url});
    HttpsHandler::setTransport(nullptr);
    HttpsHandler handler;
    STRING guid;
    const PropertyList record = {{STRING("v2"), STRING("1")}, {STRING("v1"), STRING("TFIL")}};
    EXPECT_NE(handler.registerAgent(nullptr, 0), 0);
    EXPECT_NE(handler.getGUID(guid), 0) << guid.toUtf8();
    EXPECT_NE(handler.testConnection(true), 0);
    EXPECT_NE(handler.log(record), 0);
    EXPECT_NE(handler.sendAgentStatusMessage(true), 0);
    EXPECT_EQ(machine.countLines(",10219,"), 0U);
    EXPECT_GE(machine.countLines(",10221,") + machine.countLines(",10223,"), 1U);
  }
}

}  // namespace
}  // namespace korvane::tests
