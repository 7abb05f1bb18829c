// The machine loses power at any instant between a request and its end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

#include "platform/fake/recording_files.h"
#include "tests/appdata/appdata_world.h"

namespace korvane::tests {
namespace {

using Messages = std::vector<ReceivedData::Message>;

bool ended(const Messages& messages) {
  return std::ranges::any_of(messages, [](const auto& message) {
    return message.of("application.request.complete") == "true";
  });
}

// How many messages brought a piece that the server had.
size_t repeats(const Messages& messages) {
  std::set<std::pair<std::string, std::string>> pieces;
  for (const auto& message : messages)
    pieces.emplace(message.of("application.data.sha256"), message.of("application.data.offset"));
  return messages.size() - pieces.size();
}

class AppDataCrash : public testing::Test {
 protected:
  // A start of the agent on that disk, whose server still wants the data unless it has it.
  void startOn(platform::Files& disk) {
    platform::Platform machine = platform::withFiles(world.machine.fake.platform(), disk);
    world.machine.beginRun(machine);
    if (!ended(world.messages)) world.ask("r-1");
    world.serve();
  }
  void deliver(size_t bytes) {
    world.inventory.xml = noise(bytes);
    world.answer = [&](const auto&) { return sentAt.push_back(recording.size()), Answer(); };
    startOn(recording);
    world.answer = nullptr;
    sent = world.messages;
  }
  // What is wrong after a start on that disk, before which so many messages were sent.
  std::string fault(platform::MemoryFiles& disk, size_t before) {
    world.messages.assign(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(before));
    const int collections = world.inventory.collections;
    startOn(disk);
    if (before > 0 && world.inventory.collections > collections) return "collected anew";
    if (world.xml() != world.inventory.xml) return "the server cannot put the inventory together";
    if (world.config().isAppDataRequested()) return "the request is still there";
    if (world.config().getApplicationsChecksum() != STRING("aa")) return "the checksums are lost";
    for (const std::string& path : disk.paths())
      if (path.starts_with(kFolder)) return "left over: " + path;
    return repeats(world.messages) > 1 ? "more than one piece came twice" : "";
  }
  // Of the cuts after so many entries of the journal: the first that the delivery does not survive.
  std::string firstFault(size_t from) {
    std::set<std::pair<size_t, std::vector<std::string>>> seen;
    for (size_t entries = from; entries <= recording.size(); ++entries)
      for (const auto data : platform::kDataLosses)
        for (const auto names : platform::kNameLosses) {
          platform::MemoryFiles disk(world.machine.sim.clock());
          recording.crash(entries, data, names, disk);
          std::vector<std::string> all = disk.paths();
          for (size_t i = all.size(); i-- > 0;) all.push_back(disk.content(all[i]));
          const auto before = static_cast<size_t>(
              std::ranges::count_if(sentAt, [&](size_t at) { return at < entries; }));
          if (!seen.emplace(before, std::move(all)).second) continue;
          const std::string problem = fault(disk, before);
          if (!problem.empty()) return problem + " (" + recording.describe(entries - 1) + ")";
        }
    states = std::max(states, seen.size());
    return {};
  }

  AppDataWorld world{"appdata.senddata.interval=0\n"};
  platform::RecordingFiles recording{world.machine.fake.files};
  std::vector<size_t> sentAt;  // the journal's length at each message
  Messages sent;
  size_t states = 0;
};

TEST_F(AppDataCrash, EveryStateOfTheDiskLeadsToTheWholeInventory) {
  deliver(100);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(firstFault(0), "");
  std::printf("%zu states of a delivery of application data\n", states);
  // What the sweep is worth: without one of these flushes it finds a state that does not hold.
  std::map<std::string, bool> missed;
  for (size_t flush = 0; flush < recording.flushes(); ++flush) {
    const std::string what = recording.describeFlush(flush);
    if (what.find("appdata") == std::string::npos || missed[what]) continue;
    recording.leaveOutFlush(flush);
    missed[what] = !firstFault(0).empty();
  }
  EXPECT_EQ(missed.size(), 3U);
  for (const auto& [flush, known] : missed) EXPECT_TRUE(known) << flush;
}

TEST_F(AppDataCrash, BetweenPiecesTheSecondFollowsTheFirst) {
  deliver(kMib + 2000);
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(firstFault(sentAt[0] + 1), "");
  std::printf("%zu states of a delivery between two pieces\n", states);
}

// A result that waits for a program, and another of the same size that takes its place.
TEST_F(AppDataCrash, AStateNeverBelongsToAnotherArchive) {
  world.inventory.xml = noise(1000, 1);
  world.ask("local-1");
  world.serve(/*server=*/false);
  platform::RecordingFiles second(world.machine.fake.files);
  platform::Platform machine = platform::withFiles(world.machine.fake.platform(), second);
  world.machine.beginRun(machine);
  world.inventory.xml = noise(1000, 2);
  world.ask("local-2");
  world.serve(/*server=*/false);
  size_t results = 0;
  second.forEachCrash([&](const std::string& state, platform::MemoryFiles& disk) {
    const DeliveryFolder folder(disk, "/opt/korvane/IPS");
    DeliveryState found;
    if (folder.load(found) != 0) return;
    ++results;
    EXPECT_EQ(sha256Hex(disk.content(folder.archive())), found.sha256) << state;
  });
  EXPECT_GT(results, 0U);
}

}  // namespace
}  // namespace korvane::tests
