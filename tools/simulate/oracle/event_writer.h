// The detection component (docs/file-formats.md): it writes numbered events into real-time logs,
// hands over from log to log, and answers the requests for a policy or for settings.
//
// What it does is drawn from its seed and from the times at which step() is called, nothing else.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulate/oracle/events.h"

namespace korvane::simulation {

// The machine's disk. What the component writes is never lost while the machine runs; `replace`
// is atomic. A power cut may take what was not on the disk: see EventWriter::powerCut.
class DiskForWriter {
 public:
  virtual ~DiskForWriter() = default;
  virtual void append(const std::string& path, const std::string& bytes) = 0;
  virtual void replace(const std::string& path, const std::string& bytes) = 0;  // creates it too
  virtual void remove(const std::string& path) = 0;
  virtual std::optional<std::string> read(const std::string& path) = 0;
};

struct WriterPlan {
  int mostEvents = 400;         // of the episode
  int64_t mostPauseMs = 60000;  // between bursts
  int longestBurst = 12;
};

class EventWriter {
 public:
  // `root` is the installation root: "/opt/korvane".
  EventWriter(uint64_t seed, std::string root, EventAccount& account, const WriterPlan& plan = {});

  // Makes the settings and the first log; before the agent's first start.
  void install(DiskForWriter& disk);
  // To be called about once a second, and after long pauses too. Gives when it has something to
  // do next: before, a call does nothing but answer requests.
  int64_t step(int64_t nowMs, DiskForWriter& disk);
  // No further event and no hand-over; what is torn or begun is finished, requests are answered.
  void quiet() { _quiet = true; }

  const std::map<std::string, int>& counts() const { return _counts; }  // what it did, by name

 private:
  struct Torn {
    int event = 0;  // 0: an end mark
    std::string rest;
    int64_t since = 0;
  };
  void beginLog(DiskForWriter& disk);
  void nameLog(DiskForWriter& disk);
  void writeEvent(int64_t nowMs, DiskForWriter& disk);
  void finishTorn(int64_t nowMs, DiskForWriter& disk);
  void handOver(int64_t nowMs, DiskForWriter& disk);
  bool agentIsInTheLog(const std::string& pointer) const;
  void answerRequests(DiskForWriter& disk);

  Random _random;
  const std::string _root;
  EventAccount& _account;
  const WriterPlan _plan;
  std::string _path;  // of the log that is being written
  int _log = -1, _files = 0;
  bool _wide = false, _crlf = false, _quiet = false;
  bool _mustBeSeen = false;  // the settings alone name the log: no hand-over before it is read
  std::optional<Torn> _torn;
  int64_t _next = 0;
  std::map<std::string, std::string> _settings, _answered;
  std::map<std::string, int> _counts;
};

}  // namespace korvane::simulation
