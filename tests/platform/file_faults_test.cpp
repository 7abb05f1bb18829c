// The fault-injecting and the recording Files, and with them the durability of atomic writing.
#include <gmock/gmock.h>

#include <cerrno>
#include <set>

#include "platform/fake/faulty_files.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/recording_files.h"
#include "platform/paths.h"

namespace korvane::platform {
namespace {

class FileFaults : public testing::Test {
 protected:
  ManualClock clock;
  MemoryFiles disk{clock};
  void SetUp() override { disk.put("/s/state", "old content"); }

  // What the state file holds after every crash of writing "new content!" through a recorder.
  std::set<std::string> contentsAfterCrashes(const std::function<void(Files&)>& write) {
    RecordingFiles recorder(disk);
    write(recorder);
    std::set<std::string> contents;
    recorder.forEachCrash([&](const std::string& state, MemoryFiles& left) {
      const auto paths = left.paths();
      const bool there = std::find(paths.begin(), paths.end(), "/s/state") != paths.end();
      contents.insert(there ? left.content("/s/state") : "missing");
      EXPECT_FALSE(state.empty());
    });
    return contents;
  }
};

TEST_F(FileFaults, everyFailureOfAnAtomicWriteLeavesTheOldContent) {
  FaultyFiles files(disk);
  for (const FileOperation operation :
       {FileOperation::open, FileOperation::write, FileOperation::flush, FileOperation::replace}) {
    files.failNth(operation, 1, EIO, "state");
    EXPECT_EQ(writeFileAtomically(files, "/s/state", "new"), EIO);
    EXPECT_EQ(disk.content("/s/state"), "old content");
    EXPECT_THAT(disk.paths(), testing::ElementsAre("/s/state")) << "no temporary file is left";
  }
  EXPECT_EQ(files.count(FileOperation::open), 4);
  files.failAll(FileOperation::flushDirectory, EIO);
  EXPECT_EQ(writeFileAtomically(files, "/s/state", "new"), EIO) << "not durable is not done";
  files.heal();
  EXPECT_EQ(writeFileAtomically(files, "/s/state", "new"), 0);
}

TEST_F(FileFaults, theNthOperationOfMatchingPathsFailsOnce) {
  FaultyFiles files(disk);
  std::unique_ptr<File> file;
  files.failNth(FileOperation::read, 2, EIO, "state");
  ASSERT_EQ(files.open("/s/state", OpenMode::read, file), 0);
  char byte;
  size_t got = 0;
  EXPECT_EQ(file->read(&byte, 1, got), 0);
  EXPECT_EQ(file->read(&byte, 1, got), EIO);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(file->read(&byte, 1, got), 0);
  EXPECT_EQ(byte, 'l') << "the failed one moved nothing";
}

TEST_F(FileFaults, anAtomicWriteSurvivesEveryCrash) {
  const auto contents = contentsAfterCrashes(
      [](Files& files) { ASSERT_EQ(writeFileAtomically(files, "/s/state", "new content!"), 0); });
  EXPECT_THAT(contents, testing::ElementsAre("new content!", "old content"));
}

TEST_F(FileFaults, withoutItsFlushAnAtomicWriteIsFoundOut) {
  class NoFlush : public ForwardingFiles {
   public:
    using ForwardingFiles::ForwardingFiles;
    int open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) override {
      struct Lazy : ForwardingFile {
        using ForwardingFile::ForwardingFile;
        int flush() override { return 0; }
      };
      std::unique_ptr<File> opened;
      if (const int error = _to.open(path, mode, opened)) return error;
      out = std::make_unique<Lazy>(std::move(opened));
      return 0;
    }
  };
  const auto contents = contentsAfterCrashes([](Files& files) {
    NoFlush lazy(files);
    ASSERT_EQ(writeFileAtomically(lazy, "/s/state", "new content!"), 0);
  });
  EXPECT_THAT(contents,
              testing::IsSupersetOf({std::string(), std::string(12, '\0'), std::string("new co")}));
}

TEST_F(FileFaults, rewritingInPlaceCanTearReorderAndZero) {
  const auto contents = contentsAfterCrashes([](Files& files) {
    std::unique_ptr<File> file;
    ASSERT_EQ(files.open("/s/state", OpenMode::readWrite, file), 0);
    ASSERT_EQ(file->write("AAAA", 4), 0);
    ASSERT_EQ(file->write("BBBB", 4), 0);
    ASSERT_EQ(file->flush(), 0);
    ASSERT_EQ(file->write("CC", 2), 0);
  });
  const std::string zeroed = std::string(8, '\0') + "ent";
  EXPECT_THAT(contents,
              testing::IsSupersetOf({std::string("old content"), std::string("AAd content"),
                                     std::string("AAAABBBBent"), std::string("old BBBBent"), zeroed,
                                     std::string("AAAABBBBCCt"), std::string("AAAABBBBCnt")}));
}

TEST_F(FileFaults, unflushedNamesMayBeLost) {
  const auto contents = contentsAfterCrashes([](Files& files) {
    ASSERT_EQ(files.rename("/s/state", "/s/kept"), 0);
    ASSERT_EQ(files.flushDirectory("/s"), 0);
    ASSERT_EQ(files.replace("/s/kept", "/s/state"), 0);
    ASSERT_EQ(files.remove("/s/state"), 0);
  });
  EXPECT_THAT(contents, testing::ElementsAre("missing", "old content"));
}

TEST_F(FileFaults, ofADirectorysChangesTheLastMayBeKeptAlone) {
  disk.put("/t/fresh", "fresh");
  RecordingFiles recorder(disk);
  ASSERT_EQ(recorder.replace("/s/state", "/s/backup"), 0);
  ASSERT_EQ(recorder.replace("/t/fresh", "/s/state"), 0);
  ASSERT_EQ(recorder.flushDirectory("/s"), 0);
  EXPECT_EQ(recorder.flushes(), 1u);
  const auto left = [&](size_t entries, NameLoss names) {
    MemoryFiles after(clock);
    recorder.crash(entries, DataLoss::none, names, after);
    std::map<std::string, std::string> contents;
    for (const std::string& path : after.paths()) contents[path] = after.content(path);
    return contents;
  };
  using Disk = std::map<std::string, std::string>;
  EXPECT_EQ(left(2, NameLoss::lastOnly), (Disk{{"/s/state", "fresh"}})) << "the backup is lost";
  EXPECT_EQ(left(1, NameLoss::lastOnly), left(1, NameLoss::none));
  const Disk whole{{"/s/backup", "old content"}, {"/s/state", "fresh"}};
  EXPECT_EQ(left(3, NameLoss::lastOnly), whole);
  recorder.leaveOutFlush(0);
  EXPECT_EQ(left(3, NameLoss::lastOnly), (Disk{{"/s/state", "fresh"}})) << "as if not flushed";
}

}  // namespace
}  // namespace korvane::platform
