// What every walk over files must do: the system's own and the one that a test makes up.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/fake/fake_survey.h"
#include "platform/native.h"
#include "platform/processes.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {
namespace {

struct NativeSurveyWorld {
  tests::TempDirectory directory;
  std::unique_ptr<Survey> owned = makeNativeSurvey();
  Survey& survey = *owned;
  std::string root = directory.path();
  void put(const std::string& relative, const std::string& content) {
    const auto path = tests::fsPath(root + "/" + relative);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }
  void remove(const std::string& relative) {
    std::filesystem::remove(tests::fsPath(root + "/" + relative));
  }
};

struct FakeSurveyWorld {
  FakeSurvey survey;
  std::string root = "/root";
  void put(const std::string& relative, const std::string& content) {
    survey.files[root + "/" + relative] = content;
  }
  void remove(const std::string& relative) { survey.files.erase(root + "/" + relative); }
};

class CountingGuide final : public SurveyGuide {
 public:
  bool goOn() override { return left-- > 0; }
  void skipped(std::string_view what, int error) override {
    skips.push_back(std::string(what) + " " + std::to_string(error));
  }
  int left = 1000000;
  std::vector<std::string> skips;
};

template <class World>
class SurveyConformance : public testing::Test {
 protected:
  World world;
  CountingGuide guide;

  std::unique_ptr<FileWalk> walk() {
    std::unique_ptr<FileWalk> made;
    EXPECT_EQ(world.survey.walk(guide, world.root, made), 0);
    return made;
  }
  // Each file as "depth relative size content", sorted; folders as deep as `depth` are entered.
  std::vector<std::string> seen(size_t depth = 64) {
    const auto walking = walk();
    std::vector<std::string> all;
    for (SurveyedEntry entry; walking->next(entry);) {
      std::replace(entry.relative.begin(), entry.relative.end(), '\\', '/');
      std::string line = std::to_string(walking->depth()) + " " + entry.relative;
      if (entry.isFolder) {
        if (walking->depth() < depth) walking->enter();
        line += "/";
      } else {
        line += " " + std::to_string(entry.size) + " " + content(*walking);
        EXPECT_GT(entry.modifiedMs, 0);
      }
      EXPECT_TRUE(entry.relative.ends_with(entry.name));
      all.push_back(line);
    }
    std::sort(all.begin(), all.end());
    return all;
  }
  static std::string content(FileWalk& of) {
    std::unique_ptr<SurveyedContent> opened;
    if (const int error = of.open(opened)) return "error " + std::to_string(error);
    std::string text;
    char piece[3];
    for (size_t got = 1; got > 0;) {
      EXPECT_EQ(opened->read(piece, sizeof piece, got), 0);
      text.append(piece, got);
    }
    return text;
  }
};

using SurveyWorlds = testing::Types<NativeSurveyWorld, FakeSurveyWorld>;
TYPED_TEST_SUITE(SurveyConformance, SurveyWorlds);

TYPED_TEST(SurveyConformance, eachEntryIsToldOnceWithItsPlace) {
  this->world.put("a.txt", "content of a");
  this->world.put("sub/b", "");
  this->world.put("sub/deep/c\u00e4", "c");
  this->world.put("two/d", "dd");
  using Lines = std::vector<std::string>;
  EXPECT_EQ(this->seen(), (Lines{"0 a.txt 12 content of a", "0 sub/", "0 two/", "1 sub/b 0 ",
                                 "1 sub/deep/", "1 two/d 2 dd", "2 sub/deep/c\u00e4 1 c"}));
  EXPECT_EQ(this->seen(1), (Lines{"0 a.txt 12 content of a", "0 sub/", "0 two/", "1 sub/b 0 ",
                                  "1 sub/deep/", "1 two/d 2 dd"}));
  EXPECT_EQ(this->seen(0), (Lines{"0 a.txt 12 content of a", "0 sub/", "0 two/"}));
  EXPECT_EQ(this->guide.skips, Lines{});
}

TYPED_TEST(SurveyConformance, theGuideEndsItAtAnyStep) {
  for (int i = 0; i < 5; ++i) this->world.put("f/" + std::to_string(i), "x");
  const size_t all = this->seen().size();
  for (int steps = 0; steps < 20; ++steps) {
    this->guide.left = steps;
    const size_t told = this->seen().size();
    EXPECT_LE(told, static_cast<size_t>(steps));
    EXPECT_TRUE(told < all || steps >= static_cast<int>(all));
  }
}

TYPED_TEST(SurveyConformance, whatIsGoneIsNoEntryAndNoSkip) {
  this->world.put("a", "x");
  const auto walking = this->walk();
  SurveyedEntry entry;
  ASSERT_TRUE(walking->next(entry));
  this->world.remove("a");
  EXPECT_EQ(this->content(*walking), "error " + std::to_string(ENOENT));
  EXPECT_FALSE(walking->next(entry));
  std::unique_ptr<FileWalk> none;
  EXPECT_EQ(this->world.survey.walk(this->guide, this->world.root + "/none", none), ENOENT);
  EXPECT_EQ(none, nullptr);
  EXPECT_TRUE(this->guide.skips.empty());
}

// Whatever the machine has: what is told of this process and of everything else must hang together.
TEST(NativeSurvey, thisProcessIsAmongTheOthers) {
  const auto survey = makeNativeSurvey();
  const auto processes = makeNativeProcesses();
  CountingGuide guide;
  std::vector<SurveyedProcess> all;
  survey->processes(guide, [&](const SurveyedProcess& row) { all.push_back(row); });
  const auto own = std::find_if(all.begin(), all.end(),
                                [&](auto& row) { return row.id == processes->currentId(); });
  ASSERT_NE(own, all.end());
  EXPECT_NE(own->image.find("platform_test"), std::string::npos);
  // Wine has no command lines of processes.
  EXPECT_TRUE(own->commandLine.empty() ||
              own->commandLine.find("platform_test") != std::string::npos);
  guide.left = 3;
  size_t told = 0;
  survey->processes(guide, [&](const SurveyedProcess&) { ++told; });
  EXPECT_LE(told, 3u);
}

TEST(NativeSurvey, rowsOfTheOtherKindsAreWhole) {
  const auto survey = makeNativeSurvey();
  CountingGuide guide;
  survey->applications(guide, [](const SurveyedApplication& row) { EXPECT_NE(row.name, ""); });
  survey->services(guide, [](const SurveyedService& row) {
    EXPECT_NE(row.name, "");
    EXPECT_NE(row.start, "") << row.name;
  });
  survey->shortcuts(guide, [](const SurveyedShortcut& row) { EXPECT_NE(row.path, ""); });
}

}  // namespace
}  // namespace korvane::platform
