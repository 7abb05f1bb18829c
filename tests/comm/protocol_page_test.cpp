// Every answer of docs/protocol.md, given to the exchange that the request before it shows: the
// agent reads from it what the page says.
#include "tests/support/protocol_page.h"
#include "tests/comm/comm_fixture.h"

namespace korvane {
namespace {

using tests::PageBlock;

// What "GUID" stands for on the page.
constexpr char kGuid[] = "0f8fad5b-d9cb-469f-a165-70867728950e";

// "name=value" lines.
PropertyList pairsOf(const std::string& lines) {
  PropertyList pairs;
  std::istringstream text(lines);
  for (std::string line; std::getline(text, line) && !line.empty();) {
    const size_t equals = line.find('=');
    pairs.emplace_back(line.substr(0, equals), line.substr(equals + 1));
  }
  return pairs;
}

// The payload of a message's first section.
std::string firstPayload(const std::string& message) {
  const size_t start = message.find("\n\n");
  return start == std::string::npos ? "" : message.substr(start + 2);
}

class ProtocolPage : public tests::CommFixture {
 protected:
  ProtocolPage() : transport(script()) {}

  void exchange(const PageBlock& request, HttpsHandler& handler) {
    const std::string& word = request.label[1];
    if (word == "testConnection") return check(handler.testConnection(true));
    if (word == "register") return check(handler.registerAgent(nullptr, 0));
    if (word == "log") return check(handler.log(PropertyList{{"v2", "1"}, {"v1", "TFIL"}}));
    if (word == "bulk-log") return check(handler.sendFile(write("log.zip", "PK")));
    if (word == "update")
      return check(
          handler.getUpdate(HttpsHandler::CONFIG_UPDATE | HttpsHandler::POLICY_UPDATE, true));
    if (request.text.find("result.type=app.data") != std::string::npos)
      return check(handler.sendApplicationData("PK", false, 2));
    if (request.text.find("result.type=policy") != std::string::npos)
      return check(handler.sendAgentStatusMessage(true));
    check(handler.setUpdateResult(HttpsHandler::VEXQEL_UPDATE, 36, "Error unzipping to disk."));
  }
  static void check(int code) { EXPECT_EQ(code, 0); }

  // What the page's text says of the answer.
  void read(const PageBlock& request, const PageBlock& answer, HttpsHandler& handler) {
    STRING text;
    EXPECT_EQ(std::to_string(handler.getKorvaneError(text)), answer.label[1]);
    const PropertyList shown = pairsOf(firstPayload(answer.text));
    PropertyList got;
    if (request.label[1] == "register") {
      STRING guid;
      EXPECT_EQ(handler.getGUID(guid), 0);
      EXPECT_EQ(guid, STRING(kGuid));
    } else if (request.text.find("agent.osversion") != std::string::npos) {
      EXPECT_EQ(handler.GetPollingProperties(got), 0);
      EXPECT_EQ(got, shown);
    } else if (request.label[1] == "update") {
      readUpdate(shown, handler);
    } else if (answer.label[1] != "0") {
      EXPECT_NE(answer.text.find(" is not known here"), std::string::npos);
      EXPECT_EQ(text, STRING("the agent unknown is not known here")) << "one field of an event";
    }
  }
  void readUpdate(const PropertyList& shown, HttpsHandler& handler) {
    PropertyList settings, identity, properties;
    EXPECT_EQ(handler.GetGeneralProperties(settings, identity), 0);
    EXPECT_EQ(propertyValue(settings, "polling.interval"), STRING("60"));
    EXPECT_EQ(identity, (PropertyList{{"mod.time", propertyValue(shown, "mod.time")},
                                      {"rid.applied", "config-4"}}));
    int status = 0, size = 0;
    const std::unique_ptr<char[]> policy(handler.getPolicy(status, size, properties, false));
    ASSERT_EQ(status, 1);
    EXPECT_EQ(std::string(policy.get(), static_cast<size_t>(size)), "(bytes of the zip archive)");
    EXPECT_EQ(propertyValue(properties, "policy.name"), STRING("Base 4"));
  }

  tests::ScriptedTransport& transport;
};

TEST_F(ProtocolPage, EveryAnswerIsReadAsThePageSays) {
  const PageBlock* request = nullptr;
  int answers = 0;
  auto blocks = tests::blocksOf(KORVANE_DOCS "/protocol.md");
  for (PageBlock& block : blocks) {
    const size_t guid = block.text.find("GUID\n");
    if (guid != std::string::npos) block.text.replace(guid, 4, kGuid);
    if (block.label.at(0) == "request") request = &block;
    if (block.label.at(0) != "answer") continue;
    SCOPED_TRACE(request->text + "answered by\n" + block.text);
    ++answers;
    tests::ScriptedTransport::Step step;
    if (block.label[1] != "0") step.headers = {"Korvane-Error: " + block.label[1] + "\r\n"};
    step.body = block.text;
    transport.steps = {step};
    HttpsHandler handler;
    exchange(*request, handler);
    EXPECT_TRUE(transport.steps.empty());
    read(*request, block, handler);
  }
  EXPECT_EQ(answers, 10);
}

}  // namespace
}  // namespace korvane
