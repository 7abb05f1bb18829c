#include <stdexcept>

#include "config/settings_table.h"
#include "tests/config/config_fixture.h"

namespace korvane {
namespace {

using ValuesTest = ConfigFixture;

TEST_F(ValuesTest, WithoutAFileEachKeyHasTheDefaultOfItsRow) {
  for (const SettingRow& row : settingsTable()) {
    EXPECT_EQ(config().getValue(row.name), STRING(row.defaultText)) << row.name;
    EXPECT_EQ(findRow(row.name), &row) << "two keys of one name";
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
      {"ann:pw@x, a,bob@y,b", 2, "a", "b", "a"},
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
