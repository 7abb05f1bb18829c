// What `agentctl config check` says, line by line.
#include "agentctl/ini_check.h"

#include <gtest/gtest.h>

#include "config/ini_text.h"
#include "config/value_map.h"

namespace korvane::agentctl {
namespace {

std::string said(std::string_view bytes, bool needsChecksum = false) {
  std::string out;
  for (const IniFinding& finding : checkIni(bytes, needsChecksum))
    out += std::to_string(finding.line) + (finding.error ? " E " : " W ") + finding.text + "\n";
  return out;
}

struct Case {
  const char* name;
  std::string file;
  std::string expected;
};

class IniCheck : public testing::TestWithParam<Case> {};

TEST_P(IniCheck, NamesLineAndReason) {
  EXPECT_EQ(said(GetParam().file), GetParam().expected);
}

const std::string kDamaged = "; the agent ignores such a file\n";

INSTANTIATE_TEST_SUITE_P(
    Files, IniCheck,
    testing::Values(
        Case{"nothing", "", ""},
        Case{"markCommentsAndCrLf", "\xEF\xBB\xBF# a\r\n; b\r\n\r\n[Agent]\r\nagent.name = x\r\n",
             ""},
        Case{"keyLines", "[Agent]\nagent.name\n=x\nagent.name=a\nagent.name=b\n",
             "2 E no \"=\"; the line is skipped: agent.name\n"
             "3 E no key before the \"=\"; the line is skipped\n"
             "5 E agent.name is already set in line 4; that one is used and this one is dropped\n"},
        Case{"sections", "[agent]\n[Log\n[Polling]\nagent.name=x\n",
             "1 W unknown section [agent]; its keys are still read; did you mean Agent?\n"
             "2 E a section header without \"]\"; the line is skipped\n"
             "4 W agent.name belongs to [Agent]; it is read here as well\n"},
        Case{
            "unknownKeys", "[Polling]\npolling.intervall=5\n[Other]\nvendor.key=1\n",
            "2 W unknown key polling.intervall, kept in [Other]; did you mean polling.interval?\n"},
        Case{"types",
             "[Polling]\npolling.enabled=yes\npolling.interval=-1\nfailback.interval=4294967296\n"
             "[IDS]\nids.signal.timeout=2147483648\n[TCP]\ntcp.port=65536\n",
             "2 E polling.enabled: \"yes\" is neither true nor false\n"
             "3 E polling.interval: \"-1\" is not a number from 0 to 4294967295\n"
             "4 E failback.interval: \"4294967296\" is not a number from 0 to 4294967295\n"
             "6 E ids.signal.timeout: \"2147483648\" is not a number from -2147483648 to "
             "2147483647\n"
             "8 E tcp.port: \"65536\" is not a port from 0 to 65535\n"},
        Case{"emptyIsTheDefault",
             "[Polling]\npolling.enabled=\npolling.interval=\n[Log]\nlog.rollover.cause=\n", ""},
        Case{"meanings",
             "[Agent]\nagent.http.url=http://"
             "server\n[Log]\nlog.priority=urgent\nlog.disk.upperlimit=101\n"
             "[System]\nupdate.signing.keys=signers.pem\nupdate.signing.minimum=17\n",
             "2 W agent.http.url: \"http://server\" does not begin with https://\n"
             "4 W log.priority: \"urgent\" is not low, norm or high\n"
             "5 W log.disk.upperlimit: \"101\" is not from 0 to 100\n"
             "7 W update.signing.keys: \"signers.pem\" is not a full path\n"
             "8 W update.signing.minimum: \"17\" is not from 1 to 16\n"},
        Case{"checksum",
             "[Agent]\nagent.name=x\nagentini.checksum=1\n[Checksum]\nagentini.checksum=12ab\nx="
             "1\n[Log]\n",
             "3 E agentini.checksum is only valid below [Checksum]; the line is skipped\n"
             "5 E the checksum does not match the lines above: the whole file counts as damaged; "
             "after editing by hand set "
             "agentini.checksum=Not Computed\n"
             "6 E x stands below [Checksum], where nothing is read\n"
             "7 E a section below [Checksum], where nothing is read\n"},
        Case{"notComputed", "[Agent]\nagent.name=x\n[Checksum]\nagentini.checksum=Not Computed\n",
             ""},
        Case{"controls", "[Agent]\nagent.name=a\x01z\n",
             "2 W the value of agent.name holds control characters, which become blanks\n"},
        Case{"nul", std::string("[Agent]\nagent.name=a\0b\n", 22), "2 E a NUL byte" + kDamaged},
        Case{"latin1", "[Agent]\n\nagent.name=M\xFCller\n",
             "3 E bytes that are not UTF-8" + kDamaged},
        Case{"utf16", std::string("\xFF\xFE[\0A\0", 6),
             "1 E the file is UTF-16 and must be UTF-8" + kDamaged},
        Case{"longKey", "[Other]\n" + std::string(257, 'k') + "=1\n",
             "2 E a key of 257 bytes, more than 256; the line is skipped\n"},
        Case{"longValue", "[Agent]\nagent.name=" + std::string(65537, 'v') + "\n",
             "2 E agent.name: \"" + std::string(60, 'v') + "...\" is too long\n"}),
    [](const auto& one) { return one.param.name; });

TEST(IniCheckWholeFile, WhatTheStoreWritesIsClean) {
  IniWriter writer("\r\n");
  const ValueMap settings(MapKind::settings), communication(MapKind::communication);
  for (const SettingRow& row : settingsTable()) {
    writer.section(row.section);
    writer.value(row.name,
                 (mapKindOf(row) == MapKind::settings ? settings : communication).text(row.key));
  }
  EXPECT_EQ(said(writer.finish(), /*needsChecksum=*/true), "");
}

TEST(IniCheckWholeFile, AChecksumIsNeededBesideAFallback) {
  EXPECT_EQ(said("[Agent]\nagent.name=x\n", true),
            "2 E no agentini.checksum below [Checksum] while there is a fallback.ini: the whole "
            "file counts as damaged\n");
}

TEST(IniCheckWholeFile, BoundsOfTheStore) {
  std::string many = "[Other]\n";
  for (int i = 0; i < 1002; ++i) many += "k" + std::to_string(i) + "=1\n";
  EXPECT_EQ(said(many),
            "1002 E more than 1000 keys outside the known sections; this one and those below are "
            "dropped\n");
  EXPECT_EQ(said(std::string((4u << 20) + 1, ' ')),
            "1 E the file has 4194305 bytes, more than 4194304" + kDamaged);
}

}  // namespace
}  // namespace korvane::agentctl
