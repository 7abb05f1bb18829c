#include "simulate/episode.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "config/install_root.h"
#include "platform/error_codes.h"
#include "simulate/life.h"

namespace korvane::simulation {

namespace {

constexpr int64_t kSecond = 1000, kMinute = 60 * kSecond, kHour = 60 * kMinute;
constexpr int64_t kYear = 365 * 24 * kHour;
constexpr int64_t kShortest = 10 * kMinute;
constexpr int64_t kStopLimit = 5 * kMinute;  // then it hangs
constexpr int64_t kSettlingLimit = 2 * kHour;

// Between the two, as likely from one to ten as from ten to a hundred.
int64_t spread(Random& random, int64_t least, int64_t most) {
  const double share = random.below(1000000) / 1e6;
  return static_cast<int64_t>(
      static_cast<double>(least) *
      std::pow(static_cast<double>(most) / static_cast<double>(least), share));
}

class Episode {
 public:
  explicit Episode(const EpisodePlan& plan);
  Outcome run();

 private:
  void install();
  void begin();
  void live(int64_t until);
  void afterDeath();
  void stopAndAwait();
  void pass(int64_t until);
  void second();
  void befall();
  void changeTroubles(bool calm);
  void settle();
  void awaitGhosts();
  uint64_t state();

  const EpisodePlan _plan;
  Outcome _outcome;
  platform::SimThreading _sim;
  Findings _findings;
  Machine _machine;
  Random _random;
  const std::unique_ptr<platform::Event> _attention = _sim.createEvent(false, false);
  std::vector<std::unique_ptr<Life>> _lives;  // the last one is that of today, the others ghosts
  bool _running = false, _calm = false, _powerCut = false;
  int64_t _troublesEnd = 0;
};

Episode::Episode(const EpisodePlan& plan)
    : _plan(plan),
      _sim(plan.seed, [this](const std::string& report) { _findings.add("deadlock: " + report); }),
      _findings(plan.seed, [this] { return _machine.now(); }),
      _machine(plan.seed, _sim, _findings),
      _random(plan.seed ^ 0xE915) {
  _machine.tells = plan.tells;
  _sim.yieldOnceIn(static_cast<uint32_t>(_random.oneOf({1, 4, 16})));
}

void Episode::install() {
  const std::string root = kRoot;
  _machine.registry.put(kAgentRegistryKey, "AgentType", STRING("1"));
  _machine.registry.put(kAgentRegistryKey, "InstallRoot", STRING(root));
  _machine.append(
      root + "/IPS/agent.ini",
      std::string("[Agent]\nagent.http.url=https://") +
          (_random.chance(50) ? "127.0.0.1" : "localhost") +
          ":8443/korvane/agent/\n"
          "[Log]\nlog.writer.limit=" +
          std::to_string(_random.oneOf({1, 10, 100})) +
          "\n[Polling]\npolling.interval=" + std::to_string(_random.oneOf({20, 60, 120})) +
          (_random.chance(50) ? "\n[AgentLog]\nagentlog.log.trace.messages=true" : "") +
          "\n[TCP]\ntcp.enabled=true\ntcp.port=2222\n");
  ignoreResult(_machine.files().makeDirectories(root + "/IDS/bin"));
  _machine.writer.install(_machine);
}

// Troubles come and go; without them for as long as an exchange's time-out at most.
void Episode::changeTroubles(bool calm) {
  const bool before = _machine.troubles.any();
  Troubles next;
  if (!calm && _random.chance(40)) {
    if (_random.chance(40)) next.diskPercent = _random.oneOf({2, 10, 50, 100});
    if (_random.chance(40)) next.driver = static_cast<Troubles::Driver>(_random.below(6));
    if (_random.chance(30)) next.translator = static_cast<Troubles::Translator>(_random.below(4));
    next.resolverHangs = _random.chance(10);
  }
  _machine.troubles = next;
  if (next.any())
    _machine.tell("troubles: disk " + std::to_string(next.diskPercent) + " driver " +
                  std::to_string(static_cast<int>(next.driver)) + " translator " +
                  std::to_string(static_cast<int>(next.translator)) + " resolver " +
                  std::to_string(next.resolverHangs));
  _troublesEnd = _machine.now() + spread(_random, 5 * kSecond, 20 * kMinute);
  if (!_lives.empty()) {
    platform::FakePlatform& fake = _lives.back()->fake;
    fake.devices.setOpenError(next.driver == Troubles::Driver::absent ? platform::kErrorFileNotFound
                                                                      : 0);
    fake.sockets.setResolverHangs(next.resolverHangs);
  }
  if (next.driver == Troubles::Driver::absent) ++_machine.counts["absences of the driver"];
  if (before != next.any()) _machine.invariants.machineWeather(_machine.now(), !next.any());
}

// What happens to the agent from outside, drawn once a second.
void Episode::befall() {
  if (_calm) return;
  if (_machine.now() >= _troublesEnd) changeTroubles(false);
  if (_random.below(1800) == 0) {
    const int64_t by = spread(_random, kSecond, 20 * kYear);
    _sim.setWall(_sim.clock().wallMs() + (_random.chance(50) ? by : -by));
    ++_machine.counts["clock jumps"];
  }
  if (!_running) return;
  if (_random.below(600) == 0) _lives.back()->disturbLocalChannel();
  if (_random.below(120) == 0) {
    const int waiting = _machine.server.waitingKinds();
    const bool odd = _random.chance(20);
    const int byte = odd ? _random.below(256) : waiting;
    if (byte && _lives.back()->notify(static_cast<uint8_t>(byte))) {
      ++_machine.counts["notifications"];
      if ((byte & 0xC0) == 0) _machine.invariants.notified(_machine.now());
    }
  }
}

uint64_t Episode::state() {
  const Troubles& troubles = _machine.troubles;
  uint64_t state = _running ? 1 : 2;
  for (const int part :
       {static_cast<int>(troubles.driver), static_cast<int>(troubles.translator),
        troubles.diskPercent > 0 ? 1 : 0, troubles.resolverHangs ? 1 : 0,
        _machine.driver.builtIn() ? 1 : 0, _machine.server.isGood(_machine.now()) ? 1 : 0,
        _machine.server.waitingKinds(), std::min(3, _machine.account.unsettled())})
    state = state * 131 + static_cast<uint64_t>(part);
  return state;
}

void Episode::second() {
  _machine.writer.step(_machine.now(), _machine);
  befall();
  if (_running) _machine.invariants.tick(_machine.now());
  _outcome.states.insert(state());
}

// Lets time pass, the component go on and things happen, until then or until the agent has died
// or ended.
void Episode::pass(int64_t until) {
  while (_machine.now() < until) {
    if (_running && (_lives.back()->ended() || _lives.back()->line.dead())) return;
    _attention->wait(static_cast<uint32_t>(std::min(kSecond, until - _machine.now())));
    second();
  }
}

void Episode::begin() {
  _machine.tell("start");
  std::erase_if(_lives, [](const auto& life) { return life->gone(); });
  _machine.processBegins();
  _machine.server.lifeBegan();
  _machine.invariants.started(_machine.now());
  ++_outcome.starts;
  _running = true;
  _lives.push_back(std::make_unique<Life>(_machine, *_attention));
}

void Episode::afterDeath() {
  Life& life = *_lives.back();
  _running = false;
  ++_machine.counts[_powerCut ? "power cuts" : "kills"];
  _machine.tell(std::string(_powerCut ? "power cut: " : "killed: ") + life.line.where());
  _machine.invariants.killed(_machine.now(), _powerCut);
  if (_powerCut) _machine.power();
  _machine.invariants.afterKill(_machine.view());
  if (_machine.tells)
    for (const std::string& path : _machine.view().paths())
      if (path.find("/IPS/logs/") == std::string::npos)
        _machine.tell("  " + path + ": " + _machine.read(path)->substr(0, 1500));
  life.stop();
}

void Episode::stopAndAwait() {
  Life& life = *_lives.back();
  if (!life.ended()) {
    ++_machine.counts["stops"];
    _machine.tell("stop");
    _machine.invariants.stopAsked(_machine.now());
    life.stop();
  } else {
    ++_machine.counts["ends of its own"];
  }
  const int64_t limit = _machine.now() + kStopLimit;
  while (!life.gone() && _machine.now() < limit && !life.line.dead()) _sim.runFor(100);
  if (life.line.dead()) return afterDeath();
  _running = false;
  life.stop();
  _machine.invariants.stopped(life.ended() ? life.endedAt() : _machine.now(), life.line.threads,
                              life.handles());
}

// One start and its end.
void Episode::live(int64_t until) {
  begin();
  Life& life = *_lives.back();
  _powerCut = _random.chance(50);
  const bool dies = !_calm && _random.chance(60);
  if (dies && _random.chance(70))
    life.line.killAtKind(static_cast<uint64_t>(spread(_random, 1, 100)),
                         static_cast<uint64_t>(spread(_random, 1, 100)) - 1);
  else if (dies && _random.chance(50))
    life.line.killAt(static_cast<uint64_t>(spread(_random, 1, 100000)));
  pass(until);
  if (!life.ended() && !life.line.dead() && dies) life.line.kill("its time");
  if (life.line.dead())
    afterDeath();
  else
    stopAndAwait();
}

// Good weather, until nothing is left to be done.
void Episode::settle() {
  _calm = true;
  _machine.server.goodWeather(true);
  _machine.server.quiet();
  _machine.writer.quiet();
  changeTroubles(true);
  begin();
  const int64_t limit = _machine.now() + kSettlingLimit;
  while (!_machine.invariants.settled(_machine.now()) && _machine.now() < limit) {
    pass(_machine.now() + 5 * kSecond);
    if (_lives.back()->ended()) break;
  }
  _machine.invariants.end(_machine.now());
  stopAndAwait();
}

// What a killed process left running has nobody it could wait for but its own stop, which was asked
// for. It cannot be abandoned: its threads run on what the episode owns.
void Episode::awaitGhosts() {
  const int64_t limit = _machine.now() + kHour;
  for (const auto& life : _lives)
    while (!life->gone()) {
      _sim.runFor(kSecond);
      if (_machine.now() < limit) continue;
      std::cerr << "threads of an agent that was killed have not ended an hour after its stop:"
                << _sim.waits() << "\n";
      std::abort();
    }
}

Outcome Episode::run() {
  install();
  const int64_t length = spread(
      _random, kShortest,
      std::max(kShortest + 1, static_cast<int64_t>(_plan.mostHours * static_cast<double>(kHour))));
  while (_machine.now() < length) {
    const int64_t life =
        _random.chance(15) ? spread(_random, 1, kSecond) : spread(_random, kSecond, 6 * kHour);
    live(std::min(length, _machine.now() + life));
    pass(_machine.now() + spread(_random, kSecond / 10, 10 * kMinute));
  }
  settle();
  awaitGhosts();
  _machine.sum(std::to_string(_sim.scheduleHash()));
  _outcome.hash = _machine.hash();
  _outcome.ms = _machine.now();
  if (_plan.tells)
    for (const std::string& path : _machine.view().paths())
      if (path.starts_with(std::string(kRoot) + "/IPS/logs/"))
        _outcome.log += _machine.read(path).value_or("");
  _outcome.findings = _findings.texts();
  _outcome.findingCount = _findings.count();
  _outcome.faults = _machine.counts;
  return std::move(_outcome);
}

}  // namespace

Outcome runEpisode(const EpisodePlan& plan) {
  return Episode(plan).run();
}

}  // namespace korvane::simulation
