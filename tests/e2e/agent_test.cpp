// The real library under the real host, against the reference server over TLS on loopback.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <functional>

#include "platform/files.h"
#include "platform/platform.h"
#include "platform/sockets.h"
#include "tests/e2e/installed_agent.h"

namespace korvane {
namespace {

using ::testing::HasSubstr;
using tests::ChildProcess;
using tests::InstalledAgent;

constexpr int64_t kStopLimitMs = 2000;

// A port that takes connections and never says a word.
class SilentPeer {
 public:
  SilentPeer() {
    platform::current().sockets.createTcp(_listener);
    _listener->bind(false, 0);
    _listener->listen(16);
  }
  int port() { return _listener->localPort(); }

 private:
  std::unique_ptr<platform::Socket> _listener;
};

// A driver that takes requests and never answers.
class SilentDriver {
 public:
  explicit SilentDriver(const std::string& path)
      : _socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    listen(_socket, 16);
  }
  ~SilentDriver() { close(_socket); }

 private:
  const int _socket;
};

TEST(Agent, RegistersReportsItsStatusForwardsEventsAndStops) {
  InstalledAgent agent;
  agent.startServer();
  agent.configure(agent.serverPort(), "[Log]\nlog.writer.limit=10\nlog.reader.limit=100\n");
  ChildProcess writer({KORVANE_IDS_WRITER, "--install-root", agent.path("root"), "--events", "25"},
                      agent.path("writer.log"));
  int status = -1;
  ASSERT_TRUE(writer.waitEnd(status)) << writer.output();
  agent.start();
  ASSERT_TRUE(tests::eventually([&] {
    const nlohmann::json agents = agent.get("/agents");
    return agents.size() == 1 && !agents[0]["status"].is_null();
  })) << agent.log();
  EXPECT_TRUE(tests::eventually([&] { return agent.get("/events").value("covered", 0) >= 25; }))
      << agent.get("/events").dump();
  const int64_t took = agent.stop(status);
  EXPECT_EQ(status, 0);
  EXPECT_GE(took, 0);
  EXPECT_LE(took, kStopLimitMs);
  EXPECT_THAT(agent.log(), HasSubstr(",10110,"));
}

TEST(Agent, StopsWithinTwoSecondsInEveryState) {
  struct StopCase {
    const char* state;
    std::function<void(InstalledAgent&)> arrange;
    const char* reached;  // the line of the agent's own log that tells that the state is reached
  };
  SilentPeer peer;
  std::unique_ptr<SilentDriver> driver;
  std::unique_ptr<platform::FileLock> lockFile;
  const StopCase cases[] = {
      {"unreachable server", [](InstalledAgent& agent) { agent.configure(1); },
       "unsuccessful registration"},
      {"hanging TLS handshake", [&](InstalledAgent& agent) { agent.configure(peer.port()); },
       "Certificate Path"},
      {"slow response",
       [](InstalledAgent& agent) {
         agent.startServer();
         agent.command("/misbehave",
                       {{"kind", "delay"}, {"word", "register"}, {"delay_ms", 120000}});
       },
       "Sending Register Message"},
      {"first-update wait",
       [](InstalledAgent& agent) {
         agent.startServer();
         agent.command("/misbehave", {{"kind", "error"}, {"word", "result"}, {"code", 500}});
       },
       ",10217,"},
      {"stalled driver",
       [&](InstalledAgent& agent) {
         agent.startServer();
         driver = std::make_unique<SilentDriver>(agent.path("run/kavips.sock"));
       },
       "I/O pending."},
      {"held lock file",
       [&](InstalledAgent& agent) {
         agent.startServer();
         agent.command("/misbehave", {{"kind", "delay"}, {"word", "register"}, {"delay_ms", 2000}});
       },
       "Waiting to open lock file"},
  };
  for (const StopCase& row : cases) {
    SCOPED_TRACE(row.state);
    InstalledAgent agent;
    row.arrange(agent);
    agent.start();
    if (row.state == std::string("held lock file")) {
      ASSERT_TRUE(agent.logged("Sending Register Message"));
      ASSERT_EQ(platform::current().files.lock(agent.path("root/IPS/lockFile"), lockFile), 0);
    }
    ASSERT_TRUE(agent.logged(row.reached)) << agent.log();
    int status = -1;
    const int64_t took = agent.stop(status);
    EXPECT_EQ(status, 0) << agent.host->output();
    EXPECT_GE(took, 0);
    EXPECT_LE(took, kStopLimitMs);
    std::printf("stop, %s: %lld ms\n", row.state, static_cast<long long>(took));
    EXPECT_THAT(agent.log(), HasSubstr(",10110,"));
    EXPECT_EQ(agent.log().find("Fatal Registration."), std::string::npos);
    lockFile.reset();
    driver.reset();
  }
}

TEST(Agent, ASignalBeforeTheAgentObjectExistsEndsItWithStatusZero) {
  for (int round = 0; round < 6; ++round) {
    InstalledAgent agent(0);
    agent.start();
    ASSERT_TRUE(tests::eventually([&] { return agent.host->handles(SIGTERM); }));
    int status = -1;
    EXPECT_LE(agent.stop(status), kStopLimitMs);
    EXPECT_EQ(status, 0) << agent.host->output();
  }
}

TEST(Agent, AServerThatGivesNoIdentityEndsTheProgramForARestart) {
  InstalledAgent agent;
  agent.startServer();
  agent.command("/misbehave", {{"kind", "noGuid"}, {"word", "register"}});
  agent.start();
  int status = -1;
  ASSERT_TRUE(agent.host->waitEnd(status));
  EXPECT_EQ(status, 3);
  EXPECT_EQ(agent.host->lastLine(), "korvane-host: the agent ended itself (ACMD_ExitService)");
  EXPECT_THAT(agent.log(), HasSubstr(",10107,"));
}

TEST(Agent, AfterALaterFatalRegistrationTheHostsDeadlineEndsTheProgram) {
  InstalledAgent agent;
  agent.startServer();
  agent.configure(agent.serverPort(), "[Polling]\npolling.interval=1\n");
  agent.start("2");
  ASSERT_TRUE(agent.logged("Starting Generic AppData"));
  agent.command("/misbehave", {{"kind", "noGuid"}, {"word", "register"}});
  agent.forget(agent.get("/agents")[0]["guid"]);
  int status = -1;
  ASSERT_TRUE(agent.host->waitEnd(status)) << agent.log();
  EXPECT_EQ(status, 3);
  EXPECT_THAT(agent.host->lastLine(), HasSubstr("the agent ended itself but did not return"));
  EXPECT_THAT(agent.log(), HasSubstr("Fatal Registration."));
  EXPECT_EQ(agent.log().find(",10107,"), std::string::npos) << "its final wait never ends";
}

}  // namespace
}  // namespace korvane
