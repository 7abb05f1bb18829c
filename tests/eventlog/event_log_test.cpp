#include "eventlog/event_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "eventlog/event_log_file.h"
#include "eventlog/recent_errors.h"
#include "eventlog/record.h"
#include "platform/fake/faulty_files.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"

namespace korvane::eventlog {
namespace {

using platform::FileOperation;

constexpr int64_t kHourMs = 3600 * 1000;

class EventLogTest : public ::testing::Test {
 protected:
  EventLogTest() : memory(clock), files(memory) {
    memory.put("/catalogue.txt", "10106 AINF Version %1 started.\n10100 AERR Code %1: %2\n");
    settings.directory = "/logs";
    settings.baseName = "agent";
    settings.cataloguePath = "/catalogue.txt";
  }
  ~EventLogTest() override { close(); }

  void open() {
    EventLog::open(settings, files, clock);
    opened = true;
  }
  void close() {
    if (opened) EventLog::close();
    opened = false;
  }
  // The lines of a log, each cut at its commas.
  std::vector<std::vector<std::string>> lines(const std::string& path = currentFile()) {
    std::vector<std::vector<std::string>> all;
    std::istringstream text(memory.content(path));
    for (std::string line; std::getline(text, line);) {
      std::istringstream fields(line);
      all.emplace_back();
      for (std::string field; std::getline(fields, field, ',');) all.back().push_back(field);
    }
    return all;
  }
  std::vector<std::string> logs() {
    std::vector<std::string> found;
    for (const std::string& path : memory.paths())
      if (path.starts_with("/logs/agent-2")) found.push_back(path);
    return found;
  }
  uint64_t totalBytes() {
    uint64_t total = 0;
    for (const std::string& path : logs()) total += memory.content(path).size();
    return total;
  }

  platform::ManualClock clock;
  platform::MemoryFiles memory;
  platform::FaultyFiles files;
  Settings settings;
  bool opened = false;
};

TEST_F(EventLogTest, WhatCameBeforeTheSettingsStandsFirstWithItsOwnTimes) {
  for (const bool traced : {false, true}) {
    settings.directory = traced ? "/traced" : "/plain";
    settings.tracing = traced;
    EventLog::hold(clock);
    event(10100, "Load", {1, "early"});
    clock.advance(1000);
    trace("Load", "looked at %d", 7);
    clock.advance(1000);
    event(10106, "Load", {"2"});
    clock.advance(1000);
    open();
    event(10106, "Later", {"3"});
    EventLog::hold(clock);  // nothing, while the log is open
    event(10106, "Later", {"4"});
    const auto read = lines();
    ASSERT_EQ(read.size(), traced ? 5u : 4u);
    EXPECT_EQ(read[0][0], "AERR") << "with the catalogue's type";
    EXPECT_EQ(read[0][7], "Code 1: early");
    EXPECT_EQ(read[traced ? 2 : 1][7], "Version 2 started.");
    if (traced) {
      EXPECT_EQ(read[1][7], "looked at 7");
    }
    std::set<std::string> times;
    for (size_t i = 0; i < read.size(); ++i) {
      EXPECT_EQ(read[i][1], std::to_string(i + 1));
      times.insert(read[i][2]);
    }
    EXPECT_EQ(times.size(), read.size() - 1) << "all but those after the opening have their own";
    EXPECT_EQ(recentErrors().size(), 1u);
    close();
    EXPECT_FALSE(tracing());
  }
}

TEST_F(EventLogTest, HoldsSoMuchAndCountsTheRest) {
  const uint64_t before = EventLog::lost();
  const std::string wide(1000, 'w');
  for (const std::string& text : {std::string("t"), wide}) {
    settings.directory = "/held" + text.substr(0, 1);
    EventLog::hold(clock);
    for (int i = 0; i < 1200; ++i) event(10106, "s", {text});
    open();
    const auto read = lines();
    const size_t room = text == wide ? EventLog::kMaxHeldBytes / 1001 : 1000;
    ASSERT_EQ(read.size(), room + 1);
    EXPECT_EQ(read[1][3], "10501") << "told with the first that is written";
    EXPECT_EQ(read[1][8], std::to_string(1200 - room));
    close();
  }
  EXPECT_EQ(EventLog::lost() - before, 200 + 1200 - EventLog::kMaxHeldBytes / 1001);

  settings.directory = "/forgotten";
  EventLog::hold(clock);
  event(10106, "s", {"forgotten"});
  EventLog::close();
  open();
  EXPECT_TRUE(lines().empty());
  close();

  settings.cataloguePath = "/none";
  EventLog::hold(clock);
  event(10106, "s", {"held"});
  open();
  ASSERT_EQ(lines().size(), 2u);
  EXPECT_EQ(lines()[1][3], "10500") << "behind what was held";
}

TEST_F(EventLogTest, WritesEventsAlwaysAndTracesWhileTracingIsOn) {
  event(10106, "KorvaneAgent", {"0"});
  open();
  event(10106, "KorvaneAgent", {STRING("1.0")});
  trace("MainThread", "not %d", 1);
  settings.tracing = true;
  EventLog::reconfigure(settings);
  trace("MainThread", "result %d -- %s", -7, STRING("ok"));
  settings.tracing = false;
  EventLog::reconfigure(settings);
  trace("MainThread", "not %d", 2);

  const auto written = lines();
  ASSERT_EQ(written.size(), 2u);
  const std::string time = "2026-01-01 00:00:00.000";
  ASSERT_EQ(written[0].size(), 9u);
  EXPECT_EQ(written[0][0] + "," + written[0][1] + "," + written[0][2], "AINF,1," + time);
  EXPECT_EQ(written[0][3], "10106");
  EXPECT_EQ(written[0][4], "KorvaneAgent");
  EXPECT_EQ(written[0][7], "Version 1.0 started.");
  EXPECT_EQ(written[0][8], "1.0");
  ASSERT_EQ(written[1].size(), 8u);
  EXPECT_EQ(written[1][0] + "," + written[1][1], "TRAC,2");
  EXPECT_EQ(written[1][3], "");
  EXPECT_EQ(written[1][7], "result -7 -- ok");
}

TEST_F(EventLogTest, KeepsTheNewestFilesWithinTheBound) {
  settings.totalBytes = 1 << 20;
  settings.rolloverValue = 1;
  memory.put("/logs/agent-notes.log", std::string(1 << 20, 'x'));
  memory.put("/logs/other-20250101000000000-1.log", "not ours");
  open();
  const std::string first = currentFile();
  std::string last = first;
  std::set<std::string> seen = {first};
  const std::string text(5000, 'x');
  for (int i = 0; i < 1000; ++i) {
    event(10100, "MainThread", {i, text});
    clock.advance(i % 3);
    seen.insert(last = currentFile());
    ASSERT_LE(totalBytes(), settings.totalBytes) << i;
  }
  EXPECT_GE(totalBytes(), settings.totalBytes / 2);
  EXPECT_EQ(EventLog::rolledCount() + 1, seen.size());
  EXPECT_EQ(memory.content(first), "");
  EXPECT_EQ(lines(last).back()[8], "999");
  EXPECT_EQ(lines(last).back()[1], "1000");
  EXPECT_NE(memory.content("/logs/agent-notes.log"), "");
  EXPECT_NE(memory.content("/logs/other-20250101000000000-1.log"), "");
}

TEST_F(EventLogTest, RollsByAgeAndByLines) {
  settings.rolloverCause = RolloverCause::age;
  settings.rolloverValue = 2;
  open();
  event(10106, "a", {"1"});
  clock.setWall(clock.wallMs() + 100 * kHourMs);
  event(10106, "a", {"2"});
  EXPECT_EQ(logs().size(), 1u) << "a clock that was set is no age";
  clock.advance(2 * kHourMs - 1);
  event(10106, "a", {"3"});
  EXPECT_EQ(logs().size(), 1u);
  clock.advance(1);
  event(10106, "a", {"4"});
  EXPECT_EQ(logs().size(), 2u);

  settings.rolloverCause = RolloverCause::lines;
  settings.rolloverValue = 1;
  EventLog::reconfigure(settings);
  for (int i = 0; i < 999; ++i) event(10106, "a", {i});
  EXPECT_EQ(logs().size(), 2u);
  close();
  open();
  event(10106, "a", {"5"});
  EXPECT_EQ(logs().size(), 3u) << "the lines of a file that is gone on with count";
}

TEST_F(EventLogTest, ARestartGoesOnAfterTheLastWholeRecord) {
  open();
  const std::string path = currentFile();
  event(10106, "a", {"1"});
  event(10106, "a", {"2"});
  close();
  EXPECT_EQ(currentFile(), path);
  memory.put(path, memory.content(path) + "AINF,3,2026-01-01 00:0");
  clock.advance(1000);
  open();
  EXPECT_EQ(currentFile(), path);
  event(10106, "a", {"after"});
  const auto written = lines();
  ASSERT_EQ(written.size(), 4u);
  EXPECT_EQ(written[2].size(), 3u) << "the torn line stands alone";
  EXPECT_EQ(written[3][1], "3");
  EXPECT_EQ(written[3][8], "after");
}

TEST_F(EventLogTest, AFullDiskCostsRecordsThatAreCountedAndReported) {
  open();
  event(10106, "a", {"before"});
  const uint64_t lostBefore = EventLog::lost();
  files.failAll(FileOperation::write, ENOSPC);
  const int opens = files.count(FileOperation::open);
  for (int i = 0; i < 100; ++i) {
    event(10106, "a", {i});
    clock.advance(30);
  }
  EXPECT_EQ(EventLog::lost(), lostBefore + 100);
  EXPECT_LE(files.count(FileOperation::open) - opens, 3 * 2) << "opened anew at most once a second";
  files.heal();
  event(10106, "a", {"too early"});
  clock.advance(1000);
  event(10106, "a", {"after"});
  event(10106, "a", {"and on"});
  const auto written = lines();
  ASSERT_EQ(written.size(), 4u);
  EXPECT_EQ(written[1][8], "after");
  EXPECT_EQ(written[2][3], "10501");
  EXPECT_EQ(written[2][8], "101");
  EXPECT_EQ(written[2][9], std::to_string(ENOSPC));
  EXPECT_EQ(written[3][8], "and on");
}

TEST_F(EventLogTest, LinesOfManyThreadsStayWhole) {
  constexpr int kThreads = 6, kLines = 300;
  settings.totalBytes = 1 << 20;
  settings.tracing = true;
  open();
  const std::string text(200, 't');
  std::atomic<bool> done{false};
  std::thread reader([&] {
    while (!done) {
      currentFile();
      EventLog::reconfigure(settings);
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t)
    writers.emplace_back([&, t] {
      for (int i = 0; i < kLines; ++i) {
        if (i % 2)
          trace("Writer", "%d-%d %s", t, i, text);
        else
          event(10100, "Writer", {t, text});
      }
    });
  for (auto& writer : writers) writer.join();
  done = true;
  reader.join();
  std::set<std::string> sequences;
  for (const std::string& path : logs())
    for (const auto& line : lines(path)) {
      ASSERT_EQ(line.size(), line[0] == "TRAC" ? 8u : 10u);
      EXPECT_TRUE(line.back().ends_with(text));
      sequences.insert(line[1]);
    }
  EXPECT_EQ(sequences.size(), static_cast<size_t>(kThreads * kLines));
}

TEST(EventLogSettings, SenselessRolloverSettingsAreTheDefaults) {
  EXPECT_EQ(rolloverCause(2), RolloverCause::lines);
  EXPECT_EQ(rolloverCause(99), RolloverCause::size);
  for (const char* text : {"", "0", "-3", "many", "5x", "99999999999999999999"})
    EXPECT_EQ(rolloverValue(text), 50);
  EXPECT_EQ(rolloverValue("7"), 7);
}

}  // namespace
}  // namespace korvane::eventlog
