#include "platform/clock.h"
#include "tests/config/config_fixture.h"
#include "tests/support/logged_events.h"
#include "tests/support/throwing_platform.h"

namespace korvane {
namespace {

using platform::FileOperation;
using LoadingTest = ConfigFixture;

const std::string kGood = withChecksum("[Polling]\npolling.interval=60\n");
const std::string kOlder = withChecksum("[Polling]\npolling.interval=90\n");

TEST_F(LoadingTest, DecidesBetweenTheFiles) {
  using namespace std::string_literals;
  const std::string wrongSum = kGood.substr(0, 12) + "x" + kGood.substr(12);
  const std::string cut = kGood.substr(0, 20);
  const std::string huge(kMaxIniBytes + 1, 'a');
  struct Case {
    const char* name;
    const char* agentIni;  // null: missing
    std::string agentIniBytes;
    std::string fallback;  // empty: missing
    uint32_t interval;
    size_t copies;
  } const cases[] = {
      {"first start", nullptr, "", "", 300, 0},
      {"good", "", kGood, kOlder, 60, 0},
      {"not computed", "", "polling.interval=45\n[Checksum]\nagentini.checksum=Not Computed\n",
       kOlder, 45, 0},
      {"no checksum, first file ever", "", "polling.interval=45\n", "", 45, 0},
      {"no checksum beside a fallback", "", "polling.interval=45\n", kOlder, 90, 1},
      {"missing beside a fallback", nullptr, "", kOlder, 90, 0},
      {"changed byte", "", wrongSum, kOlder, 90, 1},
      {"cut", "", cut, kOlder, 90, 1},
      {"empty", "", "", kOlder, 90, 1},
      {"zeros", "", std::string(kGood.size(), '\0'), kOlder, 90, 1},
      {"other encoding", "", "polling.interval=\xE4\n"s, kOlder, 90, 1},
      {"huge", "", huge, kOlder, 90, 1},
      {"both damaged", "", wrongSum, wrongSum, 300, 2},
      {"damaged beside a fallback without checksum", "", wrongSum, "polling.interval=70\n", 70, 1},
      {"damaged, no fallback", "", wrongSum, "", 300, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const std::string& path : fake.files.paths()) fake.files.remove(path);
    if (c.agentIni) put(kAgentIni, c.agentIniBytes);
    if (!c.fallback.empty()) put(kFallbackIni, c.fallback);
    EXPECT_EQ(restart().getPollingInterval(), c.interval);
    EXPECT_EQ(damagedCopies().size(), c.copies);
    EXPECT_EQ(fake.files.content(kAgentIni), c.agentIniBytes);
    if (c.copies > 0 && c.agentIniBytes.size() <= kMaxIniBytes) {
      EXPECT_EQ(fake.files.content(damagedCopies()[0]), c.agentIniBytes);
    }
    config().setUniqueId("guid");
    EXPECT_EQ(restart().getUniqueId(), STRING("guid")) << "what was damaged is replaced by a write";
    EXPECT_EQ(config().getPollingInterval(), c.interval);
  }
}

TEST_F(LoadingTest, KeepsEightDamagedCopies) {
  put(kFallbackIni, kOlder);
  for (int i = 0; i < 11; ++i) {
    put(kAgentIni, "[A]\nnumber=" + std::to_string(i) + "\n");
    restart();
  }
  ASSERT_EQ(damagedCopies().size(), 8u);
  EXPECT_EQ(fake.files.content(damagedCopies()[0]), "[A]\nnumber=3\n");
}

TEST_F(LoadingTest, ReadsAgainOnlyWhatChanged) {
  put(kAgentIni, kGood);
  config();
  const int opened = files.count(FileOperation::open);
  const int locked = files.count(FileOperation::lock);
  bool changed = true;
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(config().loadIniFile(changed));
  EXPECT_FALSE(changed);
  EXPECT_EQ(files.count(FileOperation::open), opened) << "an idle second opens nothing";
  EXPECT_EQ(files.count(FileOperation::lock), locked);
  put(kAgentIni, kOlder);
  EXPECT_TRUE(config().loadIniFile(changed));
  EXPECT_TRUE(changed);
  EXPECT_EQ(config().getPollingInterval(), 90u);
  put(kAgentIni, "polling.interval=oops\nfips.enabled=maybe\nagent.name=n\n");
  EXPECT_TRUE(config().loadIniFile(changed));
  EXPECT_EQ(config().getPollingInterval(), 90u) << "a text that is not a number is not taken";
  EXPECT_EQ(config().getAgentName(), STRING("n"));
}

TEST_F(LoadingTest, AFileThatVanishesOrCannotBeReadTakesNothing) {
  put(kAgentIni, kGood);
  config();
  fake.files.remove(kAgentIni);
  bool changed = true;
  EXPECT_TRUE(config().loadIniFile(changed));
  EXPECT_EQ(config().getPollingInterval(), 60u);
  put(kAgentIni, kOlder);
  files.failAll(FileOperation::open, EACCES, "agent.ini");
  EXPECT_FALSE(config().loadIniFile(changed));
  EXPECT_EQ(config().getPollingInterval(), 60u);
  files.heal();
  EXPECT_TRUE(config().loadIniFile(changed)) << "it is tried again without another change";
  EXPECT_EQ(config().getPollingInterval(), 90u);
}

TEST_F(LoadingTest, TriesTheLockFileTenTimes) {
  put(kAgentIni, kGood);
  config();
  put(kAgentIni, kOlder);
  std::unique_ptr<platform::FileLock> held;
  ASSERT_EQ(fake.files.lock(kLockFile, held), 0);
  const int before = files.count(FileOperation::lock);
  const int64_t start = sim.clock().monotonicMs();
  EXPECT_FALSE(config().loadIniFile());
  EXPECT_EQ(files.count(FileOperation::lock) - before, 10);
  EXPECT_EQ(sim.clock().monotonicMs() - start, 9000);
  EXPECT_EQ(config().getPollingInterval(), 60u);
  held.reset();
  EXPECT_TRUE(config().loadIniFile());
  EXPECT_EQ(config().getPollingInterval(), 90u);
}

TEST_F(LoadingTest, ALoadThatAnErrorEndsIsMadeAgain) {
  const std::string damaged = "[A]\nb=c\n" + kGood;
  for (int nth = 1; nth < 40; ++nth) {
    SCOPED_TRACE(nth);
    AgentConfig::freeInstance();
    put(kAgentIni, nth % 2 ? damaged : kOlder);
    put(kFallbackIni, kOlder);
    tests::ThrowingPlatform throwing(platform::current());
    std::optional<platform::OtherPlatform> other(throwing.platform());
    throwing.failFrom(nth, /*once=*/true);
    try {
      config();
    } catch (const std::exception&) {
    }
    throwing.failFrom(0, false);
    config().loadIniFile();
    EXPECT_EQ(config().getPollingInterval(), 90u);
    config().setAgentName("written");
    other.reset();
    EXPECT_NE(fake.files.content(kAgentIni).find("agent.name=written"), std::string::npos);
    EXPECT_NE(fake.files.content(kAgentIni).find("polling.interval=90"), std::string::npos);
  }
}

TEST_F(LoadingTest, ALastingTroubleIsToldOnce) {
  LoggedEvents events(fake.files);
  put(kAgentIni, kGood);
  config();
  put(kAgentIni, kOlder);
  std::unique_ptr<platform::FileLock> held;
  ASSERT_EQ(fake.files.lock(kLockFile, held), 0);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(config().loadIniFile());
  held.reset();
  EXPECT_TRUE(config().loadIniFile());
  put(kAgentIni, kGood);
  files.failAll(FileOperation::open, EACCES, "agent.ini");
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(config().loadIniFile());
  files.heal();
  EXPECT_TRUE(config().loadIniFile());
  ASSERT_EQ(fake.files.lock(kLockFile, held), 0);
  put(kAgentIni, kOlder);
  EXPECT_FALSE(config().loadIniFile());
  EXPECT_EQ(events.all(), (std::vector<int>{10523, 10522, 10523}));
}

TEST_F(LoadingTest, WaitingForTheLockFileStopsNobodyElse) {
  put(kAgentIni, kGood);
  config();
  std::unique_ptr<platform::FileLock> held;
  ASSERT_EQ(fake.files.lock(kLockFile, held), 0);
  const int64_t start = sim.clock().monotonicMs();
  const auto writer = sim.createThread(0, [this] { config().setAgentName("late"); });
  sim.runFor(2500);
  EXPECT_EQ(config().getPollingInterval(), 60u);
  EXPECT_EQ(config().getAgentName(), STRING("late")) << "in force while the write still waits";
  EXPECT_LE(sim.clock().monotonicMs() - start, 2500);
  // The stop ends the writer's wait, and the shutdown routine's own write tries only briefly.
  shutdownToken().request();
  EXPECT_FALSE(config().UpdateAllIni());
  EXPECT_EQ(writer->join(platform::kInfinite), platform::WaitResult::signalled);
  EXPECT_LE(sim.clock().monotonicMs() - start, 2500 + 300);
  const auto holder = sim.createThread(0, [&held] {
    StopToken().sleepFor(50);
    held.reset();
  });
  EXPECT_TRUE(config().UpdateAllIni()) << "for whoever is about to let go it does wait";
  holder->join(platform::kInfinite);
  EXPECT_EQ(restart().getAgentName(), STRING("late"));
}

}  // namespace
}  // namespace korvane
