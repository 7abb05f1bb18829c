#include "platform/paths.h"

#include <gtest/gtest.h>

#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"

namespace korvane::platform {
namespace {

TEST(Paths, joinSetsExactlyOneSeparator) {
  ManualClock clock;
  const MemoryFiles files(clock);
  EXPECT_EQ(joinPath(files, {"/a", "b", "c"}), "/a/b/c");
  EXPECT_EQ(joinPath(files, {"/a/", "/b", "", "c"}), "/a/b/c");
  EXPECT_EQ(joinPath(files, {"", "a"}), "a");
  EXPECT_EQ(joinPath(files, {"C:\\a\\", "\\b"}), "C:\\a\\b");
  EXPECT_EQ(joinPath(files, {}), "");
}

TEST(Paths, partsAndAbsolutePaths) {
  struct Case {
    const char *path, *directory, *name;
    bool absolute;
  };
  for (const Case& c :
       {Case{"/a/b.txt", "/a", "b.txt", true}, Case{"C:\\a\\b", "C:\\a", "b", true},
        Case{"\\\\host\\share", "\\\\host", "share", true}, Case{"/a", "/", "a", true},
        Case{"a", "", "a", false}, Case{"C:a", "", "C:a", false}, Case{"", "", "", false},
        Case{"../a", "..", "a", false}}) {
    EXPECT_EQ(directoryOf(c.path), c.directory) << c.path;
    EXPECT_EQ(fileNameOf(c.path), c.name) << c.path;
    EXPECT_EQ(isAbsolutePath(c.path), c.absolute) << c.path;
  }
}

}  // namespace
}  // namespace korvane::platform
