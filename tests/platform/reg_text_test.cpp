#include "platform/reg_text.h"

#include <gmock/gmock.h>

namespace korvane::platform {
namespace {

const std::string kHeader = "Windows Registry Editor Version 5.00\n";

std::string utf16(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char c : ascii) bytes.append({c, '\0'});
  return bytes;
}

std::string parsed(RegDocument& document, const std::string& body) {
  return document.parse(kHeader + "[HKEY_LOCAL_MACHINE\\K]\n" + body + "\n");
}

TEST(RegText, readsEveryFormOfAValue) {
  RegDocument document;
  ASSERT_EQ(parsed(document,
                   "\"s\"=\"a \\\"b\\\" c:\\\\d\"\n"
                   "  \"d\" = dword:0000beef \n"
                   "@=\"default\"\n"
                   "\"h1\"=hex(1):41,00,0a,00,00,00\n"
                   "\"h4\"=hex(4):78,56,34,12\n"
                   "\"bin\"=hex:01,\\\n  02\n"
                   "\"q=\\\"[\"=\"x\""),
            "");
  EXPECT_EQ(document.find("K", "S")->text, "a \"b\" c:\\d");
  EXPECT_EQ(document.find("K", "d")->number, 0xbeefu);
  EXPECT_EQ(document.find("K", "")->text, "default");
  EXPECT_EQ(document.find("K", "h1")->text, "A\n");
  EXPECT_EQ(document.find("K", "h4")->number, 0x12345678u);
  EXPECT_EQ(document.find("K", "bin")->kind, RegItem::Kind::verbatim);
  EXPECT_EQ(document.find("K", "q=\"[")->text, "x");
  EXPECT_EQ(document.find("K", "none"), nullptr);
}

TEST(RegText, laterEntriesWinAndRemovalsApply) {
  RegDocument document;
  ASSERT_EQ(parsed(document,
                   "\"a\"=\"1\"\n\"A\"=\"2\"\n\"b\"=\"1\"\n\"b\"=-\n"
                   "[HKEY_LOCAL_MACHINE\\K\\Sub]\n\"x\"=\"1\"\n[-HKEY_LOCAL_MACHINE\\k\\sub]\n"
                   "[HKEY_LOCAL_MACHINE\\Kother]\n[HKEY_LOCAL_MACHINE\\k]\n\"c\"=\"3\""),
            "");
  EXPECT_EQ(document.find("k", "a")->text, "2");
  EXPECT_EQ(document.find("k", "b"), nullptr);
  EXPECT_EQ(document.find("k", "c")->text, "3");
  EXPECT_FALSE(document.hasKey("K\\Sub"));
  EXPECT_TRUE(document.hasKey("kOTHER"));
  EXPECT_FALSE(document.hasSubkeys("K")) << "Kother is not below K";
}

TEST(RegText, whatTheAgentDoesNotKnowSurvivesARewriteInItsPlace) {
  const std::string body =
      "; first\n\n[HKEY_CURRENT_USER\\Other]\n\"x\"=hex(b):01,02\n\n[HKEY_LOCAL_MACHINE\\K]\n; "
      "second\n"
      "\"multi\"=hex(7):41,00,\\\n  00,00\n\"v\"=\"1\"\n";
  for (const bool wide : {false, true})
    for (const bool crlf : {false, true}) {
      std::string bytes = kHeader + body;
      if (crlf)
        for (size_t at = 0; (at = bytes.find('\n', at)) != std::string::npos; at += 2)
          bytes.insert(at, "\r");
      if (wide) bytes = utf16(bytes);
      RegDocument document;
      ASSERT_EQ(document.parse(bytes), "");
      EXPECT_EQ(document.format(), bytes) << wide << crlf;
      EXPECT_EQ(document.find("Other", "x"), nullptr) << "below another root";
    }
}

TEST(RegText, problemsNameTheLine) {
  struct Case {
    std::string bytes, problem;
  };
  const std::string key = kHeader + "[HKEY_LOCAL_MACHINE\\K]\n";
  const Case cases[] = {
      {"nonsense\n", "line 1: the format's header"},
      {"\n; only a comment\n", "the format's header"},
      {kHeader + "\"v\"=\"1\"\n", "line 2: a value outside a key"},
      {kHeader + "[HKEY_LOCAL_MACHINE\\K\n", "line 2: a key without its closing bracket"},
      {kHeader + "[]\n", "line 2: a key without a name"},
      {key + "\"v\"=\"1\n", "line 3: not a value"},
      {key + "\"v\"=\"1\"x\n", "line 3: not a value"},
      {key + "\"v=1\n", "line 3: a value name without"},
      {key + "\"v\"1\n", "line 3: no \"=\""},
      {key + "\"v\"=dword:123456789\n", "line 3: not a value"},
      {key + "\"v\"=dword:\n", "line 3: not a value"},
      {key + "\"v\"=hex:0g\n", "line 3: not a value"},
      {key + "\"v\"=hex(2:00\n", "line 3: not a value"},
      {key + "\"v\"=hex:00,\\", "line 3: a truncated value"},
      {key + "\"a\"=hex:00,\\\n00\nx\n", "line 5: neither"},
      {kHeader + "[-HKEY_LOCAL_MACHINE\\K]\n\"v\"=\"1\"\n", "line 3: a value below a removed key"},
      {key + std::string("\"v\"=\"\0\"\n", 9), "line 3: a NUL"},
      {key + "\"\xFF\"=\"1\"\n", "neither UTF-8"},
      {"\xFF\xFE\x41", "odd number"},
      {std::string("\xFF\xFE\x00\xD8\x41\x00", 6), "surrogate"},
      {std::string(RegDocument::kMaxBytes + 1, '\n'), "larger than"},
  };
  for (const Case& c : cases) {
    RegDocument document;
    EXPECT_THAT(document.parse(c.bytes), testing::HasSubstr(c.problem)) << c.bytes.substr(0, 80);
    EXPECT_FALSE(document.hasKey("K")) << "empty after a problem";
  }
  RegDocument empty;
  EXPECT_EQ(empty.parse(""), "");
}

TEST(RegText, theNumbersOfKeysAndLinesAreBounded) {
  std::string many, lines;
  for (size_t i = 0; i <= RegDocument::kMaxKeys; ++i)
    many += "[HKEY_LOCAL_MACHINE\\" + std::to_string(i) + "]\n";
  for (size_t i = 0; i <= RegDocument::kMaxItemsPerKey; ++i)
    lines += "\"" + std::to_string(i) + "\"=\"\"\n";
  RegDocument document;
  EXPECT_THAT(document.parse(kHeader + many), testing::HasSubstr("keys"));
  EXPECT_THAT(parsed(document, lines), testing::HasSubstr("lines in one key"));
}

TEST(RegText, removingAKeyKeepsTheOneAboveIt) {
  RegDocument document;
  document.addKey("A\\B\\C");
  EXPECT_TRUE(document.hasKey("a\\b"));
  document.removeKey("\\A\\b\\c\\");
  EXPECT_FALSE(document.hasKey("A\\B\\C"));
  EXPECT_TRUE(document.hasKey("A\\B"));
}

}  // namespace
}  // namespace korvane::platform
