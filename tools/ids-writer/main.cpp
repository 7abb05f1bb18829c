// korvane-ids-writer: stands in for the IDS component's event writer. It writes real-time event
// logs while the agent reads them, and answers what the agent hands over to the component;
// docs/file-formats.md describes both. Its last line is a JSON object with what it did.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "ids-writer/event_maker.h"
#include "ids-writer/ids_files.h"
#include "ids-writer/requests.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/program_entry.h"
#include "platform/threading.h"
#include "util/errors.h"

namespace {

using namespace korvane;

// The pause between two bursts when a rate is asked for.
constexpr uint32_t kTickMs = 20;
// How many lines go into one write when no rate is asked for.
constexpr uint64_t kBurst = 256;
// How often requests of the agent are looked for.
constexpr int64_t kRequestsMs = 100;

volatile std::sig_atomic_t stopRequested = 0;
void requestStop(int) {
  stopRequested = 1;
}

struct Options {
  std::string installRoot;
  std::string encoding = "utf-8";
  std::string answer = "apply";
  uint64_t requests = 0;
  bool serve = false;
  uint64_t events = 1000;
  uint64_t rate = 0;
  uint64_t rotate = 0;
  uint64_t seed = 1;
  uint64_t startSequence = 1;
  uint32_t repeatPercent = 0;
  uint32_t tornPercent = 0;
  uint64_t junkEvery = 0;
  bool dontWait = false;
  bool finish = false;
};

// Answers the agent's requests, looking for them now and then.
class Answerer {
 public:
  Answerer(platform::Platform& system, const Options& options)
      : _clock(system.clock),
        _wanted(options.requests),
        _requests(system, platform::joinPath(system.files, {options.installRoot, "IDS"}),
                  ids_writer::parseAnswer(options.answer).value_or(ids_writer::Answer())) {}

  void look() {
    const int64_t now = _clock.monotonicMs();
    if (now < _next) return;
    _next = now + kRequestsMs;
    _answered += static_cast<uint64_t>(_requests.answerPending());
  }
  bool done() const { return _wanted > 0 && _answered >= _wanted; }
  uint64_t answered() const { return _answered; }

 private:
  platform::Clock& _clock;
  const uint64_t _wanted;
  ids_writer::Requests _requests;
  int64_t _next = 0;
  uint64_t _answered = 0;
};

nlohmann::json serve(platform::Platform& system, const Options& options) {
  Answerer answerer(system, options);
  const auto never = system.threading.createEvent(true, false);
  while (stopRequested == 0 && !answerer.done()) {
    answerer.look();
    never->wait(kTickMs);
  }
  return {{"requests", answerer.answered()}};
}

class Writer {
 public:
  Writer(platform::Platform& system, const Options& options)
      : _system(system),
        _options(options),
        _answerer(system, options),
        _files(system, options.installRoot,
               options.encoding == "utf-16" ? ids_writer::Encoding::utf16
                                            : ids_writer::Encoding::utf8),
        _maker(options.seed, options.repeatPercent),
        _stop(system.threading.createEvent(true, false)) {}

  void run() {
    const int64_t started = _system.clock.monotonicMs();
    while (!done()) {
      _answerer.look();
      const uint64_t burst = burstAt(_system.clock.monotonicMs() - started);
      if (burst > 0) writeBurst(burst);
      if (_options.rotate > 0 && _inFile >= _options.rotate) rotate();
      if (_options.rate > 0 && !done()) _stop->wait(kTickMs);
    }
    if (_options.finish) _files.handOver();
  }

  nlohmann::json summary() const {
    return {{"files", _files.made()},
            {"events", _written},
            {"firstSequence", _written > 0 ? _options.startSequence : 0},
            {"lastSequence", _written > 0 ? _options.startSequence + _written - 1 : 0},
            {"repeated", _maker.repeated()},
            {"junk", _junk},
            {"bytes", _files.bytes()},
            {"handOversHeld", _held},
            {"requests", _answerer.answered()},
            {"currentLog", _files.currentLog()}};
  }

 private:
  bool done() const {
    return stopRequested != 0 || (_options.events > 0 && _written >= _options.events);
  }

  uint64_t burstAt(int64_t elapsedMs) const {
    uint64_t burst = kBurst;
    if (_options.rate > 0) {
      const uint64_t owed = static_cast<uint64_t>(elapsedMs) * _options.rate / 1000 + 1;
      burst = owed > _written ? owed - _written : 0;
    }
    if (_options.events > 0) burst = std::min(burst, _options.events - _written);
    if (_options.rotate > _inFile) burst = std::min(burst, _options.rotate - _inFile);
    return std::min<uint64_t>(burst, 4096);
  }

  void writeBurst(uint64_t count) {
    std::string lines;
    for (uint64_t i = 0; i < count; ++i) {
      const std::string line =
          _maker.next(_options.startSequence + _written, _system.clock.wallMs());
      const bool torn = (_written * 37 + 11) % 100 < _options.tornPercent;
      lines += torn ? line.substr(0, line.size() / 2) : line + "\n";
      ++_written;
      ++_inFile;
      if (torn) {
        _files.append(lines);
        lines = line.substr(line.size() / 2) + "\n";
      }
      if (_options.junkEvery == 0 || _written % _options.junkEvery != 0) continue;
      lines += "this line is no event\n";
      ++_junk;
    }
    _files.append(lines);
  }

  void rotate() {
    if (!_options.dontWait && !_files.mayHandOver()) {
      ++_held;
      if (_options.rate == 0) _stop->wait(kTickMs);
      return;
    }
    _files.handOver();
    _inFile = 0;
  }

  platform::Platform& _system;
  const Options& _options;
  Answerer _answerer;
  ids_writer::IdsFiles _files;
  ids_writer::EventMaker _maker;
  std::unique_ptr<platform::Event> _stop;  // never set: what the pauses wait on
  uint64_t _written = 0;
  uint64_t _inFile = 0;
  uint64_t _held = 0;
  uint64_t _junk = 0;
};

void declare(CLI::App& app, Options& options) {
  app.add_option("--install-root", options.installRoot, "folder that holds IDS and IPS")
      ->required();
  app.add_option("--events", options.events, "number of events; 0: run until a signal");
  app.add_option("--rate", options.rate, "events per second; 0: as fast as possible");
  app.add_option("--rotate", options.rotate, "minimum number of events per log; 0: a single log");
  app.add_option("--encoding", options.encoding)->check(CLI::IsMember({"utf-8", "utf-16"}));
  app.add_option("--repeat", options.repeatPercent, "percent of events that repeat the one before")
      ->check(CLI::Range(0, 100));
  app.add_option("--torn", options.tornPercent, "percent of lines written in two pieces")
      ->check(CLI::Range(0, 100));
  app.add_option("--junk", options.junkEvery,
                 "a line that is no event behind every so many events; 0: none");
  app.add_option("--seed", options.seed);
  app.add_option("--start-sequence", options.startSequence, "sequence number of the first event");
  app.add_flag("--dont-wait", options.dontWait,
               "rotate even while the agent is still reading an earlier log");
  app.add_flag("--serve", options.serve,
               "write no events, only answer the agent's requests until a signal");
  app.add_option("--requests", options.requests, "with --serve: exit after this many requests");
  app.add_option("--answer", options.answer,
                 "how to answer requests that do not specify it: apply, refuse CODE TEXT, "
                 "no-code, no-message, silent")
      ->check([](const std::string& text) {
        return ids_writer::parseAnswer(text) ? "" : "no answer: " + text;
      });
  app.add_flag("--finish", options.finish, "end the last log with an end marker");
}

}  // namespace

int korvane::programMain(const std::vector<std::string>& arguments) {
  Options options;
  CLI::App app("A stand-in for the IDS component's event writer.", "korvane-ids-writer");
  declare(app, options);
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  std::signal(SIGTERM, requestStop);
  std::signal(SIGINT, requestStop);
  platform::Platform& system = platform::current();
  try {
    if (options.serve) {
      std::cout << serve(system, options).dump() << std::endl;
      return 0;
    }
    Writer writer(system, options);
    writer.run();
    std::cout << writer.summary().dump() << std::endl;
  } catch (const FileError& error) {
    std::cerr << "korvane-ids-writer: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
