// Whole agents beside each other in one process, each with a machine, a server, a type and
// settings of its own: nothing of one is seen by another. KORVANE_AGENTS says how many,
// KORVANE_SECONDS for how long on simulated time; more than a hundred are all of the type that
// speaks with the server (docs/simulation.md).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/session.h"
#include "platform/fake/fake_platform.h"
#include "tests/support/scripted_server.h"
#include "tests/support/watchdog.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::ScriptedServer;

constexpr char kIni[] = "/IPS/agent.ini";
constexpr char kLogs[] = "/IPS/logs/";
constexpr int kEvents = 3;

int wanted(const char* variable, int otherwise) {
  const char* const given = std::getenv(variable);
  return given ? std::atoi(given) : otherwise;
}

constexpr int kMostOfEachType = 100;

// One agent and all that it may touch. On simulated threads, or on real ones with the real clock.
class Agent {
 public:
  Agent(int number, int type, std::unique_ptr<platform::FakePlatform> machine,
        platform::Clock& clock)
      : _number(number),
        _type(type),
        fake(std::move(machine)),
        _clock(clock),
        _run(platform::makeRun(_system)) {
    const AgentRunScope inRun(_run);
    server = std::make_unique<ScriptedServer>();
    server->always("register", Answer::properties("agent.id=" + name() + "\n"));
    fake->files.put(root() + kIni, "[Agent]\nagent.http.url=https://" + name() +
                                       ".test/k/\npolling.interval=5\n"
                                       "[AgentLog]\nagentlog.log.trace.messages=" +
                                       (number < kMostOfEachType ? "true\n" : "false\n"));
    fake->files.put(root() + "/IDS/ids.properties",
                    "ids.service.rteventfile.name=" + root() + "/IDS/rt.csv\n");
    std::string events;
    for (int event = 1; event <= kEvents; ++event)
      events +=
          "PFIL," + std::to_string(event) + ",t," + name() + " " + std::to_string(event) + "\n";
    fake->files.put(root() + "/IDS/rt.csv", events);
    constexpr char kKey[] = "SOFTWARE\\Dalvora\\Intrusion Security\\agent";
    fake->registry.put(kKey, "AgentType", STRING::fromInt(type));
    fake->registry.put(kKey, "InstallRoot", STRING(root()));
    fake->devices.setOpenError(2);
    fake->pipes.setWakes(true);
  }

  // Until the agent has stopped; on a thread of its own.
  void live() {
    EXPECT_NE(_place.run([this] { return _run; }), nullptr) << name();
    _ended = true;
  }
  void stop() { _place.end(); }
  bool ended() const { return _ended; }
  bool standard() const { return _type == 1; }
  std::string name() const { return "agent" + std::to_string(_number); }

  std::string log() const {
    std::string text;
    for (const std::string& path : fake->files.paths())
      if (path.starts_with(root() + kLogs)) text += fake->files.content(path);
    return text;
  }

  // What it left is its own, and whole.
  void expectItself() const {
    SCOPED_TRACE(name());
    EXPECT_TRUE(_ended);
    const std::string text = log();
    for (const char* once : {",10106,KorvaneAgent,", ",10110,KorvaneAgent,"})
      EXPECT_EQ(occurrences(text, once), 1u) << once;
    EXPECT_EQ(occurrences(text, "all threads cleaned up -1"), 0u);
    for (const std::string& path : fake->files.paths())
      EXPECT_TRUE(path.starts_with(root() + "/")) << path;
    EXPECT_EQ(server->count("register"), standard() ? 1u : 0u);
    const std::string ini = fake->files.content(root() + kIni);
    EXPECT_EQ(occurrences(ini, "agent.id=" + name() + "\n"), standard() ? 1u : 0u) << ini;
    for (const char* word : {"register", "update", "result", "log"})
      for (const auto& request : server->requests(word))
        EXPECT_EQ(request.host, name() + ".test") << word;
    if (standard()) {
      EXPECT_EQ(delivered(), size_t{kEvents});
      for (const auto& request : server->requests("log"))
        EXPECT_EQ(occurrences(request.body, "agent"), occurrences(request.body, name()))
            << request.body;
    }
  }

  size_t delivered() const {
    size_t count = 0;
    for (const auto& request : server->requests("log"))
      count += occurrences(request.body, name() + " ");
    return count;
  }
  size_t polls() const { return server->count("result"); }

 private:
  const int _number, _type;

 public:
  const std::unique_ptr<platform::FakePlatform> fake;
  std::unique_ptr<ScriptedServer> server;

 private:
  static size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
    return count;
  }
  std::string root() const { return "/opt/" + name(); }

  platform::Clock& _clock;
  platform::Platform _system{_clock,          fake->platform().threading,
                             fake->files,     fake->registry,
                             fake->devices,   fake->processes,
                             fake->sockets,   fake->systemInfo,
                             fake->libraries, fake->pipes,
                             fake->rights};
  std::shared_ptr<AgentRun> _run;
  AgentPlace _place;
  std::atomic<bool> _ended{false};
};

class ManyAgents : public testing::TestWithParam<int> {
 protected:
  static int typeOf(int number) { return GetParam() > kMostOfEachType ? 1 : number % 4; }
};

TEST_P(ManyAgents, LiveBesideEachOtherOnSimulatedTime) {
  platform::SimThreading sim(7);
  sim.yieldOnceIn(GetParam() > 10 ? 16 : 1);
  std::vector<std::unique_ptr<Agent>> agents;
  std::vector<std::unique_ptr<platform::NativeThread>> hosts;
  for (int number = 0; number < GetParam(); ++number) {
    agents.push_back(std::make_unique<Agent>(
        number, typeOf(number), std::make_unique<platform::FakePlatform>(sim), sim.clock()));
    hosts.push_back(sim.createThread(0, [agent = agents.back().get()] { agent->live(); }));
  }
  const tests::Wait wait("the simulated agents");
  const int64_t life = int64_t{wanted("KORVANE_SECONDS", 20)} * 1000, after = 10000;
  const auto begun = std::chrono::steady_clock::now();
  sim.runFor(life - after);
  // The stop of one is none of the others.
  for (size_t i = 0; i < agents.size(); i += 2) agents[i]->stop();
  std::vector<size_t> polls;
  for (const auto& agent : agents) polls.push_back(agent->polls());
  sim.runFor(after);
  for (size_t i = 0; i < agents.size(); ++i) {
    EXPECT_EQ(agents[i]->ended(), i % 2 == 0) << i;
    EXPECT_EQ(agents[i]->polls() > polls[i], agents[i]->standard() && i % 2 == 1) << i;
  }
  for (size_t i = 1; i < agents.size(); i += 2) agents[i]->stop();
  for (const auto& host : hosts) host->join(platform::kInfinite);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
  std::printf("%d agents for %.0f simulated seconds: %.1f s, %llu switches of threads\n",
              GetParam(), double(life) / 1000, took.count(),
              static_cast<unsigned long long>(sim.switches()));
  for (const auto& agent : agents) agent->expectItself();
}

TEST_P(ManyAgents, LiveBesideEachOtherOnRealThreads) {
  const auto clock = platform::makeNativeClock();
  std::vector<std::unique_ptr<Agent>> agents;
  std::vector<std::thread> hosts;
  for (int number = 0; number < GetParam(); ++number)
    agents.push_back(std::make_unique<Agent>(number, typeOf(number),
                                             std::make_unique<platform::FakePlatform>(), *clock));
  for (const auto& agent : agents) hosts.emplace_back([&agent] { agent->live(); });
  const tests::Wait wait("the agents on real threads");
  const auto busy = [](const Agent& agent) {
    return agent.standard() ? agent.delivered() < kEvents
                            : agent.log().find(",10106,") == std::string::npos;
  };
  for (const auto& agent : agents)
    while (busy(*agent)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  for (const auto& agent : agents) agent->stop();
  for (std::thread& host : hosts) host.join();
  for (const auto& agent : agents) agent->expectItself();
}

INSTANTIATE_TEST_SUITE_P(Of, ManyAgents, testing::Values(2, wanted("KORVANE_AGENTS", 100)),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace korvane
