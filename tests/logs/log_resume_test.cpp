// What is lost when the power fails: nothing.
#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <tuple>

#include "logs/log_processor.h"
#include "platform/fake/recording_files.h"
#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

constexpr int kBatch = 3;

class LogResumeTest : public LogFixture {
 protected:
  LogResumeTest() { setLimits(2 * kBatch, kBatch); }

  std::unique_ptr<LogProcessor> make() {
    return std::make_unique<LogProcessor>(HIDS_RT_LOG, parts(),
                                          std::make_unique<FakeDestination>(received));
  }
  static void drain(LogProcessor& processor, int rounds) {
    for (int i = 0; i < rounds; ++i) processor.readRecords(), processor.writeRecords();
  }
  std::set<int> delivered() const {
    std::set<int> events;
    for (const PropertyList& record : received.records())
      events.insert(propertyValue(record, "v2").toInt());
    return events;
  }

  FakeDestination::Received received;
};

std::string logOf(size_t first, size_t last) {
  std::string log;
  for (size_t i = first; i <= last; ++i) log += eventLine(static_cast<int>(i));
  return log;
}

// The machine loses power at any moment of a new agent's work on three logs, of which it hears one
// after the other: the state on disk leads to every event and to an account that has every line once,
// and no longer does where a flush of a file or of their folder is left out.
TEST_F(LogResumeTest, EveryStateThatAPowerCutLeavesLeadsToEveryEvent) {
  constexpr char kLastLog[] = "/opt/korvane/IDS/logs/rt3.csv";
  constexpr size_t kEvents = 18;
  constexpr uint64_t kJunk = 3;
  const std::string junk = "no event\n";
  fake.files.put(kLog, logOf(1, 4) + junk + logOf(5, 11) + junk + logOf(12, 14) + endLine(0));
  fake.files.put(kNextLog, logOf(15, 15) + junk + logOf(16, 16) + endLine(0));
  fake.files.put(kLastLog, logOf(17, kEvents));
  platform::RecordingFiles recording(fake.files);
  const std::string names[] = {kLog, kNextLog, kLastLog};
  std::vector<size_t> deliveredAt,
      namedAt;  // the journal's length at each batch, and at the later names
  const auto runOn = [&](platform::Files& disk, size_t named, bool first) {
    platform::Platform machine = platform::withFiles(fake.platform(), disk);
    const platform::OtherPlatform restarted(machine);
    config().setHIDSRTLogFile(names[named]);
    fake.clock.advance(1);
    ledger.emplace(disk, fake.clock);
    ledger->open("/opt/korvane/IPS/lossledger");
    const auto processor = make();
    while (++named < std::size(names)) {
      drain(*processor, 1);
      config().setHIDSRTLogFile(names[named]);
      if (first) namedAt.push_back(recording.size());
    }
    drain(*processor, 20);
  };
  received.answer = [&] { return deliveredAt.push_back(recording.size()), 0; };
  runOn(recording, 0, true);
  EXPECT_EQ(received.records().size(), kEvents);
  const auto batches = received.batches;
  received.answer = [] { return 0; };
  // Where a batch was delivered, or a name was given, between two changes, the cut comes before it.
  const auto before = [](const std::vector<size_t>& times, size_t entries) {
    return std::ranges::count_if(times, [&](size_t at) { return at < entries; });
  };
  using platform::DataLoss;
  size_t states = 0;
  // A pointer that was torn, which only losing power can do to it, begins its account anew.
  const auto booksAreRight = [&](DataLoss data) {
    const LedgerView view = ledger->view();
    const StreamAccount& books = view.accounts.at(0);
    const bool all = books.read == kEvents + kJunk && books.delivered == kEvents &&
                     linesLost(view.totals) == kJunk &&
                     std::ranges::none_of(view.entries, &std::string::empty, &LedgerEntry::log);
    return books.closed() && books.waiting == 0 && (all || data == DataLoss::torn);
  };
  EXPECT_TRUE(booksAreRight(DataLoss::none));
  const auto losesEvents = [&] {
    std::set<std::tuple<std::ptrdiff_t, std::ptrdiff_t, std::vector<std::string>>> seen;
    for (size_t entries = 0; entries <= recording.size(); ++entries)
      for (const auto data : {DataLoss::none, DataLoss::all, DataLoss::torn, DataLoss::lastOnly})
        for (const auto kept : platform::kNameLosses) {
          platform::MemoryFiles disk(fake.clock);
          recording.crash(entries, data, kept, disk);
          std::vector<std::string> all = disk.paths();
          for (size_t i = all.size(); i-- > 0;) all.push_back(disk.content(all[i]));
          const auto sent = before(deliveredAt, entries), named = before(namedAt, entries);
          if (!seen.insert({sent, named, std::move(all)}).second) continue;
          received.batches.assign(batches.begin(), batches.begin() + sent);
          runOn(disk, static_cast<size_t>(named), false);
          if (delivered().size() < kEvents || !booksAreRight(data)) return true;
        }
    states = seen.size();
    return false;
  };
  EXPECT_FALSE(losesEvents());
  std::printf("%zu states of a read pointer and its list of logs\n", states);
  std::map<std::string, bool> missed;
  for (size_t flush = 0; flush < recording.flushes(); ++flush) {
    recording.leaveOutFlush(flush);
    bool& known = missed[recording.describeFlush(flush)];
    known = known || losesEvents();
  }
  EXPECT_EQ(missed.size(), 4U);
  for (const auto& [flush, known] : missed) EXPECT_TRUE(known) << flush;
}

}  // namespace
}  // namespace korvane::tests
