#include "config/refused_settings.h"
#include "config/settings.h"
#include "config/settings_table.h"
#include "tests/config/config_fixture.h"
#include "tests/support/logged_events.h"

namespace korvane {
namespace {

using platform::FileOperation;
using WritingTest = ConfigFixture;

IniText onDisk(platform::MemoryFiles& files, const char* path) {
  IniText text;
  EXPECT_TRUE(parseIniText(files.content(path), text));
  EXPECT_TRUE(text.hasChecksum && checksumHolds(text, false)) << path;
  return text;
}

std::string valueOnDisk(platform::MemoryFiles& files, const char* key,
                        const char* path = kAgentIni) {
  return propertyValue(onDisk(files, path).values, key).toUtf8();
}

TEST_F(WritingTest, ASetterHasWrittenWhenItReturns) {
  config().setUniqueId("guid-1");
  EXPECT_EQ(valueOnDisk(fake.files, "agent.id"), "guid-1");
  config().setPollingInterval(17);
  EXPECT_EQ(valueOnDisk(fake.files, "polling.interval"), "17");
  config().setAppDataRequested(true);
  EXPECT_EQ(valueOnDisk(fake.files, "appdata.requested"), "true");
  EXPECT_EQ(writes(), 3);
  config().setPollingInterval(17);
  EXPECT_TRUE(config().updateIniFile());
  EXPECT_TRUE(config().updateIniFile(nullptr, nullptr, STRING()));
  config().loadIniFile();
  EXPECT_EQ(writes(), 3) << "nothing changed, nothing is written";
  EXPECT_TRUE(config().updateIniFile(false, true, STRING()));
  EXPECT_EQ(writes(), 4) << "unless it is forced";
}

TEST_F(WritingTest, AGroupIsOneWriteAndAGroupThatEndsAsItBeganIsNone) {
  config().setPolicyError(0x400, "IPS Enabled. ");
  int before = writes();
  {
    const AgentConfig::ChangeGroup outer(config());
    config().setPlusID("id");
    {
      const AgentConfig::ChangeGroup inner(config());
      config().setPlusVersion("policy 1");
    }
    EXPECT_EQ(writes(), before);
  }
  EXPECT_EQ(writes(), ++before);
  settingsOf(config()).policy.setPolicyIdentity("other", "policy 2");
  EXPECT_EQ(writes(), ++before) << "a power cut leaves both of one policy";
  {
    const AgentConfig::ChangeGroup group(config());
    config().setPolicyError(0x800, "other");
    config().setPolicyError(0x400, "IPS Enabled. ");
  }
  EXPECT_EQ(writes(), before);
  EXPECT_TRUE(
      config().newConfiguration({{"polling.interval", "61"}, {"tcp.port", "99"}, {"x.y", "z"}}));
  EXPECT_EQ(writes(), before + 1);
}

TEST_F(WritingTest, TheFileHasEveryKeyInTheOrderOfTheTable) {
  config().setValue("zebra", "1");
  std::string expected, open;
  for (const SettingRow& row : settingsTable()) {
    if (open != row.section) {
      open = row.section;
      if (open == kSectionAfterOther) expected += "[Other]\nzebra=1\n";
      expected += "[" + open + "]\n";
    }
    expected += std::string(row.name) + "=" + row.defaultText + "\n";
  }
  EXPECT_EQ(fake.files.content(kAgentIni), withChecksum(expected));
  EXPECT_EQ(config().exportConfigData(), STRING(withChecksum(expected)));
}

TEST_F(WritingTest, AnotherProgramsChangeIsMergedNotOverwritten) {
  config().setAgentName("first");
  config().setValue("site", "north");
  IniText text = onDisk(fake.files, kAgentIni);
  std::string edited;
  for (const auto& [key, value] : text.values) {
    if (key == "site") continue;  // taken out by the other program
    edited += key.toUtf8() + "=" + (key == "tcp.port" ? "777" : value.toUtf8()) + "\n";
  }
  edited += "rack=7\n";
  put(kAgentIni, withChecksum(edited));
  config().setAgentName("second");  // written without a reload in between
  EXPECT_EQ(valueOnDisk(fake.files, "agent.name"), "second");
  EXPECT_EQ(valueOnDisk(fake.files, "tcp.port"), "777");
  EXPECT_EQ(valueOnDisk(fake.files, "rack"), "7");
  EXPECT_EQ(config().getTCPNotificationPort(), 777);
  EXPECT_FALSE(config().hasValue("site"));
}

TEST_F(WritingTest, ADamagedFileThatAWriteFindsIsKeptAside) {
  config().setAgentName("first");
  put(kAgentIni, "[Agent]\nagent.name=theirs\n[Checksum]\nagentini.checksum=0\n");
  const std::string damaged = fake.files.content(kAgentIni);
  config().setAgentName("second");
  EXPECT_EQ(valueOnDisk(fake.files, "agent.name"), "second");
  ASSERT_EQ(damagedCopies().size(), 1u);
  EXPECT_EQ(fake.files.content(damagedCopies()[0]), damaged);
}

TEST_F(WritingTest, WhatAnotherProgramTakesOutGivesItsRoomBack) {
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 8; ++i)
      EXPECT_TRUE(config().setValue("k" + std::to_string(i), std::string(60000, 'x'))) << round;
    put(kAgentIni, withChecksum("agent.name=n\n"));
    EXPECT_TRUE(config().loadIniFile());
    EXPECT_FALSE(config().hasValue("k0"));
  }
}

TEST_F(WritingTest, SeveralSettingsAreOneChangeOrNone) {
  using enum ChangeAll;
  STRING refusedKey;
  const auto values = [this] {
    return (config().getAgentName() + "/" + config().getValue("polling.interval")).toUtf8();
  };
  const PropertyList changes{{"agent.name", "1"}, {"polling.interval", "61"}, {"agent.name", "2"}};
  PropertyList bad = changes;
  bad.emplace_back("tcp.port", "none");
  config().setAgentName("before");
  EXPECT_EQ(config().changeAll(bad, refusedKey), refused);
  EXPECT_EQ(refusedKey, STRING("tcp.port"));
  EXPECT_EQ(values(), "before/300");
  files.failAll(FileOperation::replace, ENOSPC);
  EXPECT_EQ(config().changeAll(changes, refusedKey), notWritten);
  EXPECT_EQ(values(), "before/300") << "nor in memory";
  files.heal();
  EXPECT_EQ(config().changeAll(changes, refusedKey), done);
  EXPECT_EQ(values(), "2/61");
  EXPECT_EQ(valueOnDisk(fake.files, "agent.name"), "2");
}

TEST_F(WritingTest, BothSidesOfAConflictAndAFailedWrite) {
  config().setAgentName("before");
  files.failAll(FileOperation::replace, ENOSPC);
  config().setAgentName("ours");
  config().setPlusID("ours too");
  EXPECT_EQ(valueOnDisk(fake.files, "agent.name"), "before");
  put(kAgentIni, withChecksum("agent.name=theirs\nplus.policy.file=theirs too\n"));
  files.heal();
  EXPECT_TRUE(config().loadIniFile());
  EXPECT_EQ(config().getAgentName(), STRING("ours"))
      << "what was set here and not yet written stands";
  EXPECT_EQ(config().getPlusPolicyFile(), STRING("theirs too"));
  EXPECT_EQ(valueOnDisk(fake.files, "agent.name"), "ours")
      << "and the reload made up for the write";
  EXPECT_EQ(valueOnDisk(fake.files, "policy.id"), "ours too");
}

TEST_F(WritingTest, AFailedWriteIsTriedAgainAfterTenSeconds) {
  files.failAll(FileOperation::open, ENOSPC, "agent.ini.new");
  config().setUniqueId("guid");
  files.heal();
  EXPECT_TRUE(config().loadIniFile());
  EXPECT_EQ(writes(), 0);
  sim.runFor(10000);
  EXPECT_TRUE(config().loadIniFile());
  EXPECT_EQ(valueOnDisk(fake.files, "agent.id"), "guid");
}

TEST_F(WritingTest, AllFilesAreWrittenFallbackFirst) {
  config().setUniqueId("guid");
  EXPECT_TRUE(fake.files.content(kFallbackIni).empty());
  files.failAll(FileOperation::replace, EIO, "agent.ini");
  config().setPlusID("p");
  EXPECT_FALSE(config().UpdateAllIni());
  EXPECT_EQ(valueOnDisk(fake.files, "policy.id", kFallbackIni), "p");
  EXPECT_EQ(valueOnDisk(fake.files, "policy.id"), "");
  files.heal();
  files.failAll(FileOperation::replace, EIO, "fallback.ini");
  config().setPlusID("q");
  EXPECT_FALSE(config().UpdateAllIni()) << "one of two is not both";
  files.heal();
  EXPECT_TRUE(config().UpdateAllIni());
  EXPECT_EQ(fake.files.content(kFallbackIni), fake.files.content(kAgentIni));
  files.failNth(FileOperation::replace, 1, EIO);
  config().setPlusID("r");
  files.failNth(FileOperation::replace, 1, EIO);
  EXPECT_FALSE(config().UpdateAllIni());
  EXPECT_EQ(valueOnDisk(fake.files, "policy.id", kFallbackIni), "q") << "the first of the two";
  EXPECT_EQ(valueOnDisk(fake.files, "policy.id"), "r");
}

TEST_F(WritingTest, FormsOfUpdateIniFile) {
  EXPECT_TRUE(config().updateIniFile("Agent", "agent.name", STRING("n")));
  EXPECT_EQ(valueOnDisk(fake.files, "agent.name"), "n");
  EXPECT_FALSE(config().updateIniFile("Polling", "polling.interval", STRING("soon")));
  EXPECT_TRUE(config().updateIniFile(false, false, STRING("/opt/agent/copy.ini")));
  EXPECT_EQ(fake.files.content("/opt/agent/copy.ini"), fake.files.content(kAgentIni));
  std::unique_ptr<platform::FileLock> held;
  ASSERT_EQ(fake.files.lock(kLockFile, held), 0);
  EXPECT_TRUE(config().updateIniFile(true, true, STRING())) << "the caller has the lock file";
}

TEST_F(WritingTest, SettingsFromTheServer) {
  std::vector<int> moments;
  for (const int id : {1, 2, 3}) {
    config().registerSubscriber(id, [&moments, id](void* subject) {
      moments.push_back(id);
      static_cast<AgentConfig*>(subject)->getCharset();
    });
  }
  const LoggedEvents log(fake.files);
  RefusedSettings refused;
  EXPECT_TRUE(config().newConfiguration({{"polling.interval", "-1"},
                                         {"log.reader.limit", "0009"},
                                         {"use.builtin.policy", "TRUE"},
                                         {"mod.time", "a\r\nagent.id=evil"},
                                         {"agentini.checksum", "x"},
                                         {"[Checksum]", "x"},
                                         {"", "nameless"},
                                         {"agent.name", std::string(70000, 'l')},
                                         {"agent.http.url", "file:///etc/"},
                                         {"tcp.port", "70000"},
                                         {"a.password\n", "x\ny"},
                                         {"tcp.enabled", "may\nbe"},
                                         {"agentlog.logfile", "/etc/x"}},
                                        refused));
  const std::string text =
      "10 settings refused: agentlog.logfile=/etc/x names a file or folder outside the "
      "installation; polling.interval=-1 is not a number from 0 to 4294967295; "
      "agentini.checksum=**** names nothing that can be set; [Checksum]=**** names nothing that "
      "can be set; =**** names nothing that can be set; agent.name=" +
      std::string(40, 'l') +
      "... is too long; agent.http.url=file:///etc/ begins with neither https:// nor http://; "
      "tcp.port=70000 is not a port from 0 to 65535; a.password=**** names nothing that can be "
      "set; "
      "tcp.enabled=may be is neither true nor false";
  EXPECT_EQ(refusedSettingsText(refused), text);
  EXPECT_EQ(log.all(), (std::vector<int>{10526}));
  EXPECT_NE(log.text().find(text), std::string::npos);
  EXPECT_TRUE(config().newConfiguration({{"polling.interval", "0"}}, refused));
  EXPECT_TRUE(refused.empty() && log.all().size() == 1);
  config().setPollingInterval(300);
  moments.resize(2);
  EXPECT_EQ(moments, (std::vector<int>{2, 3}));
  EXPECT_EQ(config().getPollingInterval(), 300u);
  EXPECT_EQ(valueOnDisk(fake.files, "log.reader.limit"), "9");
  EXPECT_TRUE(config().useBuiltInPolicy());
  EXPECT_EQ(config().getValue("mod.time"), STRING("a  agent.id=evil"));
  EXPECT_TRUE(config().getAgentName().empty());
  EXPECT_TRUE(restart().getUniqueId().empty());
}

TEST_F(WritingTest, TheServerCannotMakeAFileThatIsNotRead) {
  PropertyList flood;
  RefusedSettings refused;
  for (int i = 0; i < 3000; ++i)
    flood.emplace_back("k" + std::to_string(i), std::string(60000, 'x'));
  EXPECT_TRUE(config().newConfiguration(flood, refused));
  EXPECT_EQ(refused.count, 2992U);
  EXPECT_EQ(refused.named[0].reason, "finds no room among the settings");
  EXPECT_LT(refusedSettingsText(refused).size(), 2000U);
  EXPECT_NE(refusedSettingsText(refused).find("; and 2982 more"), std::string::npos);
  EXPECT_LT(fake.files.content(kAgentIni).size(), kMaxIniBytes);
  config().setUniqueId("guid");
  EXPECT_EQ(restart().getUniqueId(), STRING("guid"));
  EXPECT_TRUE(damagedCopies().empty());
}

TEST_F(WritingTest, AThousandUnknownKeysAreTaken) {
  PropertyList keys;
  for (int i = 0; i < 1001; ++i) keys.emplace_back("k" + std::to_string(i), "v");
  RefusedSettings refused;
  EXPECT_TRUE(config().newConfiguration(keys, refused));
  ASSERT_EQ(refused.count, 1u);
  EXPECT_EQ(refused.named[0].key, STRING("k1000"));
  EXPECT_EQ(refused.named[0].reason, "is one unknown key too many");
  EXPECT_TRUE(config().setValue("k999", "other")) << "those that are there can change";
  EXPECT_EQ(restart().getValue("k999"), STRING("other"));
}

TEST_F(WritingTest, NothingIsWrittenWithoutAnInstallRoot) {
  setInstallRoot("");
  restart().setUniqueId("guid");
  EXPECT_FALSE(config().UpdateAllIni());
  EXPECT_FALSE(config().loadIniFile());
  EXPECT_EQ(config().getUniqueId(), STRING("guid"));
  EXPECT_TRUE(fake.files.paths().empty());
}

}  // namespace
}  // namespace korvane
