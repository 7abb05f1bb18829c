// What the gate lets through: a table over packages that the openssl program signed, and what a
// crash, a clock that goes back and a damaged record leave of it.
#include "trust/gate.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <iomanip>

#include "platform/fake/faulty_files.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/recording_files.h"
#include "platform/paths.h"
#include "tests/trust/trust_samples.h"

namespace korvane::trust {
namespace {

using platform::MemoryFiles;
using tests::kSigners;
using tests::sample;

constexpr char kRecord[] = "/opt/korvane/IPS/trust.record";
constexpr int64_t kDayMs = 86'400'000;

int64_t dateMs(const std::string& date) {
  std::tm parts{};
  std::istringstream(date) >> std::get_time(&parts, "%Y-%m-%d");
  const std::chrono::year_month_day day{std::chrono::year(parts.tm_year + 1900),
                                        std::chrono::month(unsigned(parts.tm_mon) + 1),
                                        std::chrono::day(unsigned(parts.tm_mday))};
  return std::chrono::sys_days(day).time_since_epoch().count() * kDayMs;
}

struct GateWorld {
  GateWorld() { put("trusted"); }
  void put(const std::string& signers) { files.put(kSigners, sample(signers + ".pem")); }
  Verdict check(const std::string& package, const Wanted& wanted = {}) {
    return check(files, package, wanted);
  }
  Verdict check(platform::Files& on, const std::string& package, const Wanted& wanted = {}) {
    clock.setWall(dateMs(today));
    bytes = sample(package);
    EXPECT_FALSE(bytes.empty()) << package;
    Verdict verdict = Gate(on, clock, kRecord, signing).check(wanted, bytes);
    EXPECT_EQ(verdict.accepted(), !verdict.content.empty());
    return verdict;
  }
  int code(const std::string& package, const Wanted& wanted = {}) {
    return check(package, wanted).refusal.code();
  }

  platform::ManualClock clock;
  MemoryFiles files{clock};
  Signing signing{kSigners, 1};
  std::string today = "2026-06-01";
  std::string bytes;
};

std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

Wanted arrange(GateWorld& world, const std::string& how) {
  Wanted wanted;
  std::istringstream words(how);
  for (std::string word; words >> word;) {
    const std::string name = word.substr(0, word.find('='));
    const std::string value = word.substr(name.size() + 1);
    if (name == "today") world.today = value;
    if (name == "minimum") world.signing.minimumSigners = unsigned(std::stoul(value));
    if (name == "kind" && !kindNamed(value, wanted.kind)) ADD_FAILURE() << word;
    if (name == "name") wanted.name = value;
    if (name != "signers") continue;
    if (value == "-")
      world.signing.signersFile.clear();
    else if (value == "missing")
      world.signing.signersFile += ".missing";
    else
      world.put(value);
  }
  return wanted;
}

TEST(Gate, AcceptsAndRefusesByTheTable) {
  std::ifstream table(KORVANE_REFUSALS);
  size_t rows = 0;
  for (std::string line; std::getline(table, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> cells;
    std::istringstream fields(line);
    for (std::string cell; std::getline(fields, cell, '|');) cells.push_back(trimmed(cell));
    cells.resize(5);
    GateWorld world;
    if (cells[0] != "-" && world.code(cells[0]) != 0) ADD_FAILURE() << line;
    const Verdict verdict = world.check(cells[1], arrange(world, cells[2]));
    EXPECT_EQ(verdict.refusal.code(), std::stoi(cells[3])) << line << verdict.refusal.text;
    EXPECT_THAT(verdict.refusal.text, testing::HasSubstr(cells[4])) << line;
    // What is let through is what was signed, without what it was wrapped in.
    const bool plain = cells[1].starts_with("version-") && verdict.accepted();
    EXPECT_TRUE(!plain || verdict.content == sample("plain.zip")) << line;
    ++rows;
  }
  EXPECT_GT(rows, 50U);
}

TEST(Gate, TakesNewSignersFromTheOldOnesAndForgetsThemWithTheFile) {
  GateWorld world;
  const Verdict rotated = world.check("two-steps.signed");
  EXPECT_EQ(rotated.signersVersion, 3U);
  EXPECT_EQ(rotated.newSigners, "CN = Signer stranger");
  EXPECT_TRUE(world.check("two-steps.signed").newSigners.empty()) << "once";
  EXPECT_EQ(world.code("version-3.signed"), int(Reason::replacedSigner));
  world.put("only-a");
  EXPECT_EQ(world.code("two-steps.signed"), 0) << "another file: the way begins anew";
  world.put("trusted");
  EXPECT_EQ(world.code("version-3.signed"), int(Reason::older)) << "versions stay";
  // New signers are kept when what came with them is refused.
  GateWorld other;
  EXPECT_EQ(other.code("to-c.signed", {.kind = Kind::software}), int(Reason::otherPackage));
  EXPECT_EQ(other.code("by-c.signed"), 0);
}

TEST(Gate, WhatWasSeenExpiredStaysSoWhenTheClockGoesBack) {
  GateWorld world;
  world.today = "2026-02-02";
  ASSERT_EQ(world.code("short.signed"), int(Reason::expired));
  world.today = "2026-01-15";
  const Verdict again = world.check("short.signed");
  EXPECT_EQ(again.refusal.code(), int(Reason::expired));
  EXPECT_THAT(again.refusal.text, testing::HasSubstr("whatever the clock says"));
  EXPECT_EQ(world.code("version-2.signed"), int(Reason::expired)) << "and so does what is older";
  EXPECT_EQ(world.code("policy-Other.signed"), 0);
  GateWorld fresh;
  fresh.today = "2026-01-15";
  EXPECT_EQ(fresh.code("short.signed"), 0);
}

TEST(Gate, WithADamagedRecordNothingIsAccepted) {
  GateWorld world;
  ASSERT_EQ(world.code("to-c.signed"), 0);
  const std::string whole = world.files.content(kRecord);
  for (size_t at = 0; at < whole.size(); ++at) {
    std::string damaged = whole;
    damaged[at] ^= 1;
    Record record;
    EXPECT_FALSE(parseRecord(damaged, record)) << at;
    EXPECT_FALSE(parseRecord(whole.substr(0, at), record)) << at;
  }
  world.files.put(kRecord, whole.substr(1));
  const Verdict verdict = world.check("by-c.signed");
  EXPECT_EQ(verdict.refusal.code(), int(Reason::recordUnusable));
  EXPECT_THAT(verdict.refusal.text, testing::HasSubstr("damaged"));
  EXPECT_EQ(world.files.content(kRecord), whole.substr(1)) << "nothing is overwritten";
}

// Each operation on the record fails once: what was not recorded is not accepted.
TEST(Gate, AcceptsNothingThatItCannotRecord) {
  using Operation = platform::FileOperation;
  for (const Operation operation :
       {Operation::open, Operation::read, Operation::write, Operation::flush, Operation::replace,
        Operation::flushDirectory})
    for (int nth = 1; nth <= 3; ++nth) {
      GateWorld world;
      ASSERT_EQ(world.code("version-2.signed"), 0);
      platform::FaultyFiles faulty(world.files);
      faulty.failNth(operation, nth, EIO, "IPS");
      if (!world.check(faulty, "version-3.signed").accepted()) continue;
      EXPECT_EQ(world.code("version-2.signed"), int(Reason::older)) << int(operation) << nth;
    }
}

// After a crash at any moment the record is whole, and what was accepted before it counts.
void sweep(size_t leftOut, size_t& broken, size_t& flushes) {
  GateWorld world;
  platform::RecordingFiles recorded(world.files);
  recorded.leaveOutFlush(leftOut);
  std::vector<std::pair<size_t, std::string>> accepted;  // after how many entries
  for (const char* package :
       {"version-1.signed", "version-2.signed", "to-c.signed", "by-c.signed"}) {
    ASSERT_TRUE(world.check(recorded, package).accepted());
    accepted.emplace_back(recorded.size(), package);
  }
  flushes = recorded.flushes();
  for (size_t entries = 0; entries <= recorded.size(); ++entries)
    recorded.forEachCrashAfter(entries, [&](const std::string& state, MemoryFiles& disk) {
      const auto code = [&](const char* package) {
        return world.check(disk, package).refusal.code();
      };
      uint64_t highest = 0;
      for (const auto& [after, package] : accepted)
        if (after <= entries) highest = package == "to-c.signed" ? 3 : highest + 1;
      Record record;
      const int error = readRecord(disk, kRecord, record);
      const VersionMark* mark = record.find(Kind::policy, "Base");
      const bool good = error == 0 && (highest == 0 || (mark && mark->version >= highest)) &&
                        (highest < 2 || code("version-1.signed") == int(Reason::older) ||
                         code("version-1.signed") == int(Reason::replacedSigner)) &&
                        code("by-c.signed") == (record.signersVersion == 2 ? 0 : 1104);
      if (good) return;
      if (leftOut == platform::RecordingFiles::kNoFlush) ADD_FAILURE() << state;
      ++broken;
    });
}

TEST(Gate, ACrashLosesNothingThatWasAccepted) {
  size_t broken = 0, flushes = 0;
  sweep(platform::RecordingFiles::kNoFlush, broken, flushes);
  EXPECT_EQ(broken, 0U);
  ASSERT_GT(flushes, 4U);
  for (size_t flush = 0, all = flushes; flush < all; ++flush) {
    broken = 0;
    sweep(flush, broken, flushes);
    EXPECT_GT(broken, 0U) << "flush " << flush << " changes nothing";
  }
}

}  // namespace
}  // namespace korvane::trust
