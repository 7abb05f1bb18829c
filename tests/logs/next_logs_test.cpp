#include "logs/next_logs.h"

#include "logs/log_mark.h"
#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

constexpr char kList[] = "/opt/korvane/IPS/hidslog1rtnextlogs";

class NextLogsTest : public LogFixture {
 protected:
  NextLogs loaded(const STRING& reading = "/a") {
    NextLogs next(files, kList);
    next.load(reading);
    return next;
  }
  static std::string namesOf(const NextLogs& next) {
    std::string names;
    for (const STRING& name : next.names()) names += name.toUtf8() + " ";
    return names;
  }
};

TEST_F(NextLogsTest, ALeftLogGoesOnWhereItWasLeftUnlessItIsAnother) {
  const auto write = [&](const std::string& text) {
    fake.files.remove("/l");
    fake.files.put("/l", text);
  };
  const std::string left = eventLine(1) + eventLine(2);
  const auto size = static_cast<int64_t>(left.size());
  const auto again = [&](int64_t offset, const char* names, const char* what) {
    NextLogs next = loaded("/c");
    next.recallGrown("/c");
    EXPECT_EQ(namesOf(next), names) << what;
    EXPECT_EQ(next.enter("/./l"), offset) << what;
    EXPECT_EQ(next.enter("/l"), 0) << "it is a left one no more";
  };
  write(left);
  std::unique_ptr<platform::File> file;
  ASSERT_EQ(files.open("/l", platform::OpenMode::read, file), 0);
  NextLogs next(files, kList);
  next.leave("/l", placeIn(*file, size));
  next.leave("/never", {});
  next.save();
  again(size, "", "nothing new");
  append("/l", eventLine(3));
  again(size, "/l ", "it has grown");
  write(left + eventLine(3));
  again(0, "/l ", "another file that begins alike");
  fake.files.put("/never", "x");
  again(0, "/l /never ", "one that never appeared");
  fake.files.remove("/l");
  again(0, "/never ", "gone");
}

TEST_F(NextLogsTest, AListThatWasDamagedIsReportedAndBegunAnew) {
  {
    NextLogs next(files, kList);
    next.note("/b", "/a");
    next.leave("/l", {7, 8, 9, 10});
    next.save();
  }
  const std::string good = fake.files.content(kList);
  EXPECT_EQ(namesOf(loaded()), "/b ");
  size_t damaged = 0;
  for (size_t at = 0; at < good.size(); ++at) {
    std::string changed = good;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    for (const std::string& text : {changed, good.substr(0, at)}) {
      fake.files.put(kList, text);
      EXPECT_EQ(namesOf(loaded()), "") << text;
      EXPECT_EQ(events(10552), ++damaged);
    }
  }
  EXPECT_EQ(inOwnLog(kList), damaged);
}

TEST_F(NextLogsTest, WhatCannotBeWrittenIsReportedOnceAndTriedAgain) {
  files.failAll(platform::FileOperation::replace, ENOSPC, "nextlogs");
  NextLogs next(files, kList);
  next.note("/b", "/a");
  for (int i = 0; i < 3; ++i) next.save();
  EXPECT_EQ(events(10553), 1u);
  EXPECT_EQ(namesOf(next), "/b ");
  files.heal();
  next.save();
  EXPECT_EQ(namesOf(loaded()), "/b ");
  const int writes = files.count(platform::FileOperation::replace);
  next.save();
  EXPECT_EQ(files.count(platform::FileOperation::replace), writes) << "nothing has changed";
}

TEST_F(NextLogsTest, KeepsToItsBounds) {
  NextLogs next(files, kList);
  for (size_t i = 0; i < NextLogs::kMaxNames + 5; ++i) {
    next.note("/n" + std::to_string(i), "/a");
    next.leave("/l" + std::to_string(i), {});
  }
  EXPECT_EQ(next.names().size(), NextLogs::kMaxNames);
  EXPECT_EQ(events(10555), 1u);
  next.save();
  NextLogs again = loaded();
  EXPECT_EQ(again.names().size(), NextLogs::kMaxNames);
  EXPECT_FALSE(again.isLeft("/l0"));
  EXPECT_TRUE(again.isLeft("/l" + std::to_string(NextLogs::kMaxNames + 4)));
}

}  // namespace
}  // namespace korvane::tests
