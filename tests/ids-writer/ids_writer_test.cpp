#include <gtest/gtest.h>

#include "ids-writer/ids_files.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/recording_files.h"
#include "util/utf8.h"

namespace korvane::ids_writer {
namespace {

constexpr char kSettings[] = "/k/IDS/ids.properties";

class IdsFilesTest : public testing::Test {
 protected:
  // Writes the agent's read pointer, with a log's name.
  void point(const std::string& log) {
    std::string pointer(4365, '\0');
    const std::u16string name = utf8ToUtf16("/k/IDS/bin/../logs/" + log);
    for (size_t i = 0; i < name.size(); ++i) pointer[1 + 2 * i] = static_cast<char>(name[i]);
    fake.files.put("/k/IPS/hidslog1rtfilepointer", pointer);
  }
  std::string log(int number) {
    return fake.files.content("/k/IDS/logs/KAVRTEvent-00000" + std::to_string(number) + ".csv");
  }

  platform::FakePlatform fake;
};

TEST_F(IdsFilesTest, HandingOverNamesTheNextLogBeforeItEndsTheOldOne) {
  fake.files.put(kSettings, "# kept\r\nother=1\nids.service.rteventfile.name=x\n");
  IdsFiles files(fake.platform(), "/k", Encoding::utf8);
  files.append("one\n");
  EXPECT_EQ(fake.files.content(kSettings),
            "# kept\nother=1\nids.service.eventfile.name=../logs/KAVEvent.csv\n"
            "ids.service.rteventfile.name=../logs/KAVRTEvent-000001.csv\n");
  EXPECT_FALSE(files.mayHandOver()) << "nobody has begun to read";
  point("KAVRTEvent-000001.csv");
  EXPECT_TRUE(files.mayHandOver());
  files.handOver();
  files.append("two\n");
  EXPECT_TRUE(log(1).starts_with("MSOF,0,2026-01-01 00:00:00.000,\none\nMEOF,0,")) << log(1);
  EXPECT_TRUE(log(1).ends_with(",KAVRTEvent-000002.csv\n"));
  EXPECT_TRUE(log(2).ends_with(",\ntwo\n"));
  EXPECT_NE(fake.files.content(kSettings).find("rteventfile.name=../logs/KAVRTEvent-000002.csv\n"),
            std::string::npos);
  EXPECT_EQ(files.made(), 2u);

  EXPECT_FALSE(files.mayHandOver()) << "the first log may still be read";
  point("KAVRTEvent-000002.csv");
  EXPECT_TRUE(files.mayHandOver()) << "the reader has gone on, the log was left behind";
}

TEST_F(IdsFilesTest, WhoeverSeesTheEndMarkerFindsTheNextLogNamedAndBegun) {
  platform::RecordingFiles recording(fake.files);
  platform::Platform& all = fake.platform();
  platform::Platform system{all.clock,           all.threading, recording,   all.registry,
                            all.devices,         all.processes, all.sockets, all.systemInfo,
                            all.sharedLibraries, all.pipes,     all.rights};
  IdsFiles(system, "/k", Encoding::utf8).handOver();
  int ended = 0;
  for (size_t entries = 0; entries <= recording.size(); ++entries) {
    platform::MemoryFiles instant(fake.clock);
    recording.crash(entries, platform::DataLoss::none, platform::NameLoss::none, instant);
    if (instant.content("/k/IDS/logs/KAVRTEvent-000001.csv").find("MEOF") == std::string::npos)
      continue;
    ++ended;
    EXPECT_NE(instant.content(kSettings).find("KAVRTEvent-000002.csv"), std::string::npos);
    EXPECT_TRUE(instant.content("/k/IDS/logs/KAVRTEvent-000002.csv").starts_with("MSOF"));
  }
  EXPECT_GT(ended, 0);
}

TEST_F(IdsFilesTest, ANewWriterContinuesTheNamedLogAndMendsItsLastLine) {
  { IdsFiles(fake.platform(), "/k", Encoding::utf8).append("one\nhal"); }
  { IdsFiles(fake.platform(), "/k", Encoding::utf8).append("two\n"); }
  EXPECT_TRUE(log(1).ends_with("one\nhal\ntwo\n"));
  IdsFiles other(fake.platform(), "/k", Encoding::utf16);
  other.append("\xc3\xa4\n");
  EXPECT_EQ(other.currentLog(), "/k/IDS/logs/KAVRTEvent-000002.csv");
  EXPECT_TRUE(log(1).ends_with(",KAVRTEvent-000002.csv\n")) << "another encoding needs another log";
  EXPECT_TRUE(log(2).starts_with(std::string("\xFF\xFEM\0S\0", 6)));
  EXPECT_TRUE(log(2).ends_with(std::string("\xE4\0\n\0", 4)));
}

}  // namespace
}  // namespace korvane::ids_writer
