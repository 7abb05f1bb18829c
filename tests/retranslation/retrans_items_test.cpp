#include "update/policy/retrans_items.h"

#include <gtest/gtest.h>

namespace korvane {
namespace {

using Kind = RetransItem::Kind;

std::string described(std::string_view text) {
  RetransItems items = {{Kind::path, "", "left over", true, ""}};
  ItemsProblem problem;
  if (parseRetransItems(text, items, problem)) return "read " + std::to_string(items.size());
  EXPECT_TRUE(items.empty()) << "nothing is kept of a damaged file";
  return std::to_string(problem.line) + ": " + problem.reason;
}

TEST(RetransItems, ComeBackAsTheyWereWritten) {
  const RetransItems items = {
      {Kind::path, "", "C:\\Program Files\\\xc3\xa4%20", true, ""},
      {Kind::path, "", "/none", false, ""},
      {Kind::environment, "", "PATH", true, "a;b\tc\nd%"},
      {Kind::environment, "", "NONE", false, ""},
      {Kind::registry, "SOFTWARE\\Example", "Root", true, ""},
      {Kind::registry, "SOFTWARE\\Example", "", false, "last known"},
      {Kind::addresses, "", "", true, "192.0.2.1,192.0.2.2"},
      {Kind::addresses, "", "", true, ""},
  };
  const std::string text = retransItemsText(items);
  RetransItems again;
  ItemsProblem problem;
  ASSERT_TRUE(parseRetransItems(text, again, problem)) << problem.line << problem.reason;
  EXPECT_EQ(again, items);
  std::string withCr;
  for (const char c : text) withCr += c == '\n' ? "\r\n" : std::string{c};
  EXPECT_TRUE(parseRetransItems(withCr, again, problem));
  EXPECT_EQ(again, items);
  for (size_t size = 0; size + 1 < text.size(); ++size)
    EXPECT_FALSE(parseRetransItems(text.substr(0, size), again, problem)) << "cut at " << size;
}

TEST(RetransItems, WhatIsDamagedIsToldWithItsLine) {
  const std::string first = "korvane-items 1\n";
  const std::string item = "path\tpresent\t/a\n";
  std::string many = first;
  for (size_t i = 0; i <= kMaxItems; ++i) many += item;
  const struct {
    std::string text;
    const char* says;
  } cases[] = {
      {"", "1: not an items file of format 1"},
      {"korvane-items 2\nend 0\n", "1: not an items file of format 1"},
      {first, "0: the last line is missing"},
      {first + item + "end 2\n", "3: the number of items does not match"},
      {first + "end 0\n\n", "2: there is data after the last line"},
      {first + "\nend 0\n", "2: an unknown kind of item"},
      {first + "service\tpresent\tx\nend 1\n", "2: an unknown kind of item"},
      {first + "path\tthere\t/a\nend 1\n", "2: an unknown state"},
      {first + "path\tpresent\nend 1\n", "2: wrong number of fields"},
      {first + "path\tpresent\t\nend 1\n", "2: wrong number of fields"},
      {first + "path\tpresent\t/a\tb\nend 1\n", "2: wrong number of fields"},
      {first + "environment\tpresent\nend 1\n", "2: wrong number of fields"},
      {first + "environment\tpresent\t\tb\nend 1\n", "2: an item without a name"},
      {first + "registry\tpresent\ta\tb\tc\td\te\tf\nend 1\n", "2: wrong number of fields"},
      {first + "path\tpresent\t/a%2\nend 1\n", "2: a malformed field"},
      {first + "path\tpresent\t/a%zz\nend 1\n", "2: a malformed field"},
      {first + "path\tpresent\t/a%00\nend 1\n", "2: a malformed field"},
      {first + "path\tpresent\t/a\x07\nend 1\n", "2: a malformed field"},
      {first + "path\tpresent\t\xff\nend 1\n", "2: a malformed field"},
      {first + "path\tpresent\t" + std::string(kMaxItemFieldBytes + 1, 'a') + "\nend 1\n",
       "2: a malformed field"},
      {many, "4098: too many items"},
      {std::string(kMaxItemsBytes + 1, '\n'), "0: the file is too large"},
      {first + item + "end 1\n", "read 1"},
  };
  for (const auto& each : cases) EXPECT_EQ(described(each.text), each.says) << each.text.size();
}

TEST(RetransItems, AddressesCountOnceInOneOrder) {
  EXPECT_EQ(addressList({"192.0.2.9", "10.0.0.1", "192.0.2.9"}), "10.0.0.1,192.0.2.9");
  EXPECT_EQ(addressList({}), "");
}

}  // namespace
}  // namespace korvane
