// Feeds every example of docs/protocol.md to a running server and compares its answers with
// the page.
#include <sstream>

#include "tests/server/server_fixture.h"
#include "tests/support/protocol_page.h"

namespace korvane::server {
namespace {

constexpr char kArchive[] = "(bytes of the zip archive)";

using tests::blocksOf;
using Block = tests::PageBlock;

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (size_t at; !what.empty() && (at = text.find(what)) != std::string::npos;)
    text.replace(at, what.size(), by);
  return text;
}

class ProtocolDocument : public ServerTest {
 protected:
  void assignWhatThePageSays() {
    serveFile("policy.zip", kArchive);
    command("/assign", {{"kind", "config"},
                        {"properties",
                         {{"mod.time", "1795255200000"},
                          {"polling.interval", "60"},
                          {"rid.applied", "config-4"}}}});
    command("/assign",
            {{"kind", "policy"},
             {"file", "policy.zip"},
             {"properties", {{"policy.name", "Base 4"}, {"policy.path", "/policies/base"}}}});
  }
  std::string _guid;
};

TEST_F(ProtocolDocument, EveryExampleIsAcceptedAndAnsweredAsShown) {
  start();
  assignWhatThePageSays();
  const auto blocks = blocksOf(KORVANE_DOCS "/protocol.md");
  Answer answer;
  int requests = 0;
  int answers = 0;
  for (const Block& block : blocks) {
    ASSERT_GE(block.label.size(), 2u) << block.text;
    if (block.label[0] == "request") {
      ++requests;
      ASSERT_EQ(readMessage(block.text).error, "") << block.text;
      answer = post(block.label[1], block.text, block.label.size() > 2 ? block.label[2] : _guid);
      if (block.label[1] == "register") _guid = answer.property("agent.id");
    } else if (block.label[0] == "answer") {
      ++answers;
      EXPECT_EQ(std::to_string(answer.korvaneError), block.label[1]);
      EXPECT_EQ(replaced(answer.body, _guid, "GUID"), block.text);
    }
  }
  EXPECT_EQ(requests, 10);
  EXPECT_EQ(answers, 10);
  EXPECT_EQ(get("/state")["malformed"], 0);
  EXPECT_EQ(get("/events")["covered"], 9);
}

TEST_F(ProtocolDocument, TheWholeRequestIsInOrder) {
  start();
  const std::string guid = registerAgent();
  const auto blocks = blocksOf(KORVANE_DOCS "/protocol.md");
  const auto whole =
      std::ranges::find_if(blocks, [](const Block& block) { return block.label[0] == "http"; });
  ASSERT_NE(whole, blocks.end());
  const size_t split = whole->text.find("\n\n");
  const std::string head = whole->text.substr(0, split + 1);
  const std::string body = whole->text.substr(split + 2);
  EXPECT_THAT(head, testing::HasSubstr("Content-Length: " + std::to_string(body.size()) + "\n"));
  ClientHeaders headers;
  std::istringstream lines(head);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "POST /korvane/agent/log HTTP/1.1");
  while (std::getline(lines, line)) {
    const size_t colon = line.find(':');
    const std::string name = line.substr(0, colon);
    if (name == "Content-Length" || name == "Host") continue;
    headers.emplace_back(name,
                         replaced(line.substr(std::min(colon + 2, line.size())), "GUID", guid));
  }
  EXPECT_EQ(post(*_client, "log", body, headers).korvaneError, 0);
  EXPECT_EQ(get("/events")["ranges"], Json::parse("[[4711,4711]]"));
}

}  // namespace
}  // namespace korvane::server
