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
  std::string deep = "a";
  while (deep.size() < 65) deep += "/a";
  const struct {
    Fault fault;
    std::vector<std::string> names;
  } cases[] = {
      {Fault::none,
       {"a", "a/b.c/d e", "directory/", "..a/a..b", "z\u00fcrich/\u6771.txt",
        "console/com10/comb/nulls"}},
      {Fault::badName,
       {"", "a//b", "./a", "a/.", "a\xff", std::string("a\0b", 3), "a\nb", "file:stream", "what?",
        "trailing.", "trailing /x", std::string(241, 'a'), std::string(1001, 'a'), deep}},
      {Fault::leavesDirectory, {"..", "../x", "a/../../x", "a/.."}},
      {Fault::absolutePath, {"/etc/passwd", "C:/x", "c:x"}},
      {Fault::backslash, {"a\\b", "\\\\server\\share", "..\\x"}},
      {Fault::reservedName, {"NUL", "a/con.txt", "Com1/x", "lpt\u00b2.log", "aux .h", "conin$"}},
  };
  for (const auto& [fault, names] : cases)
    for (const std::string& name : names) {
      std::string reason;
      EXPECT_EQ(checkEntryName(name, reason), fault) << name;
      EXPECT_EQ(faultOf(makeZip({{.name = name}})), fault) << name;
    }
}

TEST(ArchiveTest, ContentsThatAreRefused) {
  const std::string zeros(1'000'000, '\0');
  const uint64_t huge = 0x7fffffffffffffff;
  const ZipEntry plain{.name = "plain", .content = "some content"};
  const struct {
    Fault fault;
    std::vector<std::vector<ZipEntry>> archives;
  } cases[] = {
      {Fault::none,
       {{plain, {.name = "d", .content = "xxxxxxxx", .deflated = true}},
        {{.name = "f", .attributes = 0100644u << 16}, {.name = "d/", .attributes = 040755u << 16}},
        {{.name = "before/"}, {.name = "before/f"}, {.name = "behind/f"}, {.name = "behind/"}},
        {{.name = "as tightly as deflate packs", .content = zeros, .deflated = true}}}},
      {Fault::notAFile,
       {{{.name = "link", .content = "/etc/passwd", .attributes = kLinkMode}},
        {{.name = "device", .attributes = 020666u << 16}},
        {{.name = "a directory's mode", .attributes = 040755u << 16}},
        {{.name = "reparse point", .attributes = 0x400}}}},
      {Fault::duplicate,
       {{plain, plain},
        {plain, {.name = "PLAIN"}},
        {{.name = "\u00e4\u03c3\u0436"}, {.name = "\u00c4\u03a3\u0416"}},
        {{.name = "\u0161\uff41\u03ac"}, {.name = "\u0160\uff21\u0386"}},
        {{.name = "d\u0178/x"}, {.name = "D\u00ff"}},
        {plain, {.name = "Plain/x"}},
        {{.name = "plain/x"}, plain},
        {{.name = "d/"}, {.name = "D/"}}}},
      {Fault::encrypted,
       {{{.name = "weakly", .content = "x", .flags = 1}},
        {{.name = "strongly", .content = "x", .flags = 0x40}},
        {{.name = "its name, too", .content = "x", .flags = 0x2000}}}},
      {Fault::unknownMethod, {{{.name = "b", .content = "x", .method = 12}}}},
      {Fault::wrongContent,
       {{{.name = "checksum", .content = "x", .crc = 1}},
        {{.name = "checksum, deflated", .content = zeros, .deflated = true, .crc = 1}},
        {{.name = "less than stated", .content = "x", .deflated = true, .size = 2}},
        {{.name = "more than stated", .content = "xyz", .deflated = true, .size = 2}},
        {{.name = "beyond the archive", .content = "x", .packedSize = 70'000}},
        {{.name = "stored as inflated", .content = "xyz", .method = 8}},
        {{.name = "directory/", .content = "x"}}}},
      {Fault::packedTooTightly, {{{.name = "b", .content = "x", .size = 100'000}}}},
      {Fault::tooLarge,
       {{{.name = "64-bit sizes that are true", .content = "abc", .zip64 = true}},
        {{.name = "states too much", .content = "x", .size = 0xfffffff0}},
        {{.name = "64-bit sizes that lie", .content = "x", .size = huge, .zip64 = true}}}},
  };
  for (const auto& [fault, archives] : cases)
    for (const auto& entries : archives)
      EXPECT_EQ(faultOf(makeZip(entries)), fault) << entries.back().name;
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
  // Room for one of two.
  disk.setFreeBytes(Unpacking::kKeptFree + 4100);
  EXPECT_FALSE(unpackInto(disk, makeZip({{.name = "first", .content = "new"}, {.name = "z"}})));
  EXPECT_EQ(refusal.error, ENOSPC);
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

TEST_F(UnpackingTest, ACrashLeavesEveryFileOldOrNewAndNoFlushCanBeLeftOut) {
  prepare();
  const std::string first = "/agent/target/first", second = "/agent/target/in/second",
                    bulk(9000, 's');
  const std::string bytes =
      makeZip({{.name = "first", .content = "new first"}, {.name = "in/second", .content = bulk}});
  platform::RecordingFiles recorded(disk);
  ASSERT_TRUE(unpackInto(recorded, bytes));
  size_t states = 0;
  const auto broken = [&] {
    size_t count = states = 0;
    recorded.forEachCrash([&](const std::string&, platform::MemoryFiles& after) {
      ++states;
      const std::string one = after.content(first), two = after.content(second);
      count += (one != "old first" && one != "new first") || (!two.empty() && two != bulk);
      count += !unpackInto(after, bytes);
    });
    recorded.forEachCrashAfter(recorded.size(), [&](const auto&, platform::MemoryFiles& after) {
      count += after.content(first) != "new first" || after.content(second) != bulk;
    });
    return count;
  };
  EXPECT_EQ(broken(), 0U);
  EXPECT_GT(states, 10U);
  ASSERT_EQ(recorded.flushes(), 4U) << "two files, two folders";
  for (size_t flush = 0; flush < 4; ++flush) {
    recorded.leaveOutFlush(flush);
    EXPECT_GT(broken(), 0U) << recorded.describeFlush(flush);
  }
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
