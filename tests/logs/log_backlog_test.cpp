#include "logs/log_backlog.h"

#include "logs/file_log_pointer.h"
#include "logs/log_mark.h"
#include "platform/paths.h"
#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

class LogBacklogTest : public LogFixture {
 protected:
  void pointTo(const std::string& log, int64_t offset, const STRING& endStamp = {}) {
    FileLogPointer pointer(kPointerFile);
    pointer.setCurrentLogName(log);
    pointer.setOffset(static_cast<int>(offset));
    pointer.setEndTimeStamp(endStamp);
    pointer.writePointer();
  }
  static std::string utf16(const std::string& text) {
    std::string wide = "\xFF\xFE";
    for (const char c : text) (wide += c) += '\0';
    return wide;
  }
  LogBacklog only() {
    const auto all = logBacklogs(files, fake.clock, settings().logs);
    EXPECT_EQ(all.size(), 1u);
    return all.at(0);
  }
};

TEST_F(LogBacklogTest, CountsWhatTheAgentWillReadFromWhereItStands) {
  const std::string three = eventLine(1) + eventLine(2) + eventLine(3);
  const auto first = static_cast<int64_t>(eventLine(1).size());
  const auto handOver = [](const char* next) { return std::string("MEOF,0,t,") + next + "\n"; };
  const struct {
    const char* what;
    std::string log, nextLog;
    int64_t offset;  // -1: no pointer
    uint64_t bytes, records;
  } cases[] = {
      {"never read", three, "", -1, three.size(), 3},
      {"in the middle", three, "", first, three.size() - eventLine(1).size(), 2},
      {"at the end", three, "", static_cast<int64_t>(three.size()), 0, 0},
      {"unfinished line", three + "PFIL,4,t", "", first, three.size() - eventLine(1).size() + 8, 2},
      {"marks", "\xEF\xBB\xBFMSOF,0,t\n" + three + "\"MEOF\",0,t\n", "", 0, three.size() + 23, 3},
      {"UTF-16", utf16(three), "", 2 + 2 * first, 2 * (three.size() - eventLine(1).size()), 2},
      {"UTF-16, never read", utf16(three), "", 0, 2 * three.size(), 3},
      {"begun anew", eventLine(1), "", 4000, eventLine(1).size(), 1},
      {"handed over", eventLine(1) + handOver("rt2.csv"), three, first,
       handOver("rt2.csv").size() + three.size(), 3},
      {"an end that names nothing", eventLine(1) + handOver("../x"), "", 0,
       eventLine(1).size() + handOver("../x").size(), 1},
      {"no log", "", "", 77, 0, 0},
  };
  for (const auto& test : cases) {
    fake.files.remove(kPointerFile);
    fake.files.remove(kLog);
    fake.files.remove(kNextLog);
    if (!test.log.empty()) fake.files.put(kLog, test.log);
    if (!test.nextLog.empty()) fake.files.put(kNextLog, test.nextLog);
    if (test.offset >= 0) pointTo(kLog, test.offset);
    const LogBacklog backlog = only();
    EXPECT_EQ(backlog.bytes, test.bytes) << test.what;
    EXPECT_EQ(backlog.records, test.records) << test.what;
    EXPECT_TRUE(backlog.recordsExact) << test.what;
    EXPECT_EQ(backlog.offset, std::max<int64_t>(test.offset, 0)) << test.what;
    EXPECT_EQ(backlog.log, kLog);
    EXPECT_EQ(backlog.pointerFile, kPointerFile);
  }
}

TEST_F(LogBacklogTest, ALogThatIsGoneOrSentGivesWayToTheCurrentOneOfTheComponentsSettings) {
  config().setHIDSRTLogFile("");
  fake.files.makeDirectories("/opt/korvane/IDS/logs");
  fake.files.put("/opt/korvane/IDS/ids.properties",
                 std::string("ids.service.rteventfile.name=") + kNextLog + "\n");
  fake.files.put(kNextLog, eventLine(3));
  pointTo(kLog, 0);
  EXPECT_EQ(only().log, kNextLog);
  EXPECT_EQ(only().records, 1u);
  fake.files.put(kLog, eventLine(1) + eventLine(2));
  EXPECT_EQ(only().records, 3u);
  std::unique_ptr<platform::File> sent;
  ASSERT_EQ(files.open(kLog, platform::OpenMode::read, sent), 0);
  pointTo(kLog, 0, logMark(kLog, *sent, static_cast<int64_t>(fake.files.content(kLog).size())));
  EXPECT_EQ(only().records, 1u) << "what was sent does not count, though it is still there";
}

TEST_F(LogBacklogTest, ReadsABoundedPartAndLeavesThePointerAlone) {
  fake.files.put(kLog,
                 std::string(kMaxScanned + 1000, 'x') + "\n" + eventLine(1) + "MEOF,0,t,rt2.csv\n");
  fake.files.put(kNextLog, eventLine(2));
  const LogBacklog backlog = only();
  EXPECT_FALSE(backlog.recordsExact);
  EXPECT_EQ(backlog.bytes, kMaxScanned + 1001 + 2 * eventLine(1).size() + 17);
  EXPECT_LE(backlog.records, 2u);
  EXPECT_FALSE(platform::fileExists(files, kPointerFile));
}

}  // namespace
}  // namespace korvane::tests
