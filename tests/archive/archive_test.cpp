// What archives are refused and for what, that nothing of them remains, and what a crash leaves.
#include <gtest/gtest.h>

#include <cerrno>

#include "archive/entry_name.h"
#include "archive/unpacking.h"
#include "archive/zip_archive.h"
#include "archive/zip_writer.h"
#include "platform/fake/faulty_files.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"
#include "platform/fake/recording_files.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "tests/support/temp_directory.h"
#include "tests/support/zip_maker.h"

namespace korvane::archive {
namespace {

using tests::makeZip;
using tests::ZipEntry;

constexpr uint32_t kLinkMode = 0120777u << 16;

Fault faultOf(const std::string& bytes, const Limits& limits = {}) {
  ZipArchive zip("data.zip", bytes, limits);
  Refusal refusal;
  if (zip.open(refusal)) zip.verify(refusal);
  EXPECT_EQ(refusal.fault == Fault::none, refusal.reason.empty());
  return refusal.fault;
}

TEST(ArchiveTest, NamesThatMayBecomePathsAndNamesThatMayNot) {
  const struct {
    std::string name;
    Fault fault;
  } cases[] = {
      {"a", Fault::none},
      {"a/b.c/d e", Fault::none},
      {"directory/", Fault::none},
      {"..a/a..b", Fault::none},
      {"z\u00fcrich/\u6771.txt", Fault::none},
      {"console/com10/comb/nulls", Fault::none},
      {"", Fault::badName},
      {"a//b", Fault::badName},
      {"./a", Fault::badName},
      {"a/.", Fault::badName},
      {"a\xff", Fault::badName},
      {std::string("a\0b", 3), Fault::badName},
      {"a\nb", Fault::badName},
      {"file:stream", Fault::badName},
      {"what?", Fault::badName},
      {"trailing.", Fault::badName},
      {"trailing /x", Fault::badName},
      {std::string(241, 'a'), Fault::badName},
      {std::string(1001, 'a'), Fault::badName},
      {std::string(66, '/').replace(
           0, 65, "a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a"),
       Fault::badName},
      {"..", Fault::leavesDirectory},
      {"../x", Fault::leavesDirectory},
      {"a/../../x", Fault::leavesDirectory},
      {"a/..", Fault::leavesDirectory},
      {"/etc/passwd", Fault::absolutePath},
      {"C:/x", Fault::absolutePath},
      {"c:x", Fault::absolutePath},
      {"a\\b", Fault::backslash},
      {"\\\\server\\share", Fault::backslash},
      {"..\\x", Fault::backslash},
      {"NUL", Fault::reservedName},
      {"a/con.txt", Fault::reservedName},
      {"Com1/x", Fault::reservedName},
      {"lpt\u00b2.log", Fault::reservedName},
      {"aux .h", Fault::reservedName},
      {"conin$", Fault::reservedName},
  };
  for (const auto& c : cases) {
    std::string reason;
    EXPECT_EQ(checkEntryName(c.name, reason), c.fault) << c.name;
    EXPECT_EQ(faultOf(makeZip({{.name = c.name}})), c.fault) << c.name;
  }
}

TEST(ArchiveTest, ContentsThatAreRefused) {
  const std::string zeros(1'000'000, '\0');
  const uint64_t huge = 0x7fffffffffffffff;
  const ZipEntry plain{.name = "plain", .content = "some content"};
  const struct {
    const char* what;
    std::vector<ZipEntry> entries;
    Fault fault;
  } cases[] = {
      {"stored and deflated",
       {plain, {.name = "d", .content = "xxxxxxxx", .deflated = true}},
       Fault::none},
      {"64-bit sizes that are true",
       {{.name = "z", .content = "abc", .zip64 = true}},
       Fault::tooLarge},
      {"modes of a file and a directory",
       {{.name = "f", .attributes = 0100644u << 16}, {.name = "d/", .attributes = 040755u << 16}},
       Fault::none},
      {"a directory before and behind its files",
       {{.name = "d/"}, {.name = "d/f"}, {.name = "e/f"}, {.name = "e/"}},
       Fault::none},
      {"a link",
       {{.name = "l", .content = "/etc/passwd", .attributes = kLinkMode}},
       Fault::notAFile},
      {"a device", {{.name = "l", .attributes = 020666u << 16}}, Fault::notAFile},
      {"a file with a directory's mode",
       {{.name = "l", .attributes = 040755u << 16}},
       Fault::notAFile},
      {"a Windows reparse point", {{.name = "l", .attributes = 0x400}}, Fault::notAFile},
      {"the same name twice", {plain, plain}, Fault::duplicate},
      {"names that differ in case", {plain, {.name = "PLAIN"}}, Fault::duplicate},
      {"other letters that differ in case",
       {{.name = "\u00e4\u03c3\u0436"}, {.name = "\u00c4\u03a3\u0416"}},
       Fault::duplicate},
      {"a file where a directory is needed", {plain, {.name = "Plain/x"}}, Fault::duplicate},
      {"a directory where a file is needed", {{.name = "plain/x"}, plain}, Fault::duplicate},
      {"a directory twice", {{.name = "d/"}, {.name = "D/"}}, Fault::duplicate},
      {"encrypted", {{.name = "e", .content = "x", .flags = 1}}, Fault::encrypted},
      {"encrypted strongly", {{.name = "e", .content = "x", .flags = 0x40}}, Fault::encrypted},
      {"encrypted names", {{.name = "e", .content = "x", .flags = 0x2000}}, Fault::encrypted},
      {"another method", {{.name = "b", .content = "x", .method = 12}}, Fault::unknownMethod},
      {"wrong checksum", {{.name = "c", .content = "x", .crc = 1}}, Fault::wrongContent},
      {"wrong checksum, deflated",
       {{.name = "c", .content = zeros, .deflated = true, .crc = 1}},
       Fault::wrongContent},
      {"less than stated",
       {{.name = "s", .content = "x", .deflated = true, .size = 2}},
       Fault::wrongContent},
      {"more than stated",
       {{.name = "s", .content = "xyz", .deflated = true, .size = 2}},
       Fault::wrongContent},
      {"packed bytes beyond the archive",
       {{.name = "s", .content = "x", .packedSize = 70'000}},
       Fault::wrongContent},
      {"stored as inflated", {{.name = "s", .content = "xyz", .method = 8}}, Fault::wrongContent},
      {"a directory with content", {{.name = "d/", .content = "x"}}, Fault::wrongContent},
      {"as tightly as deflate packs",
       {{.name = "b", .content = zeros, .deflated = true}},
       Fault::none},
      {"packed too tightly",
       {{.name = "b", .content = "x", .size = 100'000}},
       Fault::packedTooTightly},
      {"states too much", {{.name = "b", .content = "x", .size = 0xfffffff0}}, Fault::tooLarge},
      {"64-bit sizes that lie",
       {{.name = "z", .content = "x", .size = huge, .zip64 = true}},
       Fault::tooLarge},
  };
  for (const auto& c : cases) EXPECT_EQ(faultOf(makeZip(c.entries)), c.fault) << c.what;
}

TEST(ArchiveTest, ArchivesThatAreDamagedOrBeyondTheLimits) {
  const std::string whole =
      makeZip({{.name = "a", .content = "aaaa"}, {.name = "b", .content = "bb"}});
  EXPECT_EQ(faultOf(makeZip({})), Fault::notAnArchive);
  EXPECT_EQ(faultOf(""), Fault::notAnArchive);
  EXPECT_EQ(faultOf("no archive at all"), Fault::notAnArchive);
  EXPECT_EQ(faultOf("MZ a program first" + whole), Fault::notAnArchive);
  EXPECT_EQ(faultOf(makeZip({{.name = "a"}}, 3)), Fault::damagedDirectory);
  for (size_t size = 0; size < whole.size(); ++size)
    EXPECT_NE(faultOf(whole.substr(0, size)), Fault::none) << size;
  EXPECT_EQ(faultOf(whole, {.entries = 1}), Fault::tooManyEntries);
  EXPECT_EQ(faultOf(whole, {.totalBytes = 5}), Fault::tooLarge);
  EXPECT_EQ(faultOf(whole, {.entries = 2, .totalBytes = 6}), Fault::none);
}

TEST(ArchiveTest, ARefusalNamesArchiveEntryReasonAndNumber) {
  const std::string bytes = makeZip({{.name = "../x"}});
  ZipArchive zip("data.zip", bytes);
  Refusal refusal;
  EXPECT_FALSE(zip.open(refusal));
  EXPECT_EQ(refusal.text(), "data.zip, entry ../x: the path leaves the directory (code 7)");
  EXPECT_TRUE(zip.entries().empty());
  std::string out = "before";
  EXPECT_FALSE(zip.read("missing", out, refusal));
  EXPECT_EQ(refusal.fault, Fault::missingEntry);
  EXPECT_EQ(out, "");
}

TEST(ZipWriterTest, WhatIsWrittenIsReadBackAndTheSameEveryTime) {
  std::string bulk(300000, 'x');
  for (size_t i = 0; i < bulk.size(); i += 7) bulk[i] = static_cast<char>(i * 31 >> 3);
  const std::pair<std::string, std::string> entries[] = {
      {"policy.txt", "text"}, {"z\u00fcrich/empty", ""}, {"z\u00fcrich/bulk", bulk}};
  const auto write = [&entries] {
    ZipWriter writer("made.zip");
    Refusal refusal;
    for (const auto& [name, content] : entries)
      EXPECT_TRUE(writer.add(name, content, refusal)) << refusal.text();
    return writer.finish();
  };
  const std::string bytes = write();
  EXPECT_EQ(bytes, write());
  EXPECT_LT(bytes.size(), bulk.size());
  ZipArchive zip("made.zip", bytes);
  Refusal refusal;
  ASSERT_TRUE(zip.open(refusal)) << refusal.text();
  ASSERT_EQ(zip.entries().size(), std::size(entries));
  for (size_t i = 0; i < std::size(entries); ++i) {
    std::string content;
    EXPECT_EQ(zip.entries()[i].name, entries[i].first);
    EXPECT_TRUE(zip.read(entries[i].first, content, refusal)) << refusal.text();
    EXPECT_EQ(content, entries[i].second);
  }
}

TEST(ZipWriterTest, RefusesWhatCouldNotBeReadBack) {
  Limits limits;
  limits.entries = 2;
  limits.totalBytes = 10;
  const struct {
    const char* name;
    size_t size;
    Fault fault;
  } cases[] = {{"../up", 1, Fault::leavesDirectory},
               {"folder/", 0, Fault::notAFile},
               {"a", 11, Fault::tooLarge},
               {"A/b", 4, Fault::none},
               {"a/B", 1, Fault::duplicate},
               {"a", 1, Fault::duplicate},
               {"c", 7, Fault::tooLarge},
               {"c", 6, Fault::none},
               {"d", 0, Fault::tooManyEntries}};
  ZipWriter writer("made.zip", limits);
  for (const auto& test : cases) {
    Refusal refusal;
    EXPECT_EQ(writer.add(test.name, std::string(test.size, 'x'), refusal),
              test.fault == Fault::none);
    EXPECT_EQ(refusal.fault, test.fault) << test.name << refusal.text();
  }
  EXPECT_EQ(faultOf(writer.finish(), limits), Fault::none);
}

class UnpackingTest : public testing::Test {
 protected:
  const std::string good =
      makeZip({{.name = "first", .content = "new first"},
               {.name = "empty/"},
               {.name = "in/side/second", .content = std::string(100'000, 's'), .deflated = false},
               {.name = "third", .content = ""}});

  void prepare() {
    disk.put("/agent/target/first", "old first");
    disk.put("/agent/target/kept", "kept");
  }
  bool unpackInto(platform::Files& files, const std::string& bytes) {
    refusal = {};
    return unpack(files, "data.zip", bytes, "/agent/target", {}, refusal);
  }

  platform::ManualClock clock;
  platform::MemoryFiles disk{clock};
  Refusal refusal;
};

TEST_F(UnpackingTest, PutsFilesInPlaceAndLeavesNothingBeside) {
  prepare();
  disk.put("/agent/target.unpacking/in/left by a crash", "x");
  ASSERT_TRUE(unpackInto(disk, good)) << refusal.text();
  EXPECT_EQ(disk.paths(),
            (std::vector<std::string>{"/agent/target/first", "/agent/target/in/side/second",
                                      "/agent/target/kept", "/agent/target/third"}));
  EXPECT_EQ(disk.content("/agent/target/first"), "new first");
  platform::FileInfo info;
  EXPECT_EQ(disk.info("/agent/target/empty", info), 0);
  EXPECT_EQ(disk.info("/agent/target.unpacking", info), ENOENT);
}

TEST_F(UnpackingTest, ARefusedArchiveChangesNothing) {
  prepare();
  const std::string lastIsBad =
      makeZip({{.name = "first", .content = "new"}, {.name = "z", .content = "x", .crc = 1}});
  EXPECT_FALSE(unpackInto(disk, lastIsBad));
  EXPECT_EQ(refusal.fault, Fault::wrongContent);
  const std::string overDirectory = makeZip({{.name = "first", .content = "new"}, {.name = "in"}});
  disk.makeDirectories("/agent/target/in");
  EXPECT_FALSE(unpackInto(disk, overDirectory));
  EXPECT_EQ(refusal.error, EISDIR);
  EXPECT_EQ(disk.paths(), (std::vector<std::string>{"/agent/target/first", "/agent/target/kept"}));
  EXPECT_EQ(disk.content("/agent/target/first"), "old first");
}

TEST_F(UnpackingTest, EveryFailingFileOperationIsAnErrorAndLeavesWholeFiles) {
  using platform::FileOperation;
  int points = 0;
  for (FileOperation operation :
       {FileOperation::open, FileOperation::write, FileOperation::flush, FileOperation::replace,
        FileOperation::makeDirectories, FileOperation::flushDirectory}) {
    for (int nth = 1;; ++nth) {
      platform::MemoryFiles fresh(clock);
      fresh.put("/agent/target/first", "old first");
      platform::FaultyFiles faulty(fresh);
      faulty.failNth(operation, nth, ENOSPC);
      if (unpackInto(faulty, good)) break;
      ++points;
      EXPECT_EQ(refusal.fault, Fault::fileOperation);
      EXPECT_EQ(refusal.error, ENOSPC) << refusal.text();
      const std::string first = fresh.content("/agent/target/first");
      EXPECT_TRUE(first == "old first" || first == "new first");
      for (const std::string& path : fresh.paths())
        EXPECT_EQ(path.find(".unpacking"), std::string::npos) << path;
    }
  }
  EXPECT_GT(points, 20);
}

TEST_F(UnpackingTest, ACrashLeavesEveryFileOldOrNew) {
  prepare();
  platform::RecordingFiles recorded(disk);
  ASSERT_TRUE(unpackInto(recorded, good));
  const size_t done = recorded.size();
  int states = 0;
  recorded.forEachCrash([&](const std::string& state, platform::MemoryFiles& after) {
    ++states;
    const std::string first = after.content("/agent/target/first");
    EXPECT_TRUE(first == "old first" || first == "new first") << state;
    const std::string second = after.content("/agent/target/in/side/second");
    EXPECT_TRUE(second.empty() || second == std::string(100'000, 's')) << state;
    EXPECT_TRUE(unpackInto(after, good)) << state << refusal.text();
  });
  EXPECT_GT(states, 20);
  platform::MemoryFiles after(clock);
  recorded.crash(done, platform::DataLoss::all, platform::NameLoss::all, after);
  EXPECT_EQ(after.content("/agent/target/first"), "new first");
  EXPECT_EQ(after.content("/agent/target/in/side/second"), std::string(100'000, 's'));
}

TEST(ArchiveOnDiskTest, UnpacksWithTheSystemsSeparatorAndRemovesTrees) {
  const tests::TempDirectory directory;
  const std::unique_ptr<platform::Files> owned = platform::makeNativeFiles();
  platform::Files& files = *owned;
  const std::string target = platform::joinPath(files, {directory.path(), "target"});
  const std::string bytes = makeZip({{.name = "a/b/c.txt", .content = "abc", .deflated = true}});
  Refusal refusal;
  ASSERT_TRUE(unpack(files, "data.zip", bytes, target, {}, refusal)) << refusal.text();
  std::string content;
  ASSERT_EQ(platform::readWholeFile(files, platform::joinPath(files, {target, "a", "b", "c.txt"}),
                                    10, content),
            0);
  EXPECT_EQ(content, "abc");
  EXPECT_EQ(platform::removeTree(files, target), 0);
  EXPECT_EQ(platform::removeTree(files, target), 0);
  std::vector<platform::DirectoryEntry> left;
  EXPECT_EQ(files.list(directory.path(), left), 0);
  EXPECT_TRUE(left.empty());
}

}  // namespace
}  // namespace korvane::archive
