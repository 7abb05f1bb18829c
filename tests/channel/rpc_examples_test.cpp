// The examples of docs/rpc.md against the real service, in the order of the page.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/channel/channel_world.h"

namespace korvane {
namespace {

using tests::ChannelWorld;

constexpr char kAnything[] = "...";

struct Example {
  int line;
  std::string request, answer;
};

std::vector<Example> examplesOf(const char* page) {
  std::ifstream file(page);
  std::vector<Example> examples;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.starts_with("> {")) examples.push_back({number, line.substr(2), ""});
    if (line.starts_with("< {") && !examples.empty()) examples.back().answer = line.substr(2);
  }
  return examples;
}

// Empty when the answer is as the example shows it, else the path of the first difference.
std::string difference(const JsonTree& shown, const JsonTree& answer, const std::string& path) {
  if (shown.data() == kAnything) return {};
  if (shown.data() != answer.data()) return path + ": \"" + answer.data() + '"';
  auto next = answer.begin();
  for (const auto& [name, child] : shown) {
    if (name == kAnything || child.get_child_optional(kAnything)) return {};
    if (next == answer.end()) return path + " lacks " + name;
    if (next->first != name) return path + " has " + next->first + " in place of " + name;
    const std::string inside = difference(child, next->second, path + "." + name);
    if (!inside.empty()) return inside;
    ++next;
  }
  return next == answer.end() ? "" : path + " has more: " + next->first;
}

TEST(RPCPage, everyExampleIsWhatTheServiceAnswers) {
  ChannelWorld world;
  // The agent's own pipe, asked for a second time: the one error that the examples show.
  eventlog::event(10600, "RPC", {231});
  Fifo client(world.machine.fake.pipes, world.machine.sim.clock(), kLocalPipe);
  const std::vector<Example> examples = examplesOf(KORVANE_RPC_PAGE);
  EXPECT_GE(examples.size(), 20u);
  std::set<std::string> methods;
  for (const Example& example : examples) {
    SCOPED_TRACE("docs/rpc.md:" + std::to_string(example.line));
    std::string text;
    ASSERT_TRUE(client.open());
    ASSERT_TRUE(client.writeMessage(example.request, ChannelWorld::kLongMs));
    ASSERT_TRUE(client.readMessage(text, ChannelWorld::kLongMs, ChannelWorld::kLongMs));
    JsonTree shown, answer;
    ASSERT_TRUE(parseJson(example.answer, shown));
    ASSERT_TRUE(parseJson(text, answer));
    EXPECT_EQ(difference(shown, answer, "answer"), "") << text;
    if (!parseJson(example.request, shown)) continue;
    methods.insert(shown.get("name", ""));
  }
  for (const char* method :
       {"getTechStatus", "getTechNames", "getAgentVersion", "getStatus", "getSettings",
        "setSettings", "setTrace", "retranslate", "getPolicy", "queryDriver", "testConnection",
        "getLogPointers", "getCounters", "getDiagnostics"})
    EXPECT_TRUE(methods.contains(method)) << method << " has no example";
}

}  // namespace
}  // namespace korvane
