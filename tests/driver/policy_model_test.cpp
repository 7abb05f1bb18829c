#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "stand-in-policy/driver_control.h"
#include "stand-in-policy/policy_model.h"

namespace {

const std::string kHead = "korvane-policy 1\nname Web\nversion 3.2\nid x-1\n";

std::u16string wide(const uint16_t* text) {
  std::u16string out;
  while (*text != 0) out += static_cast<char16_t>(*text++);
  return out;
}

class PolicyModelTest : public testing::Test {
 protected:
  // "" when the text is a policy, otherwise "LINE: reason".
  std::string problem(const std::string& text) {
    kvp_error error{};
    if (kvp_parse(text.data(), text.size(), &driver->candidate, &error) == 0) return "";
    return std::to_string(error.line) + ": " + error.reason;
  }

  std::unique_ptr<kvp_driver> driver = std::make_unique<kvp_driver>();
};

TEST_F(PolicyModelTest, APolicyIsReadWithItsLimits) {
  EXPECT_EQ(
      problem(
          "# made by hand\r\n\r\nkorvane-policy 1\r\n  id\tx-1 \r\nversion 3.2\r\nname W\xc3\xa4 "
          "b\r\n"
          "rule deny file web C:\\a b\\*\r\nrule log network mail any\nrule allow process web *"),
      "");
  const kvp_policy& policy = driver->candidate;
  EXPECT_EQ(wide(policy.name), u"W\u00e4 b");
  EXPECT_EQ(wide(policy.version), u"3.2");
  EXPECT_EQ(wide(policy.id), u"x-1");
  EXPECT_EQ(policy.rules, 3u);
  ASSERT_EQ(policy.sets, 2u);
  EXPECT_EQ(wide(policy.set[0].name), u"web");
  EXPECT_EQ(policy.set[0].rules, 2u);

  const std::string longest(127, 'n');
  EXPECT_EQ(problem("korvane-policy 1\nname " + longest + "\nversion " + longest + "\nid " +
                    std::string(255, 'i')),
            "");
  std::string rules = kHead;
  for (int i = 0; i < 4096; ++i) rules += "rule deny file s" + std::to_string(i % 256) + " *\n";
  EXPECT_EQ(problem(rules), "");
  EXPECT_EQ(problem(rules + "rule deny file s0 *"), "4101: too many rules");
}

TEST_F(PolicyModelTest, WhatIsMalformedIsToldWithItsLine) {
  const std::string emoji = "\xF0\x9F\x98\x80";  // two UTF-16 units
  std::string sets = kHead;
  for (int i = 0; i < 257; ++i) sets += "rule deny file s" + std::to_string(i) + " *\n";
  const std::pair<std::string, const char*> cases[] = {
      {"", "0: the policy is empty"},
      {"\n#\n", "0: the policy is empty"},
      {"korvane-policy 2\n", "1: not a policy of format 1"},
      {"korvane-policy 1\nname a\nversion 1\n", "0: name, version or id is missing"},
      {"korvane-policy 1\nname a\nname b\n", "3: given twice"},
      {"korvane-policy 1\nname \n", "2: the value is missing"},
      {"korvane-policy 1\nname " + std::string(128, 'n'), "2: the value is malformed or too long"},
      {"korvane-policy 1\nname " + std::string(126, 'n') + emoji,
       "2: the value is malformed or too long"},
      {"korvane-policy 1\nname \xC0\x80", "2: the value is malformed or too long"},
      {"korvane-policy 1\nname \xED\xA0\x80", "2: the value is malformed or too long"},
      {"korvane-policy 1\nname a\xE2\x82", "2: the value is malformed or too long"},
      {std::string("korvane-policy 1\nname a\0b", 25), "2: the value is malformed or too long"},
      {"korvane-policy 1\nrule deny file a *",
       "2: name, version and id must precede the first rule"},
      {kHead + "\nfrobnicate", "6: unknown word"},
      {kHead + "rule forbid file a *", "5: unknown action"},
      {kHead + "rule deny disk a *", "5: unknown kind of resource"},
      {kHead + "rule deny file a", "5: the rule is incomplete"},
      {kHead + "rule refuse", "5: the rule is incomplete"},
      {kHead + "rule refuse a\nrule refuse b", "6: a second rule that refuses"},
      {kHead + "rule refuse " + std::string(256, 'r'), "5: the text is malformed or too long"},
      {kHead + "rule deny file " + std::string(62, 's') + " *",
       "5: the process set's name is malformed or too long"},
      {kHead + "rule deny file a \xFF", "5: the pattern is malformed"},
      {kHead + "rule deny file a " + std::string(2048, 'p'), "5: the line is too long"},
      {sets, "261: too many process sets"},
      {std::string(1048577, '\n'), "0: the policy is too large"},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(problem(text), expected) << text.substr(0, 200);
}

TEST_F(PolicyModelTest, ARefusedPolicyLeavesTheOneBeforeInForce) {
  const auto load = [this](const std::string& text) {
    return kvp_load(driver.get(), text.data(), text.size());
  };
  std::vector<uint8_t> record(1028, 0xEE);
  kvp_policy_record(driver.get(), record.data());
  EXPECT_EQ(record[0], 1) << "built-in at first";
  ASSERT_EQ(load(kHead + "rule deny file web *\n"), 0);
  EXPECT_EQ(load(kHead + "rule refuse No \xe2\x82\xac today\n"), 1);
  EXPECT_EQ(wide(driver->refusal_text), u"No \u20ac today");
  EXPECT_EQ(load("korvane-policy 1\nnome x\n"), 1);
  EXPECT_EQ(wide(driver->refusal_text), u"The policy is malformed in line 2: unknown word");
  kvp_policy_record(driver.get(), record.data());
  EXPECT_EQ(record[0], 0);
  EXPECT_EQ(std::string(record.begin() + 4, record.begin() + 12), std::string("W\0e\0b\0\0\0", 8));
  EXPECT_EQ(record[260], '3');
  EXPECT_EQ(record[516], 'x');

  std::vector<uint8_t> refusal(516, 0xEE);
  kvp_refuse(driver.get(), KVP_NO_FILE, std::string(255, 'r').c_str());
  kvp_refusal_record(driver.get(), refusal.data());
  EXPECT_EQ(refusal[0], 1);
  EXPECT_EQ(refusal[512], 'r');
  EXPECT_EQ(refusal[514], 0) << "the text ends within the record";
}

}  // namespace
