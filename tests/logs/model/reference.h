// The reference: what an agent that forwards as promised must deliver, may deliver and must
// leave alone.
//
// Which logs must come. A log whose name the agent saw, and a log that the end mark of such a log
// names. The agent has seen a name that stood in ids.properties when its process opened that file,
// as soon as a pass has ended after it without a kill; it stays seen forever. The log that
// ids.properties names for good is seen in the end. Not demanded:
// - a log that was handed over before the agent's first start, and any other whose name
//   stood nowhere when the agent looked (the component handed over twice between two looks,
//   with end marks that name nothing);
// - a log that the component deleted before all of it was delivered (a name without a log
//   is passed by);
// - an event whose line stood torn at the log's end through five passes that read up to there: it
//   may be taken as it stands, or lose its rest.
// - what the component adds to a log (events, an end mark) more than two passes after the settings
//   named another one that has begun: the agent may have left it.
// Every other event of such a log comes, with its exact values, each log's in their order and one
// log after another. A line that has no end may come only after the five passes, counted afresh by
// each process; rejected lines, end marks and what was never written do not come.
//
// Repeats. Equal neighbours (but for v2 and v3) of a kind that may be folded come one by
// one or as summaries: a5 counts neighbours that end with the one that v2 names, v3 is the
// first one's, a6 the last one's.
//
// Again. A batch whose answer was lost, and one that arrived in a pass that was killed, may come
// once more for each time that this happened. Nothing else comes twice: not by an orderly stop, not
// by a kill between two passes, not by a refused batch, and an open run is not an exception, since
// the read position stands before its first repeat that has not come.
//
// Files. The agent removes a log only when its end mark stands and all of it was answered
// as delivered (302 and 600 are such answers over HTTPS, and only 0 over the pipe). A
// finished log that was followed by another must be gone in the end, but for one that was
// finished in a pass that was killed.
//
// Accounts. After every pass the agent's account closes, and what it says was delivered, and dropped on
// the server's word, is what was answered so; only of a pass that was killed either may be true.
//
// Not modelled: disks that fail or lose what was not flushed, logs beyond 2 GiB, overlong
// lines, other log types.
#pragma once

#include <functional>

#include "tests/logs/model/component.h"

namespace korvane::log_model {

struct Counts {
  uint64_t schedules = 0, kills = 0, killsBetween = 0, restarts = 0, passes = 0, batches = 0,
           lost = 0, refused = 0, dropped = 0, events = 0, delivered = 0, again = 0, summaries = 0,
           pieces = 0, excluded = 0, failures = 0;
  std::array<uint64_t, rotationKinds> rotations{};
  void add(const Counts& more);
  std::string json(uint64_t seed) const;  // one object, one line
};

class Reference final : public Receiver, public DiskWatch {
 public:
  Reference(Random& random, Settings& settings) : _random(random), _settings(settings) {}
  void watch(ModelMachine& machine, Component& component);

  Answer take(const Batch& batch) override;
  void opened(const std::string& path) override;
  void readToItsEnd(uint64_t identity) override;
  void removing(uint64_t identity, const std::string& how) override;

  void processBegins();
  void passBegins();
  void passEnds(bool killed);
  // After a pass that was not killed.
  void examine(const LedgerView& books);
  // The next answers are drawn from all that can go wrong.
  void trouble(int batches) { _trouble = batches; }

  // What is still to come, empty when nothing is.
  std::string missing();
  const std::string& failure() const { return _failure; }
  void fail(const std::string& what);

  Counts counts;
  std::function<void(const std::string&)> tell;  // for the schedule in words; may be empty

 private:
  // Lines that were handed over: in passes that ended, and in those that were killed.
  struct Lines {
    uint64_t sure = 0, perhaps = 0, inPass = 0;
    void passEnds(bool killed) { (killed ? perhaps : sure) += std::exchange(inPass, 0); }
    bool allow(uint64_t lines) const { return lines >= sure && lines <= sure + perhaps; }
  };
  struct Part {
    std::vector<int> events;  // the last one first
  };
  Answer draw();
  bool delivers(const Answer& answer) const;
  bool identify(const Record& record, Part& part);
  struct Reading {
    std::vector<std::string> fields;
    bool whole = false;
  };
  std::vector<Reading> readings(int index);
  bool standsFor(const Record& record, int index, const Reading& reading, int covered, Part& part);
  void deliver(const Part& part, bool acknowledged);
  std::vector<bool> demanded() const;
  Event& event(int index) { return _component->events[static_cast<size_t>(index)]; }

  Random& _random;
  const Settings& _settings;
  ModelMachine* _machine = nullptr;
  Component* _component = nullptr;
  std::string _failure;
  int _trouble = 0;
  bool _inPass = false;
  std::set<int> _looked;       // names that the process saw, not yet for good
  std::vector<Part> _arrived;  // in this pass, and were answered
  std::vector<int> _newest;    // the newest event that came, by log
  int _newestLog = 0;
  Lines _acceptedLines, _droppedLines;
  std::set<int> _leftByKill;  // finished logs that a killed pass may have left
};

}  // namespace korvane::log_model
