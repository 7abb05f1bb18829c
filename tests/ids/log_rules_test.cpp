#include "ids/log_rules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "platform/fake/fake_platform.h"
#include "platform/fake/faulty_files.h"
#include "platform/fake/recording_files.h"

namespace korvane {
namespace {

constexpr char kFile[] = "/opt/agent/IPS/log.rules";
const PropertyList kRules = {{"Log.b", "TFIL,TREG:1"}, {"Log.a", "*:0"}};

// What an event's rule says; its values are v1, v5 and a1.
std::string verdict(const PropertyList& pairs, std::string_view type, std::string_view v5 = {},
                    std::string_view a1 = {}) {
  RefusedRule refused;
  const auto set = LogRuleSet::parse(pairs, refused);
  if (!set) return refused.name.toUtf8() + ": " + refused.reason;
  const bool forwards = set->forwards([&](size_t n) -> std::string_view {
    return n == 1 ? type : n == 5 ? v5 : n == LogRuleSet::kNoteBase + 1 ? a1 : std::string_view();
  });
  return forwards ? "forwarded" : "kept back";
}

TEST(LogRuleSet, TheFirstRuleThatAnEventSatisfiesDecides) {
  EXPECT_EQ(verdict({}, "TFIL"), "forwarded");
  EXPECT_EQ(verdict(kRules, "TREG"), "forwarded");
  EXPECT_EQ(verdict(kRules, "TNET"), "kept back");
  EXPECT_EQ(verdict({kRules[1], kRules[0]}, "TREG"), "kept back");
  const PropertyList several = {{"Log.1", " TFIL ; v5 = C:\\a:b=c ; a1=here : 0 "},
                                {"Log.2", "*;v5=:1"},
                                {"Log.3", "*;v5=x;v49=y:1"},
                                {"Log.4", "DMON:0"}};
  EXPECT_EQ(verdict(several, "TFIL", "C:\\a:b=c", "here"), "kept back");
  EXPECT_EQ(verdict(several, "TFIL", "C:\\A:b=c", "here"), "forwarded");
  EXPECT_EQ(verdict(several, "TFIL", "C:\\a:b=c", "there"), "forwarded");
  EXPECT_EQ(verdict(several, "DMON"), "forwarded") << "the one about events without a v5";
  EXPECT_EQ(verdict(several, "DMON", "x"), "kept back");
}

TEST(LogRuleSet, IsRefusedWholeForOneThatIsNone) {
  const std::string many(4100, 'x');
  std::string types = "TAAA";
  for (int i = 0; i < 64; ++i) types += ",TAAA";
  const struct {
    std::string value, reason;
  } cases[] = {
      {"", "it does not end with :0 or :1"},
      {"TFIL", "it does not end with :0 or :1"},
      {"TFIL:2", "it does not end with :0 or :1"},
      {":1", "\"\" is no event type"},
      {"TFIL,:1", "\"\" is no event type"},
      {"TFI:1", "\"TFI\" is no event type"},
      {"XFIL:1", "\"XFIL\" is no event type"},
      {"*,TFIL:1", "\"*\" is no event type"},
      {types + ":1", "it names more than 64 event types"},
      {"*;:1", "\"\" is no name=value"},
      {"*; v5:1", "\"v5\" is no name=value"},
      {"*; v0=x:1", "\"v0\" is none of v1 to v49 and a1 to a4"},
      {"*; v05=x:1", "\"v05\" is none of v1 to v49 and a1 to a4"},
      {"*; v50=x:1", "\"v50\" is none of v1 to v49 and a1 to a4"},
      {"*; a5=x:1", "\"a5\" is none of v1 to v49 and a1 to a4"},
      {"*; b1=x:1", "\"b1\" is none of v1 to v49 and a1 to a4"},
      {"*; v5=x; v5=y:1", "it names v5 twice"},
      {"*; v5=" + many + ":1", "it is longer than 4096 characters"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(verdict({kRules[0], {"Log.bad", STRING(c.value)}, kRules[1]}, "TFIL"),
              "Log.bad: " + c.reason);
  EXPECT_EQ(verdict({kRules[0], kRules[1], kRules[0]}, "TFIL"), "Log.b: its name comes twice");
  PropertyList pairs;
  for (int i = 0; i < 1000; ++i) pairs.emplace_back("Log." + STRING::fromInt(i), "*:0");
  EXPECT_EQ(verdict(pairs, "TFIL"), "kept back");
  pairs.emplace_back("Log.last", "*:0");
  EXPECT_EQ(verdict(pairs, "TFIL"), "Log.last: there are more than 1000 rules");
  EXPECT_EQ(verdict({{STRING(std::string(257, 'n')), "*:0"}}, "T").substr(257),
            ": its name is longer than 256 characters");
}

class LogRulesTest : public testing::Test {
 protected:
  LogRulesTest() { fake.files.makeDirectories("/opt/agent/IPS"); }
  static std::string inForce(LogRules& rules) {
    const auto set = rules.current();
    return set ? std::to_string(set->size()) : "none";
  }
  std::string atStart() {
    LogRules rules(fake.files, kFile);
    return inForce(rules);
  }

  platform::SimThreading sim{3};
  platform::FakePlatform fake{sim};
  platform::CurrentPlatform current{fake.platform()};
  RefusedRule refused;
  int error = 0;
};

TEST_F(LogRulesTest, KeepsTheLastSetThatCouldBeUsedAndWritten) {
  LogRules rules(fake.files, kFile);
  EXPECT_EQ(inForce(rules), "none");
  EXPECT_EQ(rules.replace(kRules, refused, error), LogRules::Outcome::inForce);
  EXPECT_EQ(fake.files.content(kFile), "korvane-log-rules 1 2\nLog.b=TFIL,TREG:1\nLog.a=*:0\n");
  EXPECT_EQ(inForce(rules) + atStart(), "22");
  EXPECT_EQ(rules.replace({{"Log.x", "no"}}, refused, error), LogRules::Outcome::refused);
  EXPECT_EQ(refused.name, STRING("Log.x"));
  platform::FaultyFiles full(fake.files);
  full.failAll(platform::FileOperation::write, ENOSPC);
  LogRules unwritten(full, kFile);
  EXPECT_EQ(unwritten.replace({kRules[1]}, refused, error), LogRules::Outcome::notWritten);
  EXPECT_EQ(error, ENOSPC);
  EXPECT_EQ(inForce(unwritten) + inForce(rules) + atStart(), "222");
}

TEST_F(LogRulesTest, TheLargestSetIsFoundAgain) {
  std::string value = "*; v5=";
  for (int i = 0; i < 4000; ++i) value += "\u6f22";
  PropertyList pairs;
  for (int i = 0; i < 1000; ++i)
    pairs.emplace_back("Log." + STRING::fromInt(i), STRING(value + ":0"));
  LogRules rules(fake.files, kFile);
  ASSERT_EQ(rules.replace(pairs, refused, error), LogRules::Outcome::inForce);
  EXPECT_EQ(atStart(), "1000");
}

// After a crash at any instant the set that was promised last is in force, or the one being written;
// and no flush can be left out.
TEST_F(LogRulesTest, SurvivesACrashAtAnyInstant) {
  platform::RecordingFiles recorded(fake.files);
  std::vector<size_t> promised;  // the journal's length behind the set of one rule more each
  LogRules writing(recorded, kFile);
  PropertyList pairs;
  for (const char* name : {"Log.1", "Log.2", "Log.3"}) {
    pairs.emplace_back(name, "*:0");
    ASSERT_EQ(writing.replace(pairs, refused, error), LogRules::Outcome::inForce);
    promised.push_back(recorded.size());
  }
  int states = 0;
  const auto broken = [&] {
    int count = 0;
    for (size_t entries = 0; entries <= recorded.size(); ++entries)
      recorded.forEachCrashAfter(entries, [&](const std::string&, platform::MemoryFiles& disk) {
        LogRules rules(disk, kFile);
        const auto set = rules.current();
        const size_t found = set ? set->size() : 0;
        const auto safe = static_cast<size_t>(
            std::ranges::count_if(promised, [&](size_t at) { return at <= entries; }));
        count += found < safe || found > safe + 1;
        ++states;
      });
    return count;
  };
  EXPECT_EQ(broken(), 0);
  std::printf("%d states of log.rules\n", states);
  for (size_t flush = 0; flush < recorded.flushes(); ++flush) {
    recorded.leaveOutFlush(flush);
    EXPECT_GT(broken(), 0) << recorded.describeFlush(flush);
  }
}

TEST_F(LogRulesTest, AFileThatIsNotWholeCountsAsNone) {
  const std::string whole = "korvane-log-rules 1 2\nLog.b=TFIL,TREG:1\nLog.a=*:0\n";
  fake.files.put(kFile, whole);
  EXPECT_EQ(atStart(), "2");
  // A cut never leaves fewer rules, which would keep back or forward something else.
  for (size_t length = 0; length < whole.size(); ++length) {
    fake.files.put(kFile, whole.substr(0, length));
    EXPECT_EQ(atStart(), "none") << length;
  }
  for (const char* bad :
       {"korvane-log-rules 2 1\nLog.a=*:0\n", "korvane-log-rules 1 x\nLog.a=*:0\n",
        "korvane-log-rules 1 1\nLog.a=*:9\n", "korvane-log-rules 1 1\nLog.a\n",
        "korvane-log-rules 1 1\nLog.a=*:0\nLog.b=*:0\n"}) {
    fake.files.put(kFile, bad);
    EXPECT_EQ(atStart(), "none") << bad;
  }
}

}  // namespace
}  // namespace korvane
