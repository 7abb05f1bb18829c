// Requests and answers as JSON, and the bounds on what is parsed.
#include "rpc/rpc_message.h"

#include <gmock/gmock.h>

namespace korvane {
namespace {

RPCRequest requestOf(const std::string& json) {
  JsonTree tree;
  EXPECT_TRUE(parseJson(json, tree)) << json;
  RPCRequest request;
  request.SetPtree(tree);
  return request;
}

TEST(RPCRequest, membersAreLookedUpByName) {
  const RPCRequest full =
      requestOf(R"({"params":{"a":[1,"x"]},"other":1,"name":"m","id":0,"jsonrpc":"9"})");
  EXPECT_EQ(full.id, 0);
  EXPECT_EQ(full.name, "m");
  EXPECT_EQ(full.params.get_child("a").size(), 2u);
  const RPCRequest least = requestOf(R"({"jsonrpc":null})");
  EXPECT_FALSE(least.id);
  EXPECT_EQ(least.name, "");
  EXPECT_TRUE(least.params.empty());
  const JsonTree tree = RPCRequest(full).releasePtree();
  EXPECT_EQ(requestOf(writeJson(tree)).releasePtree(), tree);
}

// Both forms, for texts that are long, and for one beside them.
TEST(JsonText, longTextsAreReadAndWrittenAsShortOnesAre) {
  const struct {
    const char* piece;
    bool good;
  } cases[] = {
      {"plain", true},    {"\\\\ \\\" \\/ / \\b\\f\\n\\r\\t", true},
      {"\\u0000", true},  {"\\u001f\\u00e9\\u20AC\\ud83d\\ude00", true},
      {"\xc3\xa9", true}, {"\xe2\x82\xac\xf0\x9f\x98\x80", true},
      {"\\ud83d", false}, {"\\ude00", false},
      {"\\u12g4", false}, {"\\x", false},
      {"\t", false},      {"\x80", false},
      {"\xc3", false},    {"\xf8\x80\x80\x80\x80", false},
  };
  for (const auto& c : cases) {
    std::string many;
    while (many.size() < kLongTextBytes + 10) many += c.piece;
    const std::string text = "{\"a\":[\"x\",\"" + many + "\",\"" + many + many + "\"],\"" + many +
                             "\" : \"" + many + "\"}";
    JsonTree simple, taken;
    EXPECT_EQ(parseJson(std::string_view(text), simple), c.good) << c.piece;
    ASSERT_EQ(parseJson(std::string(text), taken), c.good) << c.piece;
    EXPECT_EQ(simple, taken) << c.piece;
    if (!c.good) continue;
    const std::string written = writeJson(simple);
    EXPECT_EQ(writeJson(std::move(taken), written.size()), written) << c.piece;
    EXPECT_THROW(writeJson(std::move(simple), written.size() - 1), std::length_error);
  }
}

}  // namespace
}  // namespace korvane
