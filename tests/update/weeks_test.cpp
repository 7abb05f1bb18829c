// Weeks of an update thread's life on simulated time, with a server that answers everything it can
// and a wall clock that is set forth and back.
#include <gtest/gtest.h>

#include "tests/update/cycles.h"

namespace korvane {
namespace {

using tests::Cycles;

constexpr int64_t kDayMs = 24LL * 3600 * 1000;
constexpr int kSecondsADay = 24 * 3600;

// Sanitizers make a simulated second twenty times as dear, and look at the same code every day.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr size_t kDays = 2;
#else
constexpr size_t kDays = 21;
#endif

// A cycle is a second, which the thread spends in its wait for a notification.
constexpr char kSettings[] =
    "[TCP]\ntcp.enabled=true\ntcp.port=2222\n[Polling]\npolling.interval=1799\nfailback.interval="
    "7200\n";

struct Weeks : Cycles {
  explicit Weeks(const std::string& settings = kSettings) : Cycles(settings) {
    // Weeks of trace lines are of no use to anybody.
    eventlog::EventLog::close();
  }
  void setWallBy(int64_t ms) { machine.sim.setWall(machine.sim.clock().wallMs() + ms); }
};

// What an operator or a time server may do to the clock.
constexpr int64_t kWallJumps[] = {3600 * 1000,  -3600 * 1000, 30 * kDayMs,
                                  -30 * kDayMs, 365 * kDayMs, -20 * 365 * kDayMs};

TEST(WeeksOfTime, PollingKeepsItsCadenceWhateverTheWallClockDoes) {
  Weeks weeks;
  weeks.run(1);
  for (size_t day = 1; day <= kDays; ++day) {
    weeks.setWallBy(kWallJumps[day % std::size(kWallJumps)]);
    weeks.run(kSecondsADay);
    EXPECT_EQ(weeks.statuses(), 1U + day * 48) << "day " << day;
  }
}

TEST(WeeksOfTime, FailsOverAndComesBackWhateverTheWallClockDoes) {
  Weeks weeks(std::string(kSettings) + "[Agent]\nserver.list=127.0.0.1,127.0.0.2\n");
  weeks.run(1);
  const auto askedLast = [&] { return weeks.machine.server.requests("result").back().host; };
  const size_t half = kDays / 2;
  for (size_t round = 0; round < 2; ++round) {
    weeks.machine.server.setDown("127.0.0.1", true);
    weeks.setWallBy(kWallJumps[round]);
    weeks.run(kSecondsADay / 2);
    EXPECT_EQ(askedLast(), "127.0.0.2") << "round " << round;
    weeks.setWallBy(kWallJumps[round + 4]);
    weeks.run(static_cast<int>(half) * kSecondsADay / 2);
    EXPECT_EQ(askedLast(), "127.0.0.2") << "round " << round;
    weeks.machine.server.setDown("127.0.0.1", false);
    weeks.run(static_cast<int>(half) * kSecondsADay / 2);
    EXPECT_EQ(askedLast(), "127.0.0.1") << "round " << round;
    EXPECT_EQ(weeks.config().getServerCurrent(), STRING("127.0.0.1"));
  }
}

}  // namespace
}  // namespace korvane
