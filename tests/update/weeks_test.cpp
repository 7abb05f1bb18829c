// Weeks of an update thread's life on simulated time, with a server that answers everything it can and a wall
// clock that is set forth and back.
#include <gtest/gtest.h>

#include <random>

#include "tests/update/cycles.h"

namespace korvane {
namespace {

using tests::Answer;
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
  void notify(char byte) {
    std::unique_ptr<platform::Socket> client;
    machine.fake.sockets.createTcp(client);
    if (client->connect("127.0.0.1", 2222, 1000) != 0) return;
    size_t sent = 0;
    client->send(&byte, 1, sent);
  }
  // The statuses that a poll sends, not those that tell what became of a policy.
  size_t polls() const {
    size_t count = 0;
    for (const auto& request : machine.server.requests("result"))
      count += request.body.find("agent.osversion=") != std::string::npos &&
               request.body.find("result.errorcode=19\n") == std::string::npos;
    return count;
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

TEST(WeeksOfTime, EveryCodeOfTheServerLeavesTheThreadPollingAndWithinItsRetries) {
  for (const unsigned seed : {1U, 2U}) {
    Weeks weeks;
    std::mt19937 random(seed);
    const auto draw = [&](size_t bound) { return random() % bound; };
    const Answer answers[] = {
        Answer(),           Answer::error(200),
        Answer::error(200), Answer::error(200),
        Answer::error(300), Answer::error(301),
        Answer::error(600), Answer::failure(28),
        Answer::http(500),  Answer::properties("update.configuration=true\nkey.a=b\n")};
    const char bytes[] = {0, 1, 2, 3, 8, 16, 31, 32, 0x3F, 0x40, '\x80', '\xFF'};
    weeks.run(1);
    size_t notified = 0;
    for (size_t hour = 0; hour < kDays * 9; ++hour) {
      for (const char* path : {"update", "result"})
        weeks.machine.server.always(path, answers[draw(std::size(answers))]);
      if (draw(4) == 0) weeks.setWallBy(kWallJumps[draw(std::size(kWallJumps))]);
      if (draw(2) == 0) {
        weeks.notify(bytes[draw(std::size(bytes))]);
        ++notified;
      }
      const size_t polls = weeks.polls();
      const size_t updates = weeks.updates();
      weeks.run(3600);
      EXPECT_GE(weeks.polls() - polls, 1U) << "seed " << seed << ", hour " << hour;
      EXPECT_LE(weeks.polls() - polls, 3U) << "seed " << seed << ", hour " << hour;
      // Three groups, each repeated every sixth cycle at most, and what was asked for afresh.
      EXPECT_LE(weeks.updates() - updates, 3U * 601 + 6) << "seed " << seed << ", hour " << hour;
    }
    weeks.machine.server.always("result", Answer());
    weeks.machine.server.always("update", Answer());
    weeks.run(4000);
    const size_t updates = weeks.updates();
    weeks.run(kSecondsADay);
    EXPECT_EQ(weeks.updates(), updates) << "nothing is pending for ever, seed " << seed;
    EXPECT_GT(notified, kDays * 2);
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
