// What every Files must do: the system's own over a temporary directory, and the one in memory.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {
namespace {

using testing::ElementsAre;

struct NativeFilesWorld {
  tests::TempDirectory directory;
  std::unique_ptr<Files> owned = makeNativeFiles();
  Files& files = *owned;
  std::string root = directory.path();
};

struct MemoryFilesWorld {
  ManualClock clock;
  MemoryFiles files{clock};
  std::string root = "/disk";
  MemoryFilesWorld() { files.makeDirectories(root); }
};

template <class World>
class FilesConformance : public testing::Test {
 protected:
  World world;
  Files& files = world.files;

  std::string at(std::string_view name) { return joinPath(files, {world.root, name}); }

  std::unique_ptr<File> open(std::string_view name, OpenMode mode) {
    std::unique_ptr<File> file;
    EXPECT_EQ(files.open(at(name), mode, file), 0) << name;
    return file;
  }

  void put(std::string_view name, std::string_view bytes) {
    EXPECT_EQ(open(name, OpenMode::create)->write(bytes.data(), bytes.size()), 0);
  }

  std::string content(std::string_view name) {
    std::string bytes;
    EXPECT_EQ(readWholeFile(files, at(name), 1 << 20, bytes), 0) << name;
    return bytes;
  }

  // Of all that lies in the root, a blank between them.
  std::string names() {
    std::vector<DirectoryEntry> entries;
    EXPECT_EQ(files.list(world.root, entries), 0);
    std::string all;
    for (const DirectoryEntry& entry : entries) all += (all.empty() ? "" : " ") + entry.name;
    return all;
  }

  FileInfo infoOf(std::string_view name) {
    FileInfo info;
    EXPECT_EQ(files.info(at(name), info), 0) << name;
    return info;
  }
};

using FilesWorlds = testing::Types<NativeFilesWorld, MemoryFilesWorld>;
TYPED_TEST_SUITE(FilesConformance, FilesWorlds);

TYPED_TEST(FilesConformance, readsInPiecesAndShortOnlyAtTheEnd) {
  this->put("a", "0123456789");
  auto file = this->open("a", OpenMode::read);
  char buffer[8];
  size_t got = 0;
  ASSERT_EQ(file->read(buffer, 8, got), 0);
  EXPECT_EQ(std::string(buffer, got), "01234567");
  ASSERT_EQ(file->read(buffer, 8, got), 0);
  EXPECT_EQ(std::string(buffer, got), "89");
  ASSERT_EQ(file->read(buffer, 8, got), 0);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(file->tell(), 10);

  const auto writer = this->open("a", OpenMode::append);
  ASSERT_EQ(writer->write("ab", 2), 0);
  ASSERT_EQ(file->read(buffer, 8, got), 0);
  EXPECT_EQ(std::string(buffer, got), "ab") << "a reader at the end sees what is appended";
}

TYPED_TEST(FilesConformance, seeksAndRefusesNegativeOffsets) {
  this->put("a", "0123456789");
  auto file = this->open("a", OpenMode::readWrite);
  EXPECT_EQ(file->tell(), 0);
  ASSERT_EQ(file->seek(4), 0);
  EXPECT_EQ(file->seek(-1), EINVAL);
  EXPECT_EQ(file->tell(), 4);
  ASSERT_EQ(file->write("XY", 2), 0);
  char next;
  size_t got = 0;
  ASSERT_EQ(file->read(&next, 1, got), 0);
  EXPECT_EQ(next, '6');
  ASSERT_EQ(file->seek(12), 0);
  ASSERT_EQ(file->write("Z", 1), 0);
  EXPECT_EQ(this->content("a"), std::string("0123XY6789\0\0Z", 13)) << "a gap is zeros";
}

TYPED_TEST(FilesConformance, modesMakeEmptyAppendOrRefuse) {
  std::unique_ptr<File> file;
  EXPECT_EQ(this->files.open(this->at("a"), OpenMode::read, file), ENOENT);
  EXPECT_EQ(this->files.open(this->at("a"), OpenMode::readWrite, file), ENOENT);
  EXPECT_EQ(this->files.open(this->at("none/a"), OpenMode::create, file), ENOENT);
  EXPECT_EQ(this->files.open(this->world.root, OpenMode::read, file), EISDIR);
  EXPECT_EQ(file, nullptr);

  this->put("a", "old and long");
  this->put("a", "new");
  EXPECT_EQ(this->content("a"), "new");

  const auto first = this->open("a", OpenMode::append), second = this->open("a", OpenMode::append);
  ASSERT_EQ(first->write("1", 1), 0);
  ASSERT_EQ(second->write("2", 1), 0);
  ASSERT_EQ(first->seek(0), 0);
  ASSERT_EQ(first->write("3", 1), 0);
  EXPECT_EQ(first->tell(), 6);
  EXPECT_EQ(this->content("a"), "new123") << "every write goes to the end";

  size_t got = 0;
  char byte;
  EXPECT_NE(first->read(&byte, 1, got), 0) << "an appender does not read";
  EXPECT_NE(this->open("a", OpenMode::read)->write("x", 1), 0);
}

TYPED_TEST(FilesConformance, truncatesAndTellsSizeDateAndIdentity) {
  this->put("a", "0123456789");
  const FileInfo before = this->infoOf("a");
  EXPECT_EQ(before.size, 10u);
  EXPECT_FALSE(before.isDirectory);
  EXPECT_GT(before.modifiedNs, int64_t{1600000000} * 1000000000);
  auto file = this->open("a", OpenMode::readWrite);
  ASSERT_EQ(file->truncate(3), 0);
  ASSERT_EQ(file->flush(), 0);
  FileInfo open;
  ASSERT_EQ(file->info(open), 0);
  EXPECT_EQ(open.size, 3u);
  EXPECT_EQ(open.identity, before.identity);
  EXPECT_EQ(this->content("a"), "012");
  EXPECT_TRUE(this->infoOf("").isDirectory);

  this->put("b", "other");
  file.reset();
  ASSERT_EQ(this->files.replace(this->at("b"), this->at("a")), 0);
  EXPECT_NE(this->infoOf("a").identity, before.identity) << "another file has taken its place";
}

TYPED_TEST(FilesConformance, replaceAndRenameAndRemove) {
  Files& disk = this->files;
  this->put("a", "A");
  this->put("b", "B");
  EXPECT_EQ(disk.rename(this->at("a"), this->at("b")), EEXIST);
  EXPECT_EQ(disk.rename(this->at("none"), this->at("c")), ENOENT);
  EXPECT_EQ(disk.replace(this->at("none"), this->at("c")), ENOENT);
  EXPECT_EQ(disk.replace(this->at("a"), this->at("none/c")), ENOENT);
  ASSERT_EQ(disk.replace(this->at("a"), this->at("b")), 0);
  EXPECT_EQ(this->content("b"), "A");
  ASSERT_EQ(disk.rename(this->at("b"), this->at("c")), 0);
  EXPECT_FALSE(fileExists(disk, this->at("b")));
  ASSERT_EQ(disk.remove(this->at("c")), 0);
  EXPECT_EQ(disk.remove(this->at("c")), ENOENT);
  FileInfo info;
  EXPECT_EQ(disk.info(this->at("c"), info), ENOENT);
}

TYPED_TEST(FilesConformance, directories) {
  Files& disk = this->files;
  const std::string deep = joinPath(disk, {this->world.root, "x", "y", "z"});
  ASSERT_EQ(disk.makeDirectories(deep), 0);
  EXPECT_EQ(disk.makeDirectories(deep), 0);
  this->put("x/file", "");
  EXPECT_EQ(disk.makeDirectories(this->at("x/file")), EEXIST);
  EXPECT_NE(disk.makeDirectories(this->at("x/file/below")), 0);

  std::vector<DirectoryEntry> entries;
  ASSERT_EQ(disk.list(this->at("x"), entries), 0);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, "file");
  EXPECT_FALSE(entries[0].isDirectory);
  EXPECT_EQ(entries[1].name, "y");
  EXPECT_TRUE(entries[1].isDirectory);
  EXPECT_EQ(disk.list(this->at("none"), entries), ENOENT);
  EXPECT_TRUE(entries.empty());

  EXPECT_EQ(disk.flushDirectory(this->at("x")), 0);
  EXPECT_EQ(disk.flushDirectory(this->at("none")), ENOENT);
  EXPECT_NE(disk.remove(this->at("x")), 0) << "not empty";
  EXPECT_EQ(disk.remove(deep), 0);
  EXPECT_EQ(disk.list(deep, entries), ENOENT);
}

TYPED_TEST(FilesConformance, howMuchIsFree) {
  uint64_t free = 0;
  EXPECT_EQ(this->files.freeBytes(this->world.root, free), 0);
  EXPECT_GT(free, 1u << 20);
  EXPECT_NE(this->files.freeBytes(this->at("none"), free), 0);
  uint64_t total = 0;
  EXPECT_EQ(this->files.totalBytes(this->world.root, total), 0);
  EXPECT_GE(total, free);
  EXPECT_NE(this->files.totalBytes(this->at("none"), total), 0);
}

TYPED_TEST(FilesConformance, whereAPathLeads) {
  Files& disk = this->files;
  this->put("file", "");
  std::string root, file, later;
  ASSERT_EQ(disk.resolve(this->world.root, root), 0);
  ASSERT_EQ(disk.resolve(this->at("file"), file), 0);
  EXPECT_EQ(file, joinPath(disk, {root, "file"}));
  ASSERT_EQ(disk.resolve(this->at("none/x"), later), 0);
  EXPECT_EQ(later, joinPath(disk, {root, "none", "x"}));
}

TYPED_TEST(FilesConformance, aLockHasOneHolder) {
  std::unique_ptr<FileLock> first, second;
  ASSERT_EQ(this->files.lock(this->at("lockFile"), first), 0);
  EXPECT_TRUE(fileExists(this->files, this->at("lockFile")));
  EXPECT_EQ(this->files.lock(this->at("lockFile"), second), EACCES);
  EXPECT_EQ(second, nullptr);
  first.reset();
  EXPECT_EQ(this->files.lock(this->at("lockFile"), second), 0);
  EXPECT_EQ(this->files.lock(this->at("none/lockFile"), first), ENOENT);
}

TYPED_TEST(FilesConformance, anOpenFileOutlivesItsName) {
  if (this->files.separator() == '\\') GTEST_SKIP() << "an open file keeps its name on Windows";
  this->put("a", "old");
  this->put("b", "new");
  const auto reader = this->open("a", OpenMode::read);
  ASSERT_EQ(this->files.replace(this->at("b"), this->at("a")), 0);
  ASSERT_EQ(this->files.remove(this->at("a")), 0);
  char buffer[8];
  size_t got = 0;
  ASSERT_EQ(reader->read(buffer, sizeof buffer, got), 0);
  EXPECT_EQ(std::string(buffer, got), "old");
}

TYPED_TEST(FilesConformance, aNewFileTakesNobodysPlaceAndHasANameOfItsOwn) {
  std::unique_ptr<File> file;
  ASSERT_EQ(this->files.open(this->at("a"), OpenMode::createNew, file), 0);
  EXPECT_EQ(this->files.open(this->at("a"), OpenMode::createNew, file), EEXIST);
  ASSERT_EQ(this->files.makeDirectories(this->at("b")), 0);
  EXPECT_EQ(this->files.open(this->at("b"), OpenMode::createNew, file), EEXIST);
  const std::string one = this->files.freshName(), other = this->files.freshName();
  EXPECT_NE(one, other);
  EXPECT_EQ(unfinishedTarget("a.b.new-" + one), "a.b");
  const std::string others[] = {".new-" + one, "a.new", "a.new-" + one.substr(1),
                                "a.new-" + one + "x"};
  for (const std::string& name : others) EXPECT_EQ(unfinishedTarget(name), "") << name;
}

TYPED_TEST(FilesConformance, whatACutOffWriteLeftGoesOfTheFilesConcernedUpToABound) {
  size_t left = kMostUnfinished + 3;
  for (size_t i = 0; i < left; ++i) this->put("a.new-" + this->files.freshName(), "half");
  for (const char* name : {"a", "a.new", "b.new-0123456789ab"}) this->put(name, "kept");
  for (const size_t stay : {size_t{3}, size_t{0}}) {
    removeUnfinished(this->files, this->world.root, [](auto target) { return target == "a"; });
    std::string names = this->names();
    EXPECT_EQ(std::count(names.begin(), names.end(), ' '), static_cast<long>(2 + stay)) << names;
  }
  EXPECT_EQ(this->names(), "a a.new b.new-0123456789ab");
}

TYPED_TEST(FilesConformance, wholeFilesAreWrittenAtomicallyAndReadWithABound) {
  ASSERT_EQ(writeFileAtomically(this->files, this->at("a"), "first"), 0);
  ASSERT_EQ(writeFileAtomically(this->files, this->at("a"), "second"), 0);
  EXPECT_EQ(this->content("a"), "second");
  EXPECT_EQ(this->names(), "a") << "and nothing beside it";
  EXPECT_EQ(writeFileAtomically(this->files, this->at("none/a"), "x"), ENOENT);

  std::string bytes = "before";
  EXPECT_EQ(readWholeFile(this->files, this->at("a"), 5, bytes), EFBIG);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(readWholeFile(this->files, this->at("a"), 6, bytes), 0);
  EXPECT_EQ(bytes, "second");
}

}  // namespace
}  // namespace korvane::platform
