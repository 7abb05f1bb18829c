#include <future>

#include "config/hids_interface.h"
#include "logs/log_processing_thread.h"
#include "tests/logs/log_fixture.h"
#include "tests/support/watchdog.h"

namespace korvane::tests {
namespace {

class FakeIds : public HidsInterface {
 public:
  bool present() override { return true; }
  bool reload() override { return ++reloads, true; }
  bool setting(const STRING& name, STRING& value) override {
    const auto found = values.find(name.toUtf8());
    if (found == values.end()) return false;
    value = found->second;
    return true;
  }
  PropertyList settings() override { return {}; }
  PropertyList logRules() override { return {}; }
  bool applyPolicy(const STRING&) override { return false; }
  bool applyConfiguration(const PropertyList&, const PropertyList&) override { return false; }
  bool readResults(PropertyList&) override { return false; }

  std::map<std::string, std::string> values;
  int reloads = 0;
};

class LogThreadTest : public LogFixture {
 protected:
  std::unique_ptr<LogProcessor> makeProcessor() {
    return std::make_unique<LogProcessor>(HIDS_RT_LOG, parts(),
                                          std::make_unique<FakeDestination>(received));
  }
  static void join(Thread& thread) {
    EXPECT_TRUE(tests::waitFor("the thread's end", [&] { return !thread.isAlive(); }));
  }

  FakeDestination::Received received;
};

TEST_F(LogThreadTest, ProcessorsHaveTheirTurnEverySecondCycleAndBackOff) {
  fake.files.put(kLog, eventLine(1));
  LogProcessingThread thread(forwarding, nullptr, settings().logs);
  thread.attach(makeProcessor());
  received.answer = [] { return 7; };
  EXPECT_EQ(thread.cycle(), 1000u);
  EXPECT_TRUE(received.batches.empty());
  EXPECT_EQ(thread.cycle(), 10000u);
  EXPECT_EQ(thread.cycle(), 1000u);
  received.answer = [] { return 0; };
  EXPECT_EQ(thread.cycle(), 1000u);
  EXPECT_EQ(received.batches.size(), 2u);
}

TEST_F(LogThreadTest, ForwardsOnlyWhereTheServiceTypeAllowsIt) {
  fake.files.put(kLog, eventLine(1));
  const struct {
    int type;
    bool buffer;
    bool forwards;
  } cases[] = {{0, true, false}, {2, false, false}, {3, true, true}, {1, false, true}};
  for (const auto& test : cases) {
    beginRun(test.type);
    forwarding.setPolicyBuffer(test.buffer);
    fake.files.remove(kPointerFile);
    received = {};
    LogProcessingThread thread(forwarding, nullptr, settings().logs);
    thread.attach(makeProcessor());
    thread.cycle();
    EXPECT_EQ(thread.cycle(), 1000u);
    EXPECT_EQ(!received.batches.empty(), test.forwards) << test.type;
  }
}

TEST_F(LogThreadTest, AnErrorDisablesAProcessorUnlessItIsNumber13) {
  fake.files.put(kLog, eventLine(1));
  LogProcessingThread thread(forwarding, nullptr, settings().logs);
  thread.attach(makeProcessor());
  const auto turn = [&] { thread.cycle(), thread.cycle(); };
  files.failNth(platform::FileOperation::read, 1, 13, "rt.csv");
  turn();
  EXPECT_EQ(events(10136), 0u);
  turn();
  EXPECT_EQ(received.batches.size(), 1u);
  append(kLog, eventLine(2));
  files.failNth(platform::FileOperation::read, 1, EIO, "rt.csv");
  turn();
  turn();
  EXPECT_EQ(events(10136), 1u);
  EXPECT_EQ(inOwnLog("No Such Log"), 1u);
  EXPECT_EQ(received.batches.size(), 1u);
}

TEST_F(LogThreadTest, RunsUntilItsStopAndEndsAtOnceInItsPause) {
  fake.files.put(kLog, eventLine(1));
  FakeIds ids;
  ids.values = {{"ids.service.eventfile.name", "/e.csv"}, {"ids.service.rteventfile.name", kLog}};
  auto* thread = new LogProcessingThread(forwarding, &ids, settings().logs);
  thread->attach(makeProcessor());
  std::promise<void> sent;
  received.answer = [&] { return sent.set_value(), 7; };
  thread->start();
  ASSERT_EQ(sent.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  thread->stop();
  thread->stop();
  join(*thread);
  delete thread;
  EXPECT_EQ(inOwnLog("*****LogProcessing Thread exiting*****"), 1u);
}

TEST_F(LogThreadTest, StopsBeforeItsStart) {
  LogProcessingThread logs(forwarding, nullptr, settings().logs);
  logs.stop();
  join(logs);
}

TEST_F(LogThreadTest, LooksForTheIdsLogsIndependentlyAndGivesUp) {
  config().setHIDSRTLogFile("");
  FakeIds ids;
  IdsLogSearch names(&ids, settings().logs);
  names.attempt();
  for (int i = 0; i < 100; ++i) names.attempt();
  ids.values["ids.service.rteventfile.name"] = "../logs/rt.csv";
  names.attempt();
  EXPECT_EQ(config().getHIDSRTLogFile(), "/opt/korvane/IDS/bin/../logs/rt.csv");
  EXPECT_EQ(inOwnLog(" setHIDSRTLogFile to /opt/korvane/IDS/bin/../logs/rt.csv"), 1u);
  EXPECT_FALSE(names.done());
  int attempts = 102;
  for (; !names.done(); ++attempts) names.attempt();
  EXPECT_EQ(attempts, IdsLogSearch::kAttempts);
  EXPECT_EQ(ids.reloads, IdsLogSearch::kAttempts - 1);
  EXPECT_EQ(inOwnLog(" failed to get ids.service.eventfile.name. sleep."), 3u);
  EXPECT_EQ(inOwnLog(" failed to get ids.service.eventfile.name"), 4u);
  EXPECT_EQ(inOwnLog(" failed to get ids.service.rteventfile.name"), 0u);
  EXPECT_TRUE(config().getHIDSLogFile().empty());
}

}  // namespace
}  // namespace korvane::tests
