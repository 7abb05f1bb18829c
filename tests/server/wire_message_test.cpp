#include "tools/server/wire_message.h"

#include <gtest/gtest.h>

namespace korvane::server {
namespace {

std::string properties(const std::string& payload) {
  std::string body;
  writeSection(body, "text/plain", "properties", payload);
  return body;
}

TEST(WireMessage, ReadsWhatItWrites) {
  const std::string binary("PK\0\n\nEOF_FLAG\nData-Format=x", 28);
  std::string body;
  writeProperties(body, {{"a", "b=c"}, {"", ""}, {"größe", "1"}});
  writeSection(body, "binary/zip", "policy", binary);
  writeSection(body, "text/xml", "any", "");
  writeEnd(body);
  const WireMessage message = readMessage(body);
  ASSERT_EQ(message.error, "");
  ASSERT_EQ(message.sections.size(), 3u);
  EXPECT_EQ(readProperties(message.sections[0].payload),
            (WireProperties{{"a", "b=c"}, {"", ""}, {"größe", "1"}}));
  EXPECT_EQ(message.sections[1].payload, binary);
  EXPECT_EQ(message.sections[2].name, "any");
  EXPECT_EQ(propertyIn(message.sections[0].payload, "a"), "b=c");
  EXPECT_EQ(propertyIn(message.sections[0].payload, "b"), "");
  EXPECT_EQ(propertyIn("ab=1\na=2", "a"), "2");
}

TEST(WireMessage, AcceptsOnlyStrictFraming) {
  const std::string good = properties("a=b\n");
  const struct {
    const char* what;
    std::string body;
    const char* error;  // part of the text; null: in order
  } cases[] = {
      {"no sections", "EOF_FLAG\n", nullptr},
      {"the line feeds of sections left out", "\n\nEOF_FLAG\n", nullptr},
      {"empty properties", properties("") + "EOF_FLAG\n", nullptr},
      {"leading zeros",
       "Data-Format=text/plain\nData-Type=properties\nData-Length=004\n\na=b\n\nEOF_FLAG\n",
       nullptr},
      {"empty body", "", "offset 0: the body ends where a section"},
      {"end marker without line feed", "EOF_FLAG", "the body ends"},
      {"no end marker", good, "the body ends"},
      {"bytes behind the end", good + "EOF_FLAG\n\n", "offset 73: bytes after the end marker"},
      {"carriage return", "EOF_FLAG\r\n", "\"Data-Format=\""},
      {"header out of order", "Data-Type=properties\n",
       "offset 0: a line that should begin with \"Data-Format=\""},
      {"header missing", "Data-Format=text/xml\nData-Length=0\n\n\nEOF_FLAG\n", "\"Data-Type=\""},
      {"cut in a header", "Data-Format=text/xml\nData-Ty", "the body ends where Data-Type="},
      {"no length", "Data-Format=text/xml\nData-Type=a\nData-Length=\n\n\nEOF_FLAG\n",
       "is not a length"},
      {"negative length", withDataLength(good, "-1") + "EOF_FLAG\n", "\"-1\" is not a length"},
      {"overflowing length", withDataLength(good, "18446744073709551617") + "EOF_FLAG\n",
       "is not a length"},
      {"letters behind a length", withDataLength(good, "4x") + "EOF_FLAG\n", "is not a length"},
      {"length beyond the body", withDataLength(good, "14") + "EOF_FLAG\n", "exceeds the body"},
      {"huge length", withDataLength(good, "18446744073709551615") + "EOF_FLAG\n",
       "exceeds the body"},
      {"length too short", withDataLength(good, "3") + "EOF_FLAG\n",
       "a property without its line feed"},
      {"length too short, other format",
       "Data-Format=text/xml\nData-Type=a\nData-Length=1\n\nxy\nEOF_FLAG\n",
       "no line feed after a payload"},
      {"no empty line", "Data-Format=text/xml\nData-Type=a\nData-Length=1\nx\nEOF_FLAG\n",
       "no empty line"},
      {"unknown format", "Data-Format=text/html\nData-Type=a\nData-Length=0\n\n\nEOF_FLAG\n",
       "\"text/html\""},
      {"text of another name",
       "Data-Format=text/plain\nData-Type=logrule\nData-Length=0\n\n\nEOF_FLAG\n", "\"logrule\""},
      {"no equals sign", properties("a=b\nc\n") + "EOF_FLAG\n", "without \"=\""},
      {"equals sign in the next line only", properties("c\na=b\n") + "EOF_FLAG\n", "without \"=\""},
      {"not UTF-8", properties("a=\xC3\n") + "EOF_FLAG\n", "not UTF-8"},
  };
  for (const auto& tried : cases) {
    const WireMessage message = readMessage(tried.body);
    if (tried.error == nullptr) {
      EXPECT_EQ(message.error, "") << tried.what;
    } else {
      EXPECT_NE(message.error.find(tried.error), std::string::npos)
          << tried.what << ": " << message.error;
      EXPECT_TRUE(message.sections.empty()) << tried.what;
    }
  }
}

}  // namespace
}  // namespace korvane::server
