#include "translate-stand-in/source_policy.h"

#include <gtest/gtest.h>

#include "archive/zip_writer.h"
#include "platform/fake/fake_platform.h"
#include "translate-stand-in/source_archive.h"

namespace korvane::translate_stand_in {
namespace {

using Kind = RetransItem::Kind;

constexpr char kHead[] = "korvane-policy 1\nname N\nversion 1\nid i\n";

class SourcePolicyTest : public testing::Test {
 protected:
  Translation translate(const std::string& rules, const RetransItems& previous = {},
                        Target target = Target::driver) {
    return SourcePolicy(machine, previous, target).translate({kHead + rules, {}});
  }

  platform::FakePlatform fake;
  MachineState machine{{fake.files, fake.registry, fake.systemInfo}};
};

TEST_F(SourcePolicyTest, ReferencesBecomeTheMachinesFactsAndItems) {
  fake.systemInfo.variables["WEB"] = "/srv/web";
  fake.systemInfo.addresses = {"192.0.2.2", "192.0.2.1"};
  fake.registry.put("SOFTWARE\\Example", "Port", 8080u);
  fake.files.put("/srv/web/index", "x");
  const struct {
    const char* source;
    std::string rules;
    RetransItems items;
  } cases[] = {
      {"  # left out\n\n\trule deny file web /a\r\n", "rule deny file web /a\n", {}},
      {"rule deny file web $(env:WEB)/*\nrule log file web $(env:WEB)",
       "rule deny file web /srv/web/*\nrule log file web /srv/web\n",
       {{Kind::environment, "", "WEB", true, "/srv/web"}}},
      {"rule log network n $(address):$(registry:SOFTWARE\\Example|Port)",
       "rule log network n 192.0.2.1:8080\nrule log network n 192.0.2.2:8080\n",
       {{Kind::addresses, "", "", true, "192.0.2.1,192.0.2.2"},
        {Kind::registry, "SOFTWARE\\Example", "Port", true, "8080"}}},
      {"when \"$(env:WEB)/index\" rule deny file w /x\nwhen \"/no\" rule deny file w $(env:NO)",
       "rule deny file w /x\n",
       {{Kind::environment, "", "WEB", true, "/srv/web"},
        {Kind::path, "", "/srv/web/index", true, ""},
        {Kind::path, "", "/no", false, ""}}},
      {"rule deny file w $(env:NO)/$(registry:a|b)",
       "",
       {{Kind::environment, "", "NO", false, ""}, {Kind::registry, "a", "b", false, ""}}},
  };
  for (const auto& each : cases) {
    const Translation made = translate(each.source);
    EXPECT_EQ(made.problem, "") << each.source;
    EXPECT_EQ(made.policy, kHead + each.rules);
    EXPECT_EQ(made.items, each.items) << each.source << retransItemsText(made.items);
    EXPECT_EQ(translate(each.source).policy, made.policy);
  }
}

TEST_F(SourcePolicyTest, WhatIsMissingIsTakenFromTheItemsBefore) {
  const RetransItems before = {{Kind::environment, "", "GONE", true, "/old"},
                               {Kind::registry, "K", "Root", false, "/older"},
                               {Kind::environment, "", "HERE", true, "/stale"}};
  fake.systemInfo.variables["HERE"] = "/now";
  const Translation made =
      translate("rule deny file a $(env:GONE)$(registry:K|Root)$(env:HERE)\n", before);
  EXPECT_EQ(made.policy, std::string(kHead) + "rule deny file a /old/older/now\n");
  EXPECT_EQ(made.items, (RetransItems{{Kind::environment, "", "GONE", false, "/old"},
                                      {Kind::registry, "K", "Root", false, "/older"},
                                      {Kind::environment, "", "HERE", true, "/now"}}))
      << "the check compares with what the machine says, so what is kept is no change";
}

TEST_F(SourcePolicyTest, TroubleIsReadAndTheIdsHasItsOwnForm) {
  const Translation failing = translate("stand-in fail 7 The base is unknown \nstand-in hang\n");
  EXPECT_EQ(failing.trouble.kind, Trouble::Kind::fail);
  EXPECT_EQ(failing.trouble.code, 7);
  EXPECT_EQ(failing.trouble.text, "The base is unknown");
  EXPECT_EQ(failing.policy, kHead);
  const std::string source = "stand-in ids-answer refuse 12 No\nrule deny file a b\n";
  EXPECT_EQ(translate(source).policy, std::string(kHead) + "rule deny file a b\n");
  EXPECT_EQ(translate(source, {}, Target::ids).policy,
            "korvane-ids-policy 1\nname N\nversion 1\nid i\nrule deny file a b\n"
            "answer refuse 12 No\n");
}

TEST_F(SourcePolicyTest, ApplicationsAddTheirRulesInTheOrderOfTheirNames) {
  const auto translated = [this](const std::vector<std::pair<std::string, std::string>>& entries) {
    archive::ZipWriter zip("a.zip");
    archive::Refusal refusal;
    EXPECT_TRUE(zip.add(kPolicyEntry, std::string(kHead) + "rule deny file base /b\n", refusal));
    for (const auto& [name, text] : entries) EXPECT_TRUE(zip.add(name, text, refusal));
    Source source;
    Translation made;
    if (unpackPolicy("a.zip", zip.finish(), source, made.problem))
      made = SourcePolicy(machine, {}, Target::driver).translate(source);
    return made.problem.empty() ? made.policy.substr(sizeof kHead - 1) : made.problem;
  };
  const std::string first = "korvane-application 1\n";
  EXPECT_EQ(translated({{"applications/web/policy.txt", first + "rule deny file web /w\n"},
                        {"applications/mail/other", "counts for nothing"},
                        {"applications/mail/policy.txt", first + "#\nrule deny file mail /m"}}),
            "rule deny file base /b\nrule deny file mail /m\nrule deny file web /w\n");
  const struct {
    std::string text;
    const char* problem;
  } cases[] = {
      {"rule deny file a /a", "line 1 of applications/a/policy.txt: the first line must be"},
      {first + "\nname N",
       "line 3 of applications/a/policy.txt: an application's policy has rules"},
      {first + "rule what", "line 2 of applications/a/policy.txt: "},
  };
  for (const auto& each : cases)
    EXPECT_NE(translated({{"applications/a/policy.txt", each.text}}).find(each.problem),
              std::string::npos)
        << translated({{"applications/a/policy.txt", each.text}});
  EXPECT_NE(translated({{"applications/a/b", ""}}).find("applications/a/policy.txt"),
            std::string::npos);
}

TEST(SourceArchive, ComesBackAndIsTheSameForTheSameText) {
  Source source;
  std::string reason;
  for (const std::string& each : {std::string(), std::string(kHead), std::string(70000, '\xff')}) {
    const std::string archive = packPolicy(each);
    EXPECT_EQ(archive, packPolicy(each));
    ASSERT_TRUE(unpackPolicy("a.zip", archive, source, reason)) << reason;
    EXPECT_EQ(source.text, each);
    EXPECT_FALSE(unpackPolicy("a.zip", archive.substr(0, archive.size() - 5), source, reason));
    EXPECT_NE(reason.find("a.zip"), std::string::npos);
  }
}

}  // namespace
}  // namespace korvane::translate_stand_in
