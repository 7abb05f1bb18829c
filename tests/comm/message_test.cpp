#include <gtest/gtest.h>

#include "comm/https_message_generator.h"
#include "comm/server_url.h"
#include "tests/comm/comm_fixture.h"

namespace korvane {
namespace {

using tests::CommFixture;

class Message : public CommFixture {
 protected:
  static std::string bodyOf(const HttpsMessageGenerator& message) {
    StringBuffer buffer;
    message.writeBody(buffer);
    return std::string(buffer.bytes());
  }
};

TEST_F(Message, SectionsAreFramedInOrder) {
  HttpsMessageGenerator message("");
  EXPECT_EQ(bodyOf(message), "EOF_FLAG\n");

  message.addProperties({{"a", "b"}, {"n\u00e4me", "x=\u00e4"}, {"", ""}});
  message.addBinary("\0PK", 3);
  message.addProperties({});
  std::string xml = "<\xC3\xA4/>";
  message.addSection(Section("text/xml", "rules", &xml));
  EXPECT_EQ(bodyOf(message),
            properties("a=b\nn\xC3\xA4me=x=\xC3\xA4\n=\n") +
                section("binary/zip", "policy", std::string("\0PK", 3)) +
                "Data-Format=text/plain\nData-Type=properties\nData-Length=0\n\n\n" +
                section("text/xml", "rules", xml) + "EOF_FLAG\n");
}

// The form that log forwarding uses and the one over pairs make the same bytes.
TEST_F(Message, BuiltInPlaceEqualsPairs) {
  HttpsMessageGenerator message("");
  MessageBody body;
  for (int round = 0; round < 2; ++round) {
    body.clear();
    for (size_t length : std::vector<size_t>{0, 9, 10, 99, 100, 1000, 70000}) {
      const std::string value(length, 'v');
      if (round == 0) message.addProperties({{"k", value}});
      const std::string line = "k=" + value + "\n";
      line.copy(body.beginProperties(line.size()), line.size());
      body.endSection();
    }
    body.finish();
    EXPECT_EQ(body.bytes(), bodyOf(message));
  }
}

TEST_F(Message, BulkLogEqualsTheSameSections) {
  const std::string content("PK\0\n", 4);
  HttpsMessageGenerator expected("");
  expected.addBinary(content.data(), content.size());
  expected.addProperties({{"file.name", "l\u00f6g.zip"}});
  HttpsMessageGenerator message("");
  const auto body = message.buildBulkLogMessage(system().files, write("l\xC3\xB6g.zip", content));
  ASSERT_TRUE(body);
  EXPECT_EQ(body->bytes(), bodyOf(expected));
  EXPECT_EQ(message.bulkLogSize(), body->size());

  EXPECT_FALSE(message.buildBulkLogMessage(system().files, path("none.zip")));
  EXPECT_EQ(logged("Could not open file" + path("none.zip") + ". Error Code :2"), 1);
  EXPECT_EQ(message.bulkLogSize(), 0u);
}

TEST(ServerUrl, HostIsReplacedAlone) {
  const struct {
    const char *url, *host, *other;
  } cases[] = {
      {"https://one:8443/agent/", "one", "https://two:8443/agent/"},
      {"https://one/agent/", "one", "https://two/agent/"},
      {"https://[::1]:8443/a", "[::1]", "https://two:8443/a"},
      {"https://one", "one", "https://two"},
      {"one:1/a:b", "one", "two:1/a:b"},
      {"https://ann:pw@one:1/a", "one", "https://ann:pw@two:1/a"},
      {"https://ann:p@w@[::1]/a@b", "[::1]", "https://ann:p@w@two/a@b"},
      {"https://one/a@b", "one", "https://two/a@b"},
      {"https://ann:p/w@one/", "one", "https://ann:p/w@two/"},
      {"ann:pw@one/a", "one", "ann:pw@two/a"},
      {"https://[::1", "[::1", "https://two"},
      {"", "", "two"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(hostOfUrl(test.url), STRING(test.host));
    EXPECT_EQ(withHost(test.url, "two"), STRING(test.other));
  }
}

}  // namespace
}  // namespace korvane
