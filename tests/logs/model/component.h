// The detection component of the model: it writes events and torn lines into real-time logs
// and hands over from log to log in every way that its settings, its end marks and the file
// system allow.
//
// It keeps the account of what it has written: every log that it made or named, every event, every
// unfinished line. A log that replaces another under the same path is a Log of its own.
#pragma once

#include <array>
#include <deque>
#include <optional>

#include "tests/logs/model/machine.h"

namespace korvane::log_model {

// The kinds of hand-over, as they are counted.
enum Rotation {
  byEndMark,    // an end mark that names the next log
  byBareMark,   // an end mark that names none
  bySettings,   // no end mark
  byDeletion,   // the component deletes the log that it leaves
  bySameName,   // an end mark, and the next log takes the path
  byReplacing,  // another file under the same path, or the same one emptied; no end mark
  namedInVain,  // a name in the settings whose log never comes
  rotationKinds,
};
const char* nameOf(Rotation kind);

struct Event {
  int log = 0;
  std::vector<std::string> fields;  // v1 ...
  bool folds = false;               // of a kind that may be folded
  bool may = false;                 // need not come: its line stood torn too long, or came too late
  int deliveries = 0;               // batches that arrived with it
  int allowedAgain = 0;             // deliveries that a kill or a lost answer excuses
  bool acknowledged = false;        // a batch with it was answered as delivered
};

// Passes that must have seen a line without an end before it may be taken as it stands.
constexpr int kPatience = 5;

// The part of a line that stands at a log's end without a line end.
struct Torn {
  int event = -1;     // or -1: an end mark
  std::string piece;  // bytes that stand there
  std::string rest;   // bytes that are still to come
  bool forGood = false;
  int looks = 0;  // passes of the present process that have read it, unchanged, to the log's end
  bool lookedAt = false;  // in the present pass
};

struct Log {
  std::string path;
  bool utf16 = false;
  uint64_t identity = 0;    // 0: not made yet
  bool bare = false;        // made, but without its first line yet
  bool marked = false;      // its end mark stands whole
  int next = -1;            // the log that its end mark names
  bool gone = false;        // removed, replaced or emptied by the component
  bool removed = false;     // by the agent
  bool seen = false;        // its name, by the agent, in the settings
  bool may = false;         // none of it need come
  bool markedLate = false;  // when the agent may have left it
  int supersededFor = 0;    // passes in which the settings named another one that has begun
  std::vector<int> events;
  std::optional<Torn> torn;
  std::vector<Torn> pieces;  // that stood long enough to be taken as lines
};

// The fields of a line, as a reader has to split it.
std::vector<std::string> splitLine(const std::string& line);

class Component {
 public:
  Component(ModelMachine& machine, Random& random);

  // Something that the component does between two of the agent's steps; a text for the schedule.
  // `settled`: an agent runs, and has found nothing to read in its last passes.
  std::string act(bool settled);
  // Plans a hand-over; act() does its steps one by one.
  std::string handOver();
  // Only what is planned, or torn and not left for good, is still done; empty when nothing
  // is left to do.
  std::string finish();
  void giveUp() { _plan.clear(); }
  // Called before each pass, and after each that was not killed.
  void beforePass();
  void passed();
  // A log was replaced by another that only a running agent can tell from it: it must not
  // be killed before it has read that.
  bool wantsCalm() const;

  bool allAcknowledged(const Log& log) const;
  int named() const { return _named; }
  Log* byIdentity(uint64_t identity);

  std::vector<Log> logs;  // in the order in which they were planned
  std::vector<Event> events;
  std::array<int, rotationKinds> rotations{};

 private:
  enum class Do { make, name, mark, change, write, tail, remove, await, replace };
  struct Action {
    Do what;
    int log;
    int next = -1;  // of a mark: the log that it names
  };

  int planLog(const std::string& path = "");
  std::string perform(const Action& action);
  Log& logAt(int index) { return logs[static_cast<size_t>(index)]; }
  const Log& logAt(int index) const { return logs[static_cast<size_t>(index)]; }
  Event& eventAt(int index) { return events[static_cast<size_t>(index)]; }
  const Event& eventAt(int index) const { return events[static_cast<size_t>(index)]; }
  void make(Log& log);
  std::string firstLine(const Log& log) const;
  std::string markerLine(const Log& log, const std::string& type, const std::string& next) const;
  void addLine(int log, int event, const std::string& line, bool torn);
  void setName(int log);
  std::string writeEvents(int log, int count);
  std::string goOn(int log, bool wholly);
  bool late(const Log& log) const { return log.supersededFor > 2; }
  bool held() const;
  int savedOffset() const;
  std::string replace(int log);
  std::string lineOf(const Event& event);
  int addEvent(int log);
  std::string bytes(const Log& log, const std::string& text) const;
  std::string now() const;

  ModelMachine& _machine;
  Random& _random;
  const bool _uniform, _crlf, _relative;
  const bool _waitsForTheAgent;  // names no log before the one named now was seen
  const int _utf16Percent, _uniformCount;
  std::deque<Action> _plan;
  int _writing = 0, _ahead = 0;  // the log being written, and the one at the end of the plan
  int _named = -1, _sequence = 0, _files = 0;
  int _heldFor = -1;  // a log that took another's place: nothing is added before the agent is in it
  bool _calm = false;
  int _waits = 0;
};

}  // namespace korvane::log_model
