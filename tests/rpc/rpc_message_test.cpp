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

std::string errorOf(const std::string& json) {
  try {
    requestOf(json);
  } catch (const RPCParseError& error) {
    return error.what();
  } catch (const boost::property_tree::ptree_bad_data&) {
    return "bad data";
  }
  return "";
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
  EXPECT_EQ(requestOf(writeJson(full.ptree())).ptree(), full.ptree());
}

TEST(RPCRequest, whatIsNoRequestSaysWhy) {
  const struct {
    const char *json, *error;
  } cases[] = {
      {R"({"name":"m"})", "invalid JSON-RPC property tree."},
      {R"([])", "invalid JSON-RPC property tree."},
      {R"({"jsonrpc":"2.0","id":-1,"name":"m"})", "request id must be non-negative integer."},
      {R"({"jsonrpc":"2.0","id":"x"})", "bad data"},
      {R"({"jsonrpc":"2.0","id":1.5})", "bad data"},
      {R"({"jsonrpc":"2.0","id":99999999999})", "bad data"},
      {R"({"jsonrpc":"2.0","id":7})", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(errorOf(c.json), c.error) << c.json;
}

TEST(RPCResponse, membersStandInTheirOrder) {
  RPCResponse response;
  response.result.put("a", 1);
  EXPECT_EQ(writeJson(response.ptree()), R"({"jsonrpc":"2.0","result":{"a":"1"}})");
  response.id = 7;
  response.appdata = "x\"\n";
  response.moredata = true;
  response.datalen = 3;
  const std::string text = writeJson(response.ptree());
  EXPECT_EQ(text, R"({"jsonrpc":"2.0","id":"7","result":{"a":"1"},)"
                  R"("appdata":"x\"\n","moredata":"true","datalen":"3"})");
  JsonTree tree;
  ASSERT_TRUE(parseJson(text, tree));
  RPCResponse read;
  read.SetPtree(tree);
  EXPECT_EQ(read.ptree(), response.ptree());
  RPCResponse failed;
  failed.error = -32601;
  EXPECT_EQ(writeJson(failed.ptree()),
            R"({"jsonrpc":"2.0","error":{"code":"-32601","message":"Method not found"}})");
}

TEST(JsonText, depthAndNumberOfValuesAreBounded) {
  const auto nested = [](size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  const auto many = [](size_t values) {
    std::string text = "[0";
    for (size_t i = 2; i < values; ++i) text += ",0";
    return text + "]";
  };
  JsonTree tree;
  EXPECT_TRUE(parseJson(nested(kMaxJsonDepth), tree));
  EXPECT_FALSE(parseJson(nested(kMaxJsonDepth + 1), tree));
  EXPECT_FALSE(parseJson(std::string(1000000, '['), tree));
  EXPECT_TRUE(parseJson(many(kMaxJsonValues), tree));
  EXPECT_FALSE(parseJson(many(kMaxJsonValues + 2), tree));
  EXPECT_TRUE(parseJson("[\"" + std::string(100000, '[') + "\\\"[\"]", tree)) << "in a string";
  for (const char* bad : {"", "{", "\"", "\"\\", "{\"a\":}", "{} {}", "\xff"})
    EXPECT_FALSE(parseJson(bad, tree)) << bad;
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
