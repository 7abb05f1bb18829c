#include <fstream>
#include <sstream>
#include <stdexcept>

#include "config/settings_table.h"
#include "tests/config/config_fixture.h"

namespace korvane {
namespace {

using ValuesTest = ConfigFixture;

// The reference's table row by row: section, key, type, default, accessors.
TEST_F(ValuesTest, TheReferenceListsTheTable) {
  std::ifstream file(KORVANE_INI_REFERENCE);
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("| [") || line.find("(any other key)") != line.npos) continue;
    std::istringstream cells(line.substr(1));
    rows.emplace_back();
    for (std::string cell; std::getline(cells, cell, '|');) {
      rows.back().push_back(STRING(cell).trimmed().toUtf8());
    }
  }
  ASSERT_EQ(rows.size(), settingsTable().size() + 1) << "and the row of the checksum";
  const char* const types[] = {"text",        "bool", "integer", "unsigned",
                               "enumeration", "path", "paths"};
  for (const SettingRow& row : settingsTable()) {
    const auto& cells = rows[static_cast<size_t>(row.key)];
    EXPECT_EQ(cells[0], std::string("[") + row.section + "]");
    EXPECT_EQ(cells[1], std::string("`") + row.name + "`");
    EXPECT_EQ(cells[2], types[static_cast<size_t>(row.type)]) << row.name;
    EXPECT_EQ(cells[3], *row.defaultText ? row.defaultText : "empty") << row.name;
    EXPECT_EQ(config().getValue(row.name), STRING(row.defaultText)) << row.name;
  }
}

TEST_F(ValuesTest, ServerLists) {
  struct Case {
    const char* list;
    int size;
    const char *primary, *next, *afterFailover;
  } const cases[] = {
      {"a,b,c", 3, "a", "b", "c"},
      {" a b , c\t", 2, "ab", "c", "ab"},
      {"solo", 1, "solo", "solo", "solo"},
      {"", 0, "urlhost", "urlhost", "urlhost"},
      {" , ,", 0, "urlhost", "urlhost", "urlhost"},
      {",a,,b,", 2, "a", "b", "a"},
  };
  config().setURL("https://urlhost:4443/agent/");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.list);
    config().setServerLast("old");
    config().setServerList(c.list);
    EXPECT_EQ(config().getServerList(), STRING(c.list));
    EXPECT_EQ(config().getServerListSize(), c.size);
    EXPECT_EQ(config().getServerPrimary(), STRING(c.primary));
    EXPECT_EQ(config().getServerCurrent(), STRING(c.primary));
    EXPECT_EQ(config().getServerNext(), STRING(c.next));
    EXPECT_EQ(config().getServerLast(), STRING("Unknown"));
    if (c.size > 0) {
      EXPECT_EQ(config().getServerEntry(1), STRING(c.primary));
    }
    EXPECT_THROW(config().getServerEntry(0), std::out_of_range);
    EXPECT_THROW(config().getServerEntry(c.size + 1), std::out_of_range);
    // A fail-over: the next one becomes current, and what follows it the next.
    config().setServerCurrent(config().getServerNext());
    config().setServerNext(config().getServerCurrent());
    EXPECT_EQ(config().getServerCurrent(), STRING(c.next));
    EXPECT_EQ(config().getServerNext(), STRING(c.afterFailover));
    const STRING current = config().getServerCurrent();
    config().newConfiguration({{"server.list", c.list}});
    EXPECT_EQ(config().getServerCurrent(), current) << "the same list again changes nothing";
  }
  EXPECT_EQ(restart().getServerPrimary(), STRING("a")) << "the list comes from the file too";
}

TEST_F(ValuesTest, TheUrlsHostIsTheServerOnlyWithoutAList) {
  config().setURL("https://one:44/agent/");
  config().setURLHost("two");
  config().setURLPort("45");
  config().setURLProtocol("http");
  EXPECT_EQ(config().getURL(), STRING("http://two:45/agent/"));
  EXPECT_EQ(config().getServerCurrent(), STRING("two"));
  config().setServerList("a,b");
  config().setURLHost("three");
  EXPECT_EQ(config().getServerCurrent(), STRING("a"));
}

}  // namespace
}  // namespace korvane
