#include <algorithm>
#include <cstdio>

#include "platform/fake/recording_files.h"
#include "tests/bulk/bulk_world.h"

namespace korvane::tests {
namespace {

class BulkCrash : public BulkWorld {};

// A cut of the power at any instant: every byte is there, and none twice.
TEST_F(BulkCrash, AfterAnyCrashEveryByteArrivesOnce) {
  const std::map<std::string, std::string> logs = {
      {std::string(kOwn) + "1.log", linesOf(900, 'a')},
      {std::string(kOwn) + "2.log", linesOf(50, 'b')},
      {std::string(kOwn) + "3.log", linesOf(700, 'c')}};
  for (const auto& [path, content] : logs) fake.files.put(path, content);
  settings().setBulkTransferOpenFileLimit(2);
  platform::RecordingFiles recording(fake.files);
  struct Taken {
    size_t at;
    std::string name, bytes;
  };
  std::vector<Taken> taken;
  onTaken = [&](const std::string& name, const std::string& bytes) {
    taken.push_back({recording.size(), name, bytes});
  };
  restart(&recording);
  looks(4);
  ASSERT_EQ(taken.size(), 2u);
  ASSERT_EQ(server.fault, "");
  ASSERT_FALSE(exists(logs.begin()->first));
  onTaken = nullptr;

  size_t states = 0;
  const auto fails = [&] {
    std::string failure;
    states = 0;
    // Where a bundle was taken just before the cut, the server has it, or has not.
    for (const bool early : {false, true})
      for (size_t entries = 0; entries <= recording.size() && failure.empty(); ++entries)
        recording.forEachCrashAfter(entries,
                                    [&](const std::string& state, platform::MemoryFiles& disk) {
                                      if (!failure.empty()) return;
                                      ++states;
                                      server = {};
                                      losses.clear();
                                      for (const Taken& one : taken)
                                        if (early ? one.at <= entries : one.at < entries)
                                          server.take(one.name, one.bytes);
                                      restart(&disk);
                                      looks(6);
                                      if (!server.fault.empty())
                                        failure = state + ": " + server.fault;
                                      for (const auto& [path, content] : logs)
                                        if (server.content(path) != content)
                                          failure = state + ": " + path;
                                      if (!losses.empty()) failure = state + ": told as lost";
                                    });
    return failure;
  };
  EXPECT_EQ(fails(), "");
  std::printf("%zu states of a bulk transfer\n", states);
  std::map<std::string, bool> needed;
  for (size_t flush = 0; flush < recording.flushes(); ++flush) {
    recording.leaveOutFlush(flush);
    bool& known = needed[recording.describeFlush(flush)];
    known = known || !fails().empty();
  }
  for (const auto& [flush, known] : needed)
    std::printf("%s: %s\n", flush.c_str(), known ? "needed" : "-");
  EXPECT_GE(std::ranges::count_if(needed, [](const auto& one) { return one.second; }), 4);
}

}  // namespace
}  // namespace korvane::tests
