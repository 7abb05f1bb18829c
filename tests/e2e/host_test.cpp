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
              "--stop-deadline", deadline},
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
    // Before its handlers are there, a signal just ends the program: wait until the library
    // is loaded.
    ASSERT_TRUE(tests::eventually([&] { return run.host.hasLoaded("odd_agent"); }));
    if (row.signal != 0) run.host.signal(row.signal);
    int status = -1;
    ASSERT_TRUE(run.host.waitEnd(status));
    EXPECT_EQ(status, row.status);
    EXPECT_EQ(run.host.lastLine(), row.lastLine);
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
