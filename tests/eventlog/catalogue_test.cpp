#include "eventlog/catalogue.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <vector>

namespace korvane::eventlog {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Catalogue, ReadsBothLineEndsAndSkipsComments) {
  Catalogue catalogue;
  const auto error =
      parseCatalogue("# events\r\n\r\n1 AINF one, %1\r\n99999 AERR \xC3\xA4  last", catalogue);
  ASSERT_FALSE(error) << error->describe();
  ASSERT_EQ(catalogue.size(), 2u);
  EXPECT_EQ(catalogue[1].type, "AINF");
  EXPECT_EQ(catalogue[1].text, "one, %1");
  EXPECT_EQ(catalogue[99999].text, "\xC3\xA4  last");
}

TEST(Catalogue, NamesTheLineThatIsWrongAndKeepsNothing) {
  const std::string longText(1025, 'x');
  const struct {
    std::string bytes;
    std::string says;
  } cases[] = {
      {"", "it holds no event"},
      {"# nothing\n", "it holds no event"},
      {"1 AINF a\nx AINF b\n", "line 2: the event number is not from 1 to 99999"},
      {"0 AINF a", "line 1: the event number is not from 1 to 99999"},
      {"100000 AINF a", "line 1: the event number is not from 1 to 99999"},
      {"99999999999999999999 AINF a", "line 1: the event number is not from 1 to 99999"},
      {" 1 AINF a", "line 1: the event number is not from 1 to 99999"},
      {"1 TRAC a", "line 1: the event type is not AINF, AWRN or AERR"},
      {"1", "line 1: the event type is not AINF, AWRN or AERR"},
      {"1 AINF", "line 1: no text"},
      {"1 AINF \n", "line 1: no text"},
      {"1 AINF a\r\n1 AERR b\r\n", "line 2: duplicate event number"},
      {"1 AINF 50%", "line 1: a percent sign not followed by 1 to 9 or %"},
      {"1 AINF %0", "line 1: a percent sign not followed by 1 to 9 or %"},
      {"1 AINF a\tb", "line 1: a control character"},
      {std::string("1 AINF a\0b", 10), "line 1: a control character"},
      {"1 AINF \xFF", "line 1: the text is not UTF-8"},
      {"1 AINF " + longText, "line 1: the text is longer than 1024 bytes"},
      {std::string(10001, '\n'), "line 10001: more than 10000 lines"},
      {std::string(kMaxCatalogueBytes + 1, '\n'), "larger than 1 MiB"},
  };
  for (const auto& c : cases) {
    Catalogue catalogue{{7, {"AINF", "left over"}}};
    const auto error = parseCatalogue(c.bytes, catalogue);
    ASSERT_TRUE(error) << c.says;
    EXPECT_EQ(error->describe(), c.says);
    EXPECT_TRUE(catalogue.empty()) << c.says;
  }
}

TEST(Catalogue, PutsInsertionsIn) {
  const std::vector<std::string> two = {"A%2", "B"};
  EXPECT_EQ(expandInsertions("%1-%2-%1", two), "A%2-B-A%2");
  EXPECT_EQ(expandInsertions("[%3] 5%%", two), "[] 5%");
  EXPECT_EQ(expandInsertions("end%", two), "end%");
}

// An event that is not in the file would reach the operator without its text.
TEST(Catalogue, HoldsEveryEventThatTheSourcesWrite) {
  const fs::path root(KORVANE_SOURCE_DIR);
  Catalogue catalogue;
  const auto error = parseCatalogue(readFile(root / "src/eventlog/catalogue.txt"), catalogue);
  ASSERT_FALSE(error) << error->describe();
  std::set<int> catalogued;
  for (const auto& [id, entry] : catalogue) catalogued.insert(id);

  const auto eachMatch = [](const std::string& text, const std::regex& pattern, auto use) {
    for (std::sregex_iterator i(text.begin(), text.end(), pattern), end; i != end; ++i) use(*i);
  };
  std::map<std::string, int> names;
  std::set<int> named;
  eachMatch(readFile(root / "src/eventlog/event_id.h"), std::regex(R"(\n  (\w+) = (\d+),)"),
            [&](const std::smatch& row) { named.insert(names[row[1]] = std::stoi(row[2])); });
  EXPECT_EQ(named, catalogued);

  const std::regex written(R"(EventId::(\w+)|event\((10[1-9]\d\d)\b)");
  std::set<int> used;
  for (const char* folder : {"src", "host"}) {
    for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
      if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
      eachMatch(readFile(entry.path()), written, [&](const std::smatch& place) {
        used.insert(place[2].matched ? std::stoi(place[2]) : names[place[1]]);
      });
    }
  }
  EXPECT_EQ(used, catalogued);
}

}  // namespace
}  // namespace korvane::eventlog
