// What is lost and what is sent again when the agent is killed: nothing, and at most one batch.
#include <map>

#include "logs/file_log_pointer.h"
#include "logs/log_processor.h"
#include "platform/fake/recording_files.h"
#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

constexpr int kBatch = 3;

struct Killed {};

class LogResumeTest : public LogFixture {
 protected:
  LogResumeTest() { setLimits(2 * kBatch, kBatch); }

  std::unique_ptr<LogProcessor> make() {
    return std::make_unique<LogProcessor>(HIDS_RT_LOG, std::make_unique<FakeDestination>(received));
  }
  static void drain(LogProcessor& processor, int rounds = 40) {
    for (int i = 0; i < rounds; ++i) processor.readRecords(), processor.writeRecords();
  }
  // How often each event was delivered.
  std::map<int, int> deliveries() const {
    std::map<int, int> counts;
    for (const PropertyList& record : received.records())
      ++counts[propertyValue(record, "v2").toInt()];
    return counts;
  }
  void expectAll(int events, int again, const std::string& where) {
    const auto counts = deliveries();
    int extra = 0;
    for (int n = 1; n <= events; ++n) {
      ASSERT_TRUE(counts.contains(n)) << where << ": event " << n << " is lost";
      extra += counts.at(n) - 1;
    }
    EXPECT_LE(extra, again) << where;
  }
  void reset(const std::string& log) {
    received = {};
    fake.files.remove(kPointerFile);
    fake.files.put(kLog, log);
  }

  FakeDestination::Received received;
};

std::string logOf(int events) {
  std::string log;
  for (int i = 1; i <= events; ++i) log += eventLine(i);
  return log;
}

// The machine loses power at any moment: the state on disk always leads to every event. The first event
// was delivered long before.
TEST_F(LogResumeTest, EveryStateThatAPowerCutLeavesLeadsToEveryEvent) {
  constexpr int kFirst = 5, kEvents = 8;
  const std::string log = logOf(kEvents);
  const size_t half = logOf(kFirst).size();
  reset(log.substr(0, half) + endLine(0));
  fake.files.put(kNextLog, log.substr(half));
  config().setHIDSRTLogFile(kNextLog);
  {
    FileLogPointer pointer(kPointerFile);
    pointer.setCurrentLogName(kLog);
    pointer.setOffset(static_cast<int>(eventLine(1).size()));
    pointer.writePointer();
  }
  platform::RecordingFiles recording(fake.files);
  std::vector<size_t> journalAt;  // its length when each batch was delivered
  received.answer = [&] { return journalAt.push_back(recording.size()), 0; };
  const auto runOn = [&](platform::Files& disk) {
    platform::Platform machine{fake.clock,     fake.platform().threading,
                               disk,           fake.registry,
                               fake.devices,   fake.processes,
                               fake.sockets,   fake.systemInfo,
                               fake.libraries, fake.pipes};
    const platform::OtherPlatform restarted(machine);
    drain(*make(), 20);
  };
  runOn(recording);
  const std::vector<PropertyList> longBefore(1, PropertyList{{"v2", "1"}, {"a5", "1"}});
  received.batches.insert(received.batches.begin(), longBefore);
  journalAt.insert(journalAt.begin(), 0);
  expectAll(kEvents, 0, "without a power cut");
  const auto batches = received.batches;
  const auto deliveredBy = journalAt;
  received.answer = [] { return 0; };
  int states = 0;
  using platform::DataLoss;
  for (size_t entries = 0; entries <= recording.size(); ++entries)
    for (const auto data : {DataLoss::none, DataLoss::all, DataLoss::torn, DataLoss::lastOnly})
      for (const auto names : platform::kNameLosses) {
        platform::MemoryFiles disk(fake.clock);
        recording.crash(entries, data, names, disk);
        received.batches.clear();
        // Where a batch was delivered between two changes, the cut comes before it.
        for (size_t i = 0; i < batches.size(); ++i)
          if (i == 0 || deliveredBy[i] < entries) received.batches.push_back(batches[i]);
        runOn(disk);
        expectAll(kEvents, kEvents, "after " + std::to_string(entries) + " changes");
        ++states;
      }
  EXPECT_GT(states, 50);
}

// Killed between moving on and removing the finished log, whose successor has the same name.
TEST_F(LogResumeTest, AFinishedLogThatIsStillThereIsNotSentAgain) {
  reset(logOf(8) + endLine(9));
  files.failAll(platform::FileOperation::remove, EINTR, "rt.csv");
  class Ended : public LogProcessor {
   public:
    using LogProcessor::LogProcessor;
    bool PostRealTimeProcessing(const STRING&) override { throw Killed(); }
  };
  Ended processor(HIDS_RT_LOG, std::make_unique<FakeDestination>(received));
  EXPECT_THROW(drain(processor), Killed);
  files.heal();
  drain(*make());
  expectAll(8, 0, "restart");
  platform::FileInfo info;
  EXPECT_EQ(fake.files.info(kLog, info), ENOENT);
  fake.files.put(kLog, eventLine(9));
  drain(*make());
  expectAll(9, 0, "the next log");
}

}  // namespace
}  // namespace korvane::tests
