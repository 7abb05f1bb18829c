// Reading the agent's own log through its roll-overs.
#include "agentctl/own_log.h"

#include <gmock/gmock.h>

#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"

namespace korvane::agentctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string line(int sequence, const char* type = "AINF") {
  return std::string(type) + "," + std::to_string(sequence) +
         ",2026-11-21 10:15:30.123,10109,Src,1,2,text" + std::to_string(sequence) + "\n";
}

class OwnLog : public testing::Test {
 protected:
  OwnLog() { files.makeDirectories("/logs"); }

  void append(const std::string& name, const std::string& bytes) {
    std::unique_ptr<platform::File> file;
    ASSERT_EQ(files.open("/logs/" + name, platform::OpenMode::append, file), 0);
    ASSERT_EQ(file->write(bytes.data(), bytes.size()), 0);
  }

  static std::vector<uint64_t> numbers(const std::vector<LogRecord>& records) {
    std::vector<uint64_t> all;
    for (const LogRecord& record : records) all.push_back(record.sequence);
    return all;
  }

  platform::ManualClock clock;
  platform::MemoryFiles files{clock};
  // In the order of their beginning, which is not that of their names.
  const std::string first = "korvane-agent-20261121101530123-9.log";
  const std::string second = "korvane-agent-20261121101530123-10.log";
  const std::string third = "korvane-agent-20261121101630000-1.log";
};

TEST_F(OwnLog, TheNewestAcrossFilesInTheOrderOfTime) {
  append(second, line(3) + line(4, "TRAC") + line(5, "AWRN"));
  append(first, line(1) + line(2));
  append("korvane-agent-1.log", line(99));
  append("other.log", line(98));
  const auto all = [](const LogRecord&) { return true; };
  const auto events = [](const LogRecord& record) { return !record.isTrace(); };
  EXPECT_THAT(numbers(newestRecords(files, "/logs", 3, events)), ElementsAre(2, 3, 5));
  EXPECT_THAT(numbers(newestRecords(files, "/logs", 100, all)), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(numbers(newestRecords(files, "/logs", 0, all)), IsEmpty());
  EXPECT_THAT(numbers(newestRecords(files, "/none", 5, all)), IsEmpty());
}

TEST_F(OwnLog, TheNewestOfAFileOfManyPieces) {
  std::string much;
  for (int i = 1; i <= 20000; ++i) much += line(i, i % 1000 == 0 ? "AERR" : "TRAC");
  append(first, much);
  const auto errors = [](const LogRecord& record) { return record.isComplaint(); };
  EXPECT_THAT(numbers(newestRecords(files, "/logs", 3, errors)), ElementsAre(18000, 19000, 20000));
}

TEST_F(OwnLog, FollowingGoesThroughRollOversAndLosesNothing) {
  append(first, line(1) + "AINF,2,2026-11-21 10:15:30.123,101");
  LogFollower follower(files, "/logs");
  EXPECT_THAT(numbers(follower.next()), IsEmpty());
  append(first, "09,Src,1,2,text\n" + line(3));
  EXPECT_THAT(numbers(follower.next()), ElementsAre(2, 3));
  append(first, line(4) + "AINF,5,2026-11-21 10:15:30.123,10109,Src,1,2,no line end");
  append(second, line(6));
  append(third, line(7));
  EXPECT_THAT(numbers(follower.next()), ElementsAre(4, 5, 6, 7));
  files.remove("/logs/" + third);
  EXPECT_THAT(numbers(follower.next()), IsEmpty());
}

TEST_F(OwnLog, FollowingBeginsWithAFileThatComesLater) {
  LogFollower follower(files, "/logs");
  EXPECT_THAT(numbers(follower.next()), IsEmpty());
  append(first, line(1));
  EXPECT_THAT(numbers(follower.next()), ElementsAre(1));
}

TEST_F(OwnLog, RecordsAreTakenApartAndGetTheCatalogueText) {
  LogRecord record;
  ASSERT_TRUE(
      parseRecord("AERR,18,2026-11-21 10:15:30.123,10213,Dest,812,815,\"old, "
                  "\"\"text\"\"\",300,\"no space, retry\"",
                  record));
  EXPECT_EQ(record.text, "old, \"text\"");
  EXPECT_THAT(record.insertions, ElementsAre("300", "no space, retry"));
  EXPECT_EQ(textOf(record, {{10213, {"AERR", "refused: %1 (%2)"}}}),
            "refused: 300 (no space, retry)");
  EXPECT_EQ(textOf(record, {}), "old, \"text\"");
  for (const char* bad : {"", "AINF", "XXXX,1,t,1,s,1,2,t", "INF,1,t,1,s,1,2,t"})
    EXPECT_FALSE(parseRecord(bad, record)) << bad;
}

}  // namespace
}  // namespace korvane::agentctl
