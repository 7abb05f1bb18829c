#include <cerrno>

#include "bulk/bulk_log_processing_thread.h"
#include "platform/fake/seeded_random.h"
#include "tests/bulk/bulk_world.h"
#include "tests/support/watchdog.h"

namespace korvane::tests {
namespace {

using platform::FileOperation;

TEST_F(BulkWorld, FinishedLogsArriveWholeAndAreRemovedThen) {
  settings().setCollectSHA256Hash(true);
  std::map<std::string, std::string> logs;
  for (const char* number : {"1", "2"}) {
    logs[std::string(kOwn) + number + ".log"] = linesOf(30'000, 'o');
    logs[std::string(kIds) + number + ".csv"] = linesOf(200'000, 'i');
    logs[std::string(kDriverLog) + "-" + number + ".log"] = linesOf(10, 'd');
  }
  driverNow = STRING(std::string(kDriverLog) + ".log");
  for (const auto& [path, content] : logs) fake.files.put(path, content);
  const std::string kept[] = {std::string(kOwn) + "9.log", std::string(kIds) + "9.csv",
                              std::string(kOwn) + "x.log", std::string(kIds) + "1.csv.bak"};
  for (const std::string& path : kept) fake.files.put(path, "still written\n");
  fake.files.put(std::string(kOwn) + "3.log", "");
  // The own log at once; the others when they have settled.
  EXPECT_EQ(look(), 10u);
  EXPECT_EQ(server.logs.size(), 2u);
  looks(3);
  for (const auto& [path, content] : logs) {
    EXPECT_EQ(server.content(path), content) << path;
    EXPECT_FALSE(exists(path)) << path;
  }
  for (const std::string& path : kept) EXPECT_TRUE(exists(path)) << path;
  EXPECT_FALSE(exists(std::string(kOwn) + "3.log"));
  EXPECT_EQ(server.fault, "");
  EXPECT_EQ(state().sentBytes, server.bytes());
  EXPECT_EQ(state().logs.size(), 0u);
  EXPECT_EQ(look(), 300u);
  EXPECT_TRUE(losses.empty());
}

TEST_F(BulkWorld, LargeLogsGoInSeveralBundlesOfBoundedSize) {
  settings().setBulkTransferBacklogInterval(7);
  settings().setBulkTransferOpenFileLimit(2);
  std::map<std::string, std::string> logs;
  for (int number = 1; number <= 5; ++number)
    logs[std::string(kOwn) + std::to_string(number) + ".log"] =
        linesOf(number == 2 ? 12u << 20 : 3000, static_cast<char>('a' + number), true);
  logs[std::string(kOwn) + "6.log"] = std::string(300'000, 'x');  // one line without an end
  for (const auto& [path, content] : logs) fake.files.put(path, content);
  EXPECT_EQ(look(), 7u);
  int more = 20;
  while (more-- > 0 && look() == 7) {
  }
  for (const auto& [path, content] : logs) EXPECT_TRUE(server.content(path) == content) << path;
  EXPECT_EQ(server.fault, "");
  EXPECT_GE(offered.size(), 4u);
  EXPECT_LE(largest, (9u << 20));
  EXPECT_GT(largest, (8u << 20) - 200'000);
  for (const auto& [id, log] : server.logs)
    for (const auto& [from, bytes] : log.ranges)
      EXPECT_TRUE(log.path.ends_with("6.log") || bytes.back() == '\n');
}

TEST_F(BulkWorld, WhatIsRefusedStaysAndComesAgainUnderItsName) {
  const std::string log = std::string(kOwn) + "1.log";
  fake.files.put(log, linesOf(5000, 'a'));
  answer = "code 302";
  EXPECT_EQ(look(), 60u);
  settings().setBulkTransferBacklogInterval(0);
  EXPECT_EQ(look(), 5u);
  restart();
  look();
  answer.clear();
  answerIsLost = true;
  look();
  EXPECT_TRUE(exists(log));
  restart();
  answerIsLost = false;
  look();
  EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()).size(), 1u);
  EXPECT_EQ(offered.size(), 5u);
  EXPECT_EQ(server.repeated, 1u);
  EXPECT_EQ(server.content(log), linesOf(5000, 'a'));
  EXPECT_FALSE(exists(log));
  EXPECT_EQ(events(10720), 2u) << "one for each start";
}

TEST_F(BulkWorld, ExternalLogsAreFollowedLineByLineAndNeverRemoved) {
  settings().setExternalLogs("/srv/app/app.log*; logs/korvane*; /srv/*/x.log; /bad/place/a.log");
  fake.rights.spoilt.insert("/bad");
  fake.files.put("/bad/place/a.log", "secret\n");
  fake.files.put(kApp, "one\ntwo\nthr");
  look();
  EXPECT_EQ(server.content(kApp), "one\ntwo\n");
  append(kApp, "ee\n");
  look();
  EXPECT_EQ(server.content(kApp), "one\ntwo\nthree\n");
  append(kApp, "no end");
  looks(3);
  EXPECT_EQ(server.content(kApp), "one\ntwo\nthree\nno end") << "settled";
  // Rotated: the rest of the old one is sent under its new name, the new one from its beginning.
  append(kApp, "\nlast\n");
  ASSERT_EQ(fake.files.rename(kApp, std::string(kApp) + ".1"), 0);
  fake.files.put(kApp, "fresh\n");
  looks(2);
  EXPECT_EQ(server.content(std::string(kApp) + ".1"), "one\ntwo\nthree\nno end\nlast\n");
  EXPECT_EQ(server.content(kApp), "fresh\n");
  // Cut and written again: another log, whatever was unsent is lost.
  append(kApp, "lost line\n");
  answer = "not now";
  look();
  answer.clear();
  fake.files.put(kApp, "again\n");
  looks(2);
  EXPECT_TRUE(exists(kApp) && exists(std::string(kApp) + ".1"));
  // Written anew, and longer than before: nothing but its beginning tells.
  const std::string anew = linesOf(500, 'n');
  {
    std::unique_ptr<platform::File> file;
    ASSERT_EQ(fake.files.open(kApp, platform::OpenMode::create, file), 0);
    ASSERT_EQ(file->write(anew.data(), anew.size()), 0);
  }
  looks(2);
  EXPECT_TRUE(server.content(kApp).find(anew) != std::string::npos);
  EXPECT_EQ(events(10727), 2u);
  EXPECT_EQ(server.fault, "");
  EXPECT_EQ(server.content("/bad/place/a.log"), "");
}

TEST_F(BulkWorld, EveryByteIsSentWaitsOrIsTold) {
  // Lives of logs drawn from a seed: written = sent + waiting + lost, at any time.
  for (uint64_t seed = 1; seed <= 30; ++seed) {
    platform::SeededRandom random(seed);
    SCOPED_TRACE(seed);
    const size_t toldBefore = events(10723) + events(10724);
    for (const std::string& path : fake.files.paths()) {
      if (!path.starts_with("/opt/korvane/own/")) fake.files.remove(path);
    }
    server = {};
    losses.clear();
    uint64_t written = 0;
    int next = 10;
    std::vector<std::string> there;
    restart();
    for (int step = 0; step < 60; ++step) {
      const int what = random.below(12);
      if (what < 4) {
        there.push_back((what % 2 ? kOwn : kIds) + std::to_string(next++) +
                        (what % 2 ? ".log" : ".csv"));
        const std::string content =
            linesOf(static_cast<size_t>(random.below(90'000)), static_cast<char>('a' + step % 26));
        fake.files.put(there.back(), content);
        written += content.size();
      } else if (what == 4 && !there.empty()) {
        // Nobody knows of a log that goes before a state could be written.
        files.heal();
        look();
        const std::string& path =
            there[static_cast<size_t>(random.below(static_cast<int>(there.size())))];
        fake.files.remove(path);
      } else if (what == 5) {
        answer = answer.empty() ? "refused" : "";
      } else if (what == 6) {
        answerIsLost = !answerIsLost;
      } else if (what == 7) {
        restart();
      } else if (what == 8) {
        files.failNth(FileOperation::write, 1 + random.below(9), ENOSPC, "/bulk/");
      } else if (what == 9) {
        files.failNth(FileOperation::flush, 1, EIO, "/bulk/");
      } else if (what == 10) {
        fake.files.setFreeBytes(random.below(2) ? 1000 : uint64_t{1} << 40);
      } else {
        fake.clock.setWall(fake.clock.wallMs() + random.between(-100, 100) * 3'600'000);
      }
      // A log that comes and goes between two looks was never seen.
      look();
    }
    fake.files.setFreeBytes(uint64_t{1} << 40);
    files.heal();
    answer.clear();
    answerIsLost = false;
    looks(40);
    EXPECT_EQ(server.fault, "");
    EXPECT_EQ(server.bytes() + lostBytes(), written);
    EXPECT_GE(events(10723) + events(10724) - toldBefore, losses.size());
    for (const bulk::LogRecord& log : state().logs) EXPECT_TRUE(log.isSent()) << log.path;
  }
}

TEST_F(BulkWorld, FailuresAreToldOnceAndLeaveTheLogs) {
  const std::string log = std::string(kOwn) + "1.log", other = std::string(kOwn) + "2.log";
  fake.files.put(log, linesOf(300'000, 'a', true));
  fake.files.put(other, linesOf(100, 'b'));
  files.failAll(FileOperation::write, ENOSPC, ".part");
  looks(3);
  EXPECT_EQ(events(10722), 1u);
  for (const std::string& path : fake.files.paths())
    EXPECT_TRUE(path.find("/bulk/bulk-") == std::string::npos) << path;
  files.heal();
  files.failAll(FileOperation::replace, EROFS, "bulk.state");
  looks(3);
  EXPECT_EQ(events(10726), 1u);
  EXPECT_TRUE(offered.empty());
  files.heal();
  // Held open by its writer: neither read nor removed; the other goes on.
  files.failAll(FileOperation::open, EACCES, "-1.log");
  files.failAll(FileOperation::remove, EACCES, "-2.log");
  looks(3);
  EXPECT_EQ(server.content(other), linesOf(100, 'b'));
  EXPECT_TRUE(exists(other));
  EXPECT_EQ(server.content(log), "");
  files.heal();
  stopAfter = 2;
  look();
  EXPECT_EQ(server.content(log), "") << "stopped while packing";
  looks(2);
  EXPECT_EQ(server.content(log), linesOf(300'000, 'a', true));
  EXPECT_FALSE(exists(log) || exists(other));
  EXPECT_EQ(server.parts, 2u);
  EXPECT_TRUE(losses.empty());
}

TEST_F(BulkWorld, AStateOrABundleThatIsUnusableIsTold) {
  const std::string log = std::string(kOwn) + "1.log";
  // Accepted, and then the state cannot be written: it is not sent again for that.
  fake.files.put(log, linesOf(100, 'z'));
  onTaken = [&](const auto&, const auto&) {
    files.failAll(FileOperation::replace, EROFS, "bulk.state");
  };
  looks(3);
  EXPECT_TRUE(exists(log));
  files.heal();
  onTaken = nullptr;
  look();
  EXPECT_EQ(offered.size(), 1u);
  EXPECT_FALSE(exists(log));
  server = {};
  fake.files.put(log, linesOf(100, 'a'));
  answer = "refused";
  look();
  ASSERT_TRUE(state().bundle);
  const std::string bundle = "/opt/korvane/IPS/bulk/" + state().bundle->name;
  std::string bytes = fake.files.content(bundle);
  bytes[40] = static_cast<char>(bytes[40] ^ 1);
  fake.files.put(bundle, bytes);
  restart();
  answer.clear();
  looks(2);
  EXPECT_EQ(events(10725), 1u);
  EXPECT_EQ(server.content(log), linesOf(100, 'a'));
  EXPECT_FALSE(exists(bundle) || exists(log));
  fake.files.put(kStateFile, "korvane-bulk-state 1\nsent=");
  fake.files.put("/opt/korvane/IPS/bulk/bulk-20260101000000000-aaaaaaaaaaaa.zip.part", "x");
  fake.files.put(log, linesOf(100, 'c'));
  restart();
  look();
  EXPECT_EQ(events(10725), 2u);
  EXPECT_EQ(server.fault, "");
  EXPECT_EQ(
      fake.files.content("/opt/korvane/IPS/bulk/bulk-20260101000000000-aaaaaaaaaaaa.zip.part"), "");
}

TEST_F(BulkWorld, TheDiskLimitTakesKeptCopiesThenTheOldest) {
  // Every file that goes frees a percent of the disk.
  class Disk : public platform::ForwardingFiles {
   public:
    Disk(Files& to, platform::MemoryFiles& memory) : ForwardingFiles(to), _memory(memory) {}
    int remove(const std::string& path) override {
      const int error = ForwardingFiles::remove(path);
      if (error == 0 && path.find("/bulk/") == std::string::npos)
        setUsed(--used), gone.push_back(path);
      return error;
    }
    void setUsed(uint64_t percent) {
      used = percent;
      _memory.setFreeBytes(platform::MemoryFiles::kTotalBytes / 100 * (100 - percent));
    }
    uint64_t used = 0;
    std::vector<std::string> gone;

   private:
    platform::MemoryFiles& _memory;
  } disk(files, fake.files);
  settings().setDeleteLogs(false);
  settings().setExternalLogs(kApp);
  settings().setHIDSRTLogFile("/opt/korvane/IDS/logs/rt-9.csv");
  const auto put = [&](const std::string& path) {
    fake.files.put(path, "content\n");
    fake.clock.advance(1000);
  };
  put(std::string(kOwn) + "1.log");
  restart(&disk);
  for (int copy = 0; copy < 2; ++copy) {
    put(std::string(kIds) + "1.csv");
    looks(4);
  }
  EXPECT_TRUE(exists(std::string(kOwn) + "1.log")) << "sent and kept";
  for (const char* copy : {"1.csv.sent", "1.csv.sent.2"}) {
    EXPECT_TRUE(exists(std::string(kIds) + copy));
    fake.files.remove(std::string(kIds) + copy);
  }
  EXPECT_EQ(state().logs.size(), 1u);
  EXPECT_EQ(server.bytes(), 24u);
  put(std::string(kIds) + "3.csv");
  put("/opt/korvane/IDS/logs/rt-4.csv.sent");
  for (const char* path :
       {"/opt/korvane/IDS/logs/rt-8.csv", "/opt/korvane/IDS/logs/rt-9.csv", kApp})
    put(path);
  put(std::string(kOwn) + "2.log");
  put(std::string(kOwn) + "5.log");
  put(std::string(kOwn) + "9.log");
  answer = "refused";
  disk.setUsed(89);
  look();
  EXPECT_TRUE(disk.gone.empty());
  settings().setLogDiskLowerLimit(86);
  disk.setUsed(90);
  settings().setBulkTransferEnabled(false);  // the limits hold all the same
  restart(&disk);
  fake.files.remove(kStateFile);
  for (const bulk::LogRecord& log : state().logs) EXPECT_EQ(log.position, 0u);
  look();
  EXPECT_EQ(disk.used, 86u);
  EXPECT_EQ(disk.gone, (std::vector<std::string>{
                           "/opt/korvane/IDS/logs/rt-4.csv.sent", std::string(kOwn) + "1.log",
                           std::string(kIds) + "3.csv", std::string(kOwn) + "2.log"}));
  EXPECT_EQ(events(10723), 3u);
  ASSERT_EQ(losses.size(), 3u);
  EXPECT_EQ(losses[1].cause, bulk::Loss::Cause::diskLimit);
  EXPECT_EQ(losses[1].log + std::to_string(losses[1].from) + std::to_string(losses[1].to),
            std::string(kIds) + "3.csv08");
  // Nothing else makes room.
  settings().setLogDiskLowerLimit(0);
  disk.setUsed(99);
  look();
  EXPECT_EQ(disk.gone.back(), std::string(kOwn) + "5.log");
  EXPECT_EQ(disk.gone.size(), 5u);
  settings().setDeleteLogs(true);
  put("/opt/korvane/IDS/logs/rt-4.csv.sent.2");
  settings().setLogDiskUpperLimit(0);
  look();
  EXPECT_EQ(disk.gone.back(), "/opt/korvane/IDS/logs/rt-4.csv.sent.2");
}

TEST_F(BulkWorld, TheDriversLogsAreRolledWhenNothingWaits) {
  driverNow = STRING(std::string(kDriverLog) + ".log");
  looks(2);
  fake.files.put(std::string(kDriverLog) + ".log", "");
  looks(1);
  EXPECT_EQ(driverNow.toUtf8(), std::string(kDriverLog) + ".log");
  fake.files.put(std::string(kDriverLog) + ".log", "event\n");
  rolls = false;
  looks(2);
  EXPECT_EQ(events(10728), 1u);
  rolls = true;
  EXPECT_EQ(look(), 10u);
  EXPECT_EQ(settings().getDriverLogFile(), driverNow);
  looks(4);
  EXPECT_EQ(server.content(std::string(kDriverLog) + ".log"), "event\n");
  EXPECT_FALSE(exists(std::string(kDriverLog) + ".log"));
}

TEST_F(BulkWorld, TheThreadEndsWithItsStopAndWithoutAServerNothingIsSent) {
  fake.files.put(std::string(kOwn) + "1.log", "x\n");
  bulk::Parts local = parts(files);
  local.send = nullptr;
  BulkLogProcessingThread waiting(parts(files)), started(local);
  settings().setLogPriority("low");
  started.start();
  for (Thread* thread : {static_cast<Thread*>(&waiting), static_cast<Thread*>(&started)}) {
    thread->stop();
    EXPECT_TRUE(tests::waitFor("the thread's end", [&] { return !thread->isAlive(); }));
  }
  EXPECT_TRUE(offered.empty());
  settings().setBulkTransferIdleInterval(-5);
  EXPECT_EQ(look(), 1u);
  // What goes wrong in one look is no end of the thread.
  bulk::Parts failing = parts(files);
  failing.send = [](const std::string&) -> bulk::Offer { throw std::bad_alloc(); };
  fake.files.put(std::string(kOwn) + "2.log", "x\n");
  BulkLogProcessingThread unlucky(failing);
  EXPECT_EQ(unlucky.cycle(), 60u);
  EXPECT_EQ(unlucky.cycle(), 60u);
  unlucky.stop();
  EXPECT_TRUE(tests::waitFor("the thread's end", [&] { return !unlucky.isAlive(); }));
}

}  // namespace
}  // namespace korvane::tests
