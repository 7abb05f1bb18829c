#include "tests/logs/model/schedule.h"

namespace korvane::log_model {

namespace {

class Schedule {
 public:
  Schedule(uint64_t seed, const MakeForwarder& make,
           const std::function<void(const std::string&)>& tell)
      : _random(seed), _tell(tell) {
    _machine.grainMs = _random.oneOf({1, 2000, 0});
    _machine.reuseIdentities = _random.chance(30);
    _settings.serviceType = _random.oneOf({1, 2});
    drawSettings();
    _component = std::make_unique<Component>(_machine, _random);
    _reference.watch(_machine, *_component);
    _reference.tell = tell;
    _agent = make(_machine, _reference);
  }

  std::string run(Counts& counts) {
    if (_random.chance(60)) start();  // before anything is written
    for (int i = _random.below(8); i > 0; --i) act();
    for (int steps = 15 + _random.below(45); steps > 0 && ok(); --steps) step();
    end();
    for (const Rotation kind :
         {byEndMark, byBareMark, bySettings, byDeletion, bySameName, byReplacing, namedInVain})
      _reference.counts.rotations[kind] = static_cast<uint64_t>(_component->rotations[kind]);
    _reference.counts.schedules = 1;
    _reference.counts.events = _component->events.size();
    _reference.counts.failures = !ok();
    counts.add(_reference.counts);
    return _reference.failure();
  }

 private:
  bool ok() const { return _reference.failure().empty(); }
  void say(const std::string& what) {
    if (_tell && !what.empty()) _tell(what);
  }

  void drawSettings() {
    _settings.readerLimit = _random.oneOf({1, 2, 3, 5, 8, 300});
    _settings.writerLimit = _random.oneOf({1, 2, 3, 5, 10, 100});
    _settings.consolidate = _random.chance(70);
    _settings.consolidateMinutes = _random.oneOf({1, 5});
  }

  void act() {
    const std::string did = _component->act(_running && _quietPasses >= 3);
    if (!did.empty()) say("component " + did);
  }

  void start() {
    if (_random.chance(30)) drawSettings();
    _machine.beginProcess();
    if (_random.chance(8)) _machine.killAt(1 + _random.below(12));
    say("agent starts: type " + std::to_string(_settings.serviceType) + ", reader limit " +
        std::to_string(_settings.readerLimit) + ", writer limit " +
        std::to_string(_settings.writerLimit) + (_settings.consolidate ? ", folding" : ""));
    _reference.processBegins();
    _running = true;
    _quietPasses = 0;
    _agent->start(_settings);
    if (_machine.killed()) killed("in its start");
  }

  void killed(const std::string& when) {
    say("agent is killed " + when);
    _running = false;
    _agent->kill();
  }

  void pass() {
    _machine.clock.advance(_random.oneOf({2000, 2000, 2000, 11000}));
    const uint64_t before = _reference.counts.batches;
    _component->beforePass();
    _reference.passBegins();
    say("agent passes");
    _agent->pass();
    _reference.passEnds(_machine.killed());
    if (_machine.killed()) {
      ++_reference.counts.kills;
      return killed("in a pass");
    }
    _reference.examine(_agent->ledger());
    _component->passed();
    _quietPasses = _reference.counts.batches == before ? _quietPasses + 1 : 0;
  }

  void passes(int number) {
    for (; number > 0 && _running && ok(); --number) pass();
  }

  // Kept from every kill until it has read the log that took another's place.
  void calm() {
    _reference.trouble(0);
    _machine.killAt(-1);
    for (int left = 120; _component->wantsCalm() && ok(); --left) {
      pass();
      _machine.clock.advance(_settings.consolidateMinutes * 20000);
      if (left == 0) _reference.fail("a log that took the place of another is not read");
    }
  }

  void step() {
    if (_component->wantsCalm()) return calm();
    const int drawn = _random.below(100);
    if (drawn < 45) {
      for (int i = _random.chance(25) ? 3 + _random.below(8) : 1; i > 0; --i) act();
    } else if (drawn < 52) {
      const std::string planned = _component->handOver();
      if (!planned.empty()) say("component " + planned);
    } else if (!_running) {
      if (_random.chance(60)) start();
    } else if (drawn < 78) {
      passes(1 + _random.below(3));
    } else if (drawn < 85) {
      passes(5 + _random.below(5));
    } else if (drawn < 91) {
      const int calls = 1 + _random.below(_random.oneOf({10, 40, 120}));
      _machine.killAt(calls);
      say("agent will be killed at its call " + std::to_string(calls) + " to the disk");
    } else if (drawn < 93) {
      _machine.killAt(0);
      ++_reference.counts.killsBetween;
      killed("between two passes");
    } else if (drawn < 95) {
      say("agent stops");
      ++_reference.counts.restarts;
      _agent->stop();
      _machine.killAt(0);
      _running = false;
    } else {
      const int batches = 1 + _random.below(_random.oneOf({3, 12}));
      _reference.trouble(batches);
      say("trouble with the next " + std::to_string(batches) + " batches");
    }
  }

  // The component falls silent, the server accepts, and everything that is owed must come.
  void end() {
    say("the end begins");
    _reference.trouble(0);
    const int limit = 150 + 2 * static_cast<int>(_component->events.size());
    bool over = false;
    for (int left = limit; ok() && left > -12; --left) {
      if (!_running) start();
      _machine.killAt(-1);
      const std::string did = _component->finish();
      if (did.size() > 1) say("component " + did);
      if (left < limit / 2 && !over) _component->giveUp();
      if (_running) pass();
      if (left % 4 == 0) _machine.clock.advance(_settings.consolidateMinutes * 60000);
      if (!over && did.empty() && _reference.missing().empty()) over = true, left = 0;
    }
    const std::string missing = _reference.missing();
    if (!missing.empty()) _reference.fail(missing);
  }

  Random _random;
  const std::function<void(const std::string&)>& _tell;
  Settings _settings;
  Reference _reference{_random, _settings};
  ModelMachine _machine{_reference};
  std::unique_ptr<Component> _component;
  std::unique_ptr<Forwarder> _agent;
  bool _running = false;
  int _quietPasses = 0;
};

}  // namespace

std::string runSchedule(uint64_t seed, const MakeForwarder& make, Counts& counts,
                        const std::function<void(const std::string&)>& tell) {
  return Schedule(seed, make, tell).run(counts);
}

std::string runSchedules(uint64_t first, uint64_t number, const MakeForwarder& make,
                         Counts& counts) {
  for (uint64_t seed = first; seed < first + number; ++seed) {
    const std::string failure = runSchedule(seed, make, counts);
    if (failure.empty()) continue;
    std::string text = "seed " + std::to_string(seed) + ": " + failure + "\n";
    Counts again;
    runSchedule(seed, make, again, [&](const std::string& line) { text += line + "\n"; });
    return text + "seed " + std::to_string(seed) + ": " + failure +
           "\nreplay: log_model --schedules 1 --seed " + std::to_string(seed);
  }
  return "";
}

}  // namespace korvane::log_model
