// The host service, by process, with agent libraries that misbehave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/child_process.h"
#include "tests/support/temp_directory.h"

namespace korvane {
namespace {

using ::testing::HasSubstr;
using tests::ChildProcess;
using tests::Milliseconds;

// A root that tells the odd agent which way to go.
struct OddRoot {
  explicit OddRoot(const std::string& way) { std::ofstream(path() + "/odd-agent") << way; }
  std::string path() const { return directory.path(); }
  tests::TempDirectory directory;
};

struct HostRun {
  HostRun(const std::string& way, const char* deadline, const char* library = ODD_AGENT_LIBRARY)
      : root(way),
        host({KORVANE_HOST, "run", "--install-root", root.path(), "--library", library,
              "--stop-deadline", deadline, "--allow-unsafe"},  // a developer's tree may be his
             root.path() + "/output") {}
  OddRoot root;
  ChildProcess host;
};

struct HostCase {
  const char* way;
  int signal;  // sent at once; 0 for none
  const char* deadline;
  int status;
  const char* lastLine;
};

TEST(Host, EndsWithAStatusAndALastLineThatSayWhy) {
  const HostCase cases[] = {
      {"obeys", SIGTERM, "30", 0, "korvane-host: the agent has stopped"},
      {"obeys", SIGINT, "30", 0, "korvane-host: the agent has stopped"},
      {"late", SIGTERM, "30", 0, "korvane-host: the agent has stopped"},
      {"never-returns", SIGTERM, "1", 4,
       "korvane-host: the agent did not stop within 1 s; ending the process"},
      {"ends-itself", 0, "1", 3,
       "korvane-host: the agent ended itself but did not return within 1 s; ending the process"},
  };
  for (const HostCase& row : cases) {
    SCOPED_TRACE(row.way);
    HostRun run(row.way, row.deadline);
    // Before its handlers are there, a signal just ends the program.
    ASSERT_TRUE(tests::eventually([&] { return run.host.handles(SIGTERM); }));
    if (row.signal != 0) run.host.signal(row.signal);
    int status = -1;
    ASSERT_TRUE(run.host.waitEnd(status));
    EXPECT_EQ(status, row.status);
    EXPECT_EQ(run.host.lastLine(), row.lastLine);
  }
}

TEST(Host, GivesUpWhatItDoesNotNeed) {
  HostRun run("obeys", "30");
  ASSERT_TRUE(tests::eventually([&] { return run.host.fact("status", "NoNewPrivs:") == "1"; }));
  ASSERT_TRUE(
      tests::eventually([&] { return run.host.fact("coredump_filter", "") == "00000000"; }));
  EXPECT_THAT(run.host.fact("limits", "Max core file size"), testing::StartsWith("0 "));
  std::istringstream descriptors(run.host.fact("limits", "Max open files"));
  unsigned soft = 0, hard = 0;
  descriptors >> soft >> hard;
  EXPECT_LE(hard, 4096u);
  EXPECT_GE(soft, 256u);
}

TEST(Host, StartsNothingThatStrangersMayChangeUnlessToldTo) {
  const tests::TempDirectory directory;
  const std::string root = directory.path() + "/root";
  std::filesystem::create_directories(root + "/IPS");
  std::ofstream(root + "/odd-agent") << "returns-at-once";
  std::filesystem::permissions(root, std::filesystem::perms(0777));
  for (const bool told : {false, true}) {
    std::vector<std::string> words = {KORVANE_HOST, "run",       "--install-root",
                                      root,         "--library", ODD_AGENT_LIBRARY};
    if (told) words.push_back("--allow-unsafe");
    ChildProcess host(words, directory.path() + "/output");
    int status = -1;
    ASSERT_TRUE(host.waitEnd(status));
    EXPECT_EQ(status, 1) << "the odd agent's end is a failure, too";
    EXPECT_THAT(host.output(), HasSubstr("korvane-host: " + root + " is writable by everybody; " +
                                         (told ? "used" : "nothing is started")));
    EXPECT_EQ(host.output().find("without a mailbox") != std::string::npos, told);
  }
}

TEST(Host, SaysWhyALibraryCannotBeLoaded) {
  HostRun run("obeys", "1", "/nowhere/libkorvane-agent.so");
  int status = -1;
  ASSERT_TRUE(run.host.waitEnd(status));
  EXPECT_EQ(status, 1);
  EXPECT_THAT(run.host.lastLine(), HasSubstr("/nowhere/libkorvane-agent.so"));
}

}  // namespace
}  // namespace korvane
