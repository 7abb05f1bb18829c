// The account of events: what the detection component wrote, and what became of each.
//
// An event's number is its sequence number, from 1, over all logs. It is settled when an answer
// that disposes of it (no code, 302 or 600) has reached the agent. Afterwards it must not be sent
// again, unless a kill or a fault of the disk may have cost the agent its memory of that. What
// stands before a settled event in its log must be settled too: so nothing is lost or overtaken.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "simulate/oracle/findings.h"
#include "simulate/oracle/message.h"

namespace korvane::simulation {

struct Event {
  int log = 0;
  std::vector<std::string> fields;  // v1 ...
  bool whole = false;               // its line stands in the log with its end
  bool may = false;      // need not come: its line stood torn for so long that it may be two
  bool settled = false;  // once
  bool again = false;    // may be sent again, although settled
};

struct EventLog {
  std::string path;
  std::vector<int> events;    // numbers, in the order of their lines
  size_t firstUnsettled = 0;  // index into events
  bool gone = false;          // removed by the agent
};

class EventAccount {
 public:
  explicit EventAccount(Findings& findings) : _findings(findings) {}

  int beginLog(const std::string& path);
  // Gives the number, which stands in fields[1] then.
  int add(int log, std::vector<std::string> fields);
  Event& event(int number) { return _events.at(static_cast<size_t>(number) - 1); }
  int count() const { return static_cast<int>(_events.size()); }
  std::vector<EventLog>& logs() { return _logs; }

  // A batch on the wire. Every record must be a known event, or a run of equal ones, as it was
  // written, in order, and not settled before. Gives the numbers.
  std::vector<int> sent(const std::vector<Part>& records);
  // The answer that disposes of them has reached the agent.
  void settle(const std::vector<int>& numbers);
  // The agent may have forgotten how far it was: by its last batches, or in every log that is
  // still there, or in those too whose removal a power cut has undone.
  void forgotLastBatches();
  void forgotAll();
  void forgotRemoved();
  // All logs but the newest may be unknown to the agent from now on.
  void excuseFormerLogs();

  // Logs that the agent removed: everything in them must be settled.
  void look(const std::set<std::string>& existing);
  int unsettled() const { return _unsettled; }  // of the whole ones that must come
  std::string listUnsettled();
  void becameWhole(int number);
  void excuse(int number);

 private:
  void mayComeAgain(bool removed);
  bool asWritten(const Part& record, int first, int last);

  Findings& _findings;
  std::vector<Event> _events;
  std::vector<EventLog> _logs;
  std::vector<int> _lastBatches[2];
  int _unsettled = 0;
};

}  // namespace korvane::simulation
