// What is a discovery definition and what is not, with the place and the reason of each refusal.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>

#include "discovery/definition.h"

namespace korvane {
namespace {

std::string refusalOf(const std::string& text, int format = 2) {
  Definition unused;
  return readDefinition(text, format, unused);
}

std::string inRoot(const std::string& part, int format = 2) {
  return "<discovery version=\"" + std::to_string(format) + "\">\n" + part + "\n</discovery>";
}

std::string times(int count, const std::string& text) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

struct Refusal {
  std::string document, place, reason;
};

TEST(Definition, whatIsRefusedHasAPlaceAndAReason) {
  const std::string files = R"(<files root="/a"/>)";
  const Refusal table[] = {
      {"", "", "invalid document structure"},
      {"no XML", "line 1, column 1: ", "invalid document structure"},
      {"<discovery version='2'>", "line 1, ", "input ended before all started tags were ended"},
      {"<discovery version='2'></discovery><x/>", "line 1, ", ""},
      {"<inventory version='2'/>", "line 1, ", "the element \"inventory\" is not known here"},
      {"<discovery/>", "line 1, column 13: ", "the attribute \"version\" is missing"},
      {"<discovery version='3'/>", "line 1, ", R"(the version is "3", not "2")"},
      {"<discovery version='2' x='1'/>", "line 1, ", R"(the attribute "x" is not known here)"},
      {inRoot("<drivers/>"), "line 2, column 11: ", R"(the element "drivers" is not known here)"},
      {inRoot("<ports/>\n<ports/>"), "line 3, ", "twice"},
      {inRoot("<limits/><limits/>"), "line 2, ", "twice"},
      {inRoot("<ports x='1'/>"), "line 2, ", R"(the attribute "x" is not known here)"},
      {inRoot("<ports x='1' x='2'/>"), "line 2, ", "attribute 'x' is already specified"},
      {inRoot("<ports><tcp/></ports>"), "line 2, ", R"(the element "tcp" is not known here)"},
      {inRoot("<ports><exclude pattern='a'/></ports>"), "line 2, ",
       R"("exclude" is not known here)"},
      {inRoot("ports"), "line ", "text between elements"},
      {inRoot("<![CDATA[ports]]>"), "line 2, ", "text between elements"},
      {inRoot("<files/>"), "line 2, ", R"(the attribute "root" is missing)"},
      {inRoot("<files root=''/>"), "line 2, ", R"("root" is empty)"},
      {inRoot("<files root='a/b'/>"), "line 2, ", R"("root" is "a/b", not a full path)"},
      {inRoot("<files root='/a' pattern='a;;b'/>"), "line 2, ",
       R"("pattern" has an empty pattern)"},
      {inRoot("<files root='/a' depth='65'/>"), "line 2, ",
       R"("depth" is "65", not a number from 0 to 64)"},
      {inRoot("<files root='/a' depth='-1'/>"), "line 2, ", R"("depth" is "-1")"},
      {inRoot("<files root='/a' depth=' 1'/>"), "line 2, ", R"("depth" is " 1")"},
      {inRoot("<files root='/a' maxSize='9223372036854775808'/>"), "line 2, ", R"("maxSize" is)"},
      {inRoot("<files root='/a' minSize='2' maxSize='1'/>"), "line 2, ",
       R"("minSize" is above "maxSize")"},
      {inRoot("<files root='/a' hash='yes'/>"), "line 2, ",
       R"("hash" is "yes", not "true" or "false")"},
      {inRoot("<files root='/a'><exclude/></files>"), "line 2, ",
       R"(the attribute "pattern" is missing)"},
      {inRoot("<registry key='a' depth='33'/>"), "line 2, ", R"("depth" is "33")"},
      {inRoot("<limits share='0'/>"), "line 2, ", R"("share" is "0", not a number from 1 to 100)"},
      {inRoot("<limits seconds='604801'/>"), "line 2, ", R"("seconds" is "604801")"},
      {inRoot(times(257, files)), "line 2, ", R"(more than 256 "files")"},
      {inRoot(times(257, "<registry key='a'/>")), "line 2, ", R"(more than 256 "registry")"},
      {inRoot("<files root='/a'>" + times(65, "<exclude pattern='a'/>") + "</files>"), "line 2, ",
       R"(more than 64 "exclude")"},
      {inRoot("<files root='/\xff'/>"), "line 2, column 1: ", "the text is not UTF-8"},
      {"<discovery version='2'/>\xc3", "line 1, column 1: ", "the text is not UTF-8"},
      {inRoot("<files root='&other;'/>"), "line 2, ", "entity 'other' not found"},
      {inRoot(times(5000, "<a>")), "line 2, ", R"(the element "a" is not known here)"},
  };
  for (const Refusal& row : table) {
    const std::string got = refusalOf(row.document);
    EXPECT_TRUE(std::regex_search(got, std::regex("^line [1-9]\\d*, column [1-9]\\d*: \\S")))
        << got;
    EXPECT_TRUE(got.starts_with(row.place)) << got;
    EXPECT_NE(got.find(row.reason), std::string::npos)
        << got << "\nof " << row.document.substr(0, 200);
  }
}

TEST(Definition, aDocumentTypeIsRefusedBeforeAnythingOfItIsLookedAt) {
  const std::string end = "]><discovery version='1'/>";
  for (const std::string& begin :
       {std::string("<!DOCTYPE discovery>"),
        std::string("<!-- a --><?b c?>\n <!DOCTYPE discovery>"),
        std::string("<!DOCTYPE discovery ["),
        std::string("<!DOCTYPE discovery [<!ENTITY a SYSTEM '/etc/passwd'>"),
        std::string("<!DOCTYPE discovery SYSTEM 'file:///etc/passwd' ["),
        std::string("<!DOCTYPE discovery PUBLIC 'a' 'http://127.0.0.1:1/x.dtd' [%all;"),
        std::string("<!DOCTYPE discovery [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;&a;&a;'>"),
        std::string("<!DOCTYPE discovery [<!ENTITY broken")}) {
    EXPECT_NE(refusalOf(begin + end, 1).find(": a document type declaration is not allowed"),
              std::string::npos)
        << refusalOf(begin + end, 1);
  }
}

TEST(Definition, theFirstFormatHasNothingOfTheSecond) {
  for (const char* part :
       {"<limits/>", "<registry key='a'/>", "<files root='/a' hash='true'/>",
        "<files root='/a' signer='true'/>", "<files root='/a'><exclude pattern='a'/></files>"})
    EXPECT_NE(refusalOf(inRoot(part, 1), 1).find("is not known here"), std::string::npos) << part;
  EXPECT_EQ(refusalOf(inRoot("<files root='/a' minSize='1'/>", 1), 1), "");
  EXPECT_NE(refusalOf(inRoot("", 1), 2).find("the version is \"1\", not \"2\""), std::string::npos);
}

// The page's own examples, a byte-order mark, and what the tables call allowed.
TEST(Definition, whatIsReadIsWhatItSays) {
  std::ifstream page(KORVANE_DOCS "/discovery.md");
  const std::string text((std::istreambuf_iterator<char>(page)), {});
  std::vector<std::string> examples;
  for (size_t at = 0; (at = text.find("```xml\n", at)) != std::string::npos; at += 7)
    examples.push_back(text.substr(at + 7, text.find("```", at + 7) - at - 7));
  ASSERT_GE(examples.size(), 2u);

  Definition first;
  ASSERT_EQ(readDefinition("\xEF\xBB\xBF" + examples[0], 1, first), "");
  EXPECT_TRUE(first.applications && first.services && first.processes && first.ports &&
              first.shortcuts);
  ASSERT_EQ(first.files.size(), 1u);
  EXPECT_EQ(first.files[0].patterns, (std::vector<std::string>{"*.jar", "*.war"}));
  EXPECT_EQ(first.files[0].depth, 6u);
  EXPECT_EQ(first.files[0].maxSize, 104857600u);

  Definition second;
  ASSERT_EQ(readDefinition(examples[1], 2, second), "");
  EXPECT_FALSE(second.services);
  ASSERT_EQ(second.files.size(), 1u);
  EXPECT_TRUE(second.files[0].signer && second.files[0].hash);
  EXPECT_EQ(second.files[0].excluded, (std::vector<std::string>{"*.tmp", "Vendor\\cache\\*"}));
  ASSERT_EQ(second.registry.size(), 1u);
  EXPECT_EQ(second.registry[0].value, "Version*");
  EXPECT_EQ(second.limits.share, 5u);

  const Definition both = merged(first, second);
  EXPECT_TRUE(both.services);
  EXPECT_EQ(both.files.size(), 2u);
  EXPECT_EQ(both.limits.rows, 200000u);
  first.files[0].root = second.files[0].root;
  const Definition replaced = merged(first, second);
  ASSERT_EQ(replaced.files.size(), 1u);
  EXPECT_TRUE(replaced.files[0].signer);
}

TEST(Definition, patternsMatchWhatTheyName) {
  const struct {
    const char *text, *pattern;
    bool exact, folded;
  } table[] = {
      {"", "", true, true},
      {"", "*", true, true},
      {"a", "", false, false},
      {"a.jar", "*.jar", true, true},
      {"a.JAR", "*.jar", false, true},
      {"a.jarx", "*.jar", false, false},
      {"aXbXc", "a*X*c", true, true},
      {"abc", "a?c", true, true},
      {"ac", "a?c", false, false},
      {"\xC3\xA4", "?", true, true},
      {"a/b/c", "a\\*", true, true},
      {"a\\b", "a/b", true, true},
      {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab", "*a*a*a*a*a*a*a*a*c", false, false},
  };
  for (const auto& row : table) {
    EXPECT_EQ(matchesPattern(row.text, row.pattern, false), row.exact)
        << row.text << " " << row.pattern;
    EXPECT_EQ(matchesPattern(row.text, row.pattern, true), row.folded)
        << row.text << " " << row.pattern;
  }
  FileRoot root;
  root.excluded = {"*.tmp", "cache/*"};
  EXPECT_TRUE(isExcluded(root, "x/y.tmp", "y.tmp", false));
  EXPECT_TRUE(isExcluded(root, "cache/y", "y", false));
  EXPECT_FALSE(isExcluded(root, "x/cache/y", "y", false));
  EXPECT_FALSE(isExcluded(root, "cache", "cache", false));
}

}  // namespace
}  // namespace korvane
