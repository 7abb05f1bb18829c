// Feeds every example of docs/protocol.md to a running server and compares its answers with the page.
#include <fstream>
#include <sstream>

#include "tests/server/server_fixture.h"

namespace korvane::server {
namespace {

constexpr char kArchive[] = "(bytes of the zip archive)";

struct Block {
  std::vector<std::string> label;  // the words behind the fence
  std::string text;
};

std::vector<Block> blocksOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<Block> blocks;
  bool inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (!inside) continue;
      Block& block = blocks.emplace_back();
      std::istringstream words(line.substr(3));
      for (std::string word; words >> word;) block.label.push_back(word);
    } else if (inside) {
      blocks.back().text += line + "\n";
    }
  }
  return blocks;
}

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
  EXPECT_EQ(requests, 9);
  EXPECT_EQ(answers, 9);
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
  httplib::Headers headers;
  std::istringstream lines(head);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "POST /korvane/agent/log HTTP/1.1");
  while (std::getline(lines, line)) {
    const size_t colon = line.find(':');
    const std::string name = line.substr(0, colon);
    if (name == "Content-Length" || name == "Content-Type" || name == "Host") continue;
    headers.emplace(name, replaced(line.substr(std::min(colon + 2, line.size())), "GUID", guid));
  }
  const auto result = _client->Post("/korvane/agent/log", headers, body, "application/x-korvane");
  ASSERT_TRUE(result);
  EXPECT_FALSE(result->has_header("Korvane-Error")) << result->body;
  EXPECT_EQ(get("/events")["ranges"], Json::parse("[[4711,4711]]"));
}

}  // namespace
}  // namespace korvane::server
