#include "simulate/oracle/events.h"

#include <algorithm>

namespace korvane::simulation {

namespace {

constexpr size_t kFields = 49;

// 0 for anything but a decimal number that the account could hold.
int numberOf(const std::string& text) {
  if (text.empty() || text.size() > 9) return 0;
  if (text.find_first_not_of("0123456789") != std::string::npos) return 0;
  return std::stoi(text);
}

// One that is not there is empty.
std::string field(const Event& event, size_t index) {
  return index < event.fields.size() ? event.fields[index] : "";
}

bool folds(const std::string& type) {
  return type[0] != 'D' && type[0] != 'M' && type != "PMNT";
}

}  // namespace

int EventAccount::beginLog(const std::string& path) {
  _logs.push_back({path, {}, 0, false});
  return static_cast<int>(_logs.size()) - 1;
}

int EventAccount::add(int log, std::vector<std::string> fields) {
  const int number = count() + 1;
  fields[1] = std::to_string(number);
  _events.push_back({log, std::move(fields)});
  _logs[static_cast<size_t>(log)].events.push_back(number);
  return number;
}

void EventAccount::becameWhole(int number) {
  Event& e = event(number);
  if (!e.settled && !e.may) ++_unsettled;
  e.whole = true;
}

void EventAccount::excuse(int number) {
  Event& e = event(number);
  if (e.whole && !e.settled && !e.may) --_unsettled;
  e.may = true;
}

bool EventAccount::asWritten(const Part& record, int first, int last) {
  const Event& begin = event(first);
  for (int number = first + 1; number <= last; ++number) {
    const Event& next = event(number);
    if (next.log != begin.log || !folds(begin.fields[0])) return false;
    for (size_t i = 0; i < kFields; ++i)
      if (i != 1 && i != 2 && field(begin, i) != field(next, i)) return false;
  }
  const std::string lastTime = valueOf(record.pairs, "a6");
  if (first != last && lastTime != event(last).fields[2].substr(0, 22)) return false;
  for (size_t i = 0; i < kFields; ++i) {
    const std::string& text = i == 1 ? std::to_string(last) : field(begin, i);
    if (valueOf(record.pairs, "v" + std::to_string(i + 1)) != text) return false;
  }
  return true;
}

std::vector<int> EventAccount::sent(const std::vector<Part>& records) {
  std::vector<int> numbers;
  for (const Part& record : records) {
    const int last = numberOf(valueOf(record.pairs, "v2"));
    const int covered = numberOf(valueOf(record.pairs, "a5"));
    const int first = last - covered + 1;
    if (last < 1 || last > count() || covered < 1 || first < 1) {
      _findings.add("events: a record that nobody wrote, v2=" + valueOf(record.pairs, "v2") +
                    " a5=" + valueOf(record.pairs, "a5"));
      continue;
    }
    const std::string what =
        "event " + std::to_string(first) + (first == last ? "" : " to " + std::to_string(last));
    if (!event(last).may && !asWritten(record, first, last))
      _findings.add("events: " + what + " is not as it was written:\n" + record.payload);
    for (int number = first; number <= last; ++number) {
      const Event& e = event(number);
      if (e.settled && !e.again)
        _findings.add("events: " + what + " is sent again after an answer that settled it");
      if (!numbers.empty() && number <= numbers.back() && event(numbers.back()).log == e.log)
        _findings.add("events: " + what + " stands behind event " + std::to_string(numbers.back()) +
                      " in one batch");
      numbers.push_back(number);
    }
  }
  return numbers;
}

void EventAccount::settle(const std::vector<int>& numbers) {
  for (const int number : numbers) {
    Event& e = event(number);
    if (e.whole && !e.settled && !e.may) --_unsettled;
    e.settled = true;
  }
  for (const int number : numbers) {
    EventLog& log = _logs[static_cast<size_t>(event(number).log)];
    const auto end = std::lower_bound(log.events.begin(), log.events.end(), number) + 1;
    // What comes before is behind the agent now.
    for (auto it = log.events.begin(); it != end; ++it) event(*it).again = false;
    const auto reached = static_cast<size_t>(end - log.events.begin());
    for (; log.firstUnsettled < reached; ++log.firstUnsettled) {
      const int other = log.events[log.firstUnsettled];
      if (!event(other).settled && !event(other).may)
        _findings.add("events: event " + std::to_string(other) + " was passed over, event " +
                      std::to_string(number) + " of the same log is delivered");
    }
  }
  _lastBatches[1] = std::move(_lastBatches[0]);
  _lastBatches[0] = numbers;
}

void EventAccount::forgotLastBatches() {
  for (const auto& batch : _lastBatches)
    for (const int number : batch) event(number).again = true;
}

void EventAccount::mayComeAgain(bool removed) {
  for (const EventLog& log : _logs)
    if (log.gone == removed)
      for (const int number : log.events) event(number).again = true;
}

void EventAccount::forgotAll() {
  forgotLastBatches();
  mayComeAgain(false);
}

void EventAccount::forgotRemoved() {
  mayComeAgain(true);
}

void EventAccount::excuseFormerLogs() {
  for (size_t i = 0; i + 1 < _logs.size(); ++i)
    for (const int number : _logs[i].events) excuse(number);
}

void EventAccount::look(const std::set<std::string>& existing) {
  for (EventLog& log : _logs) {
    if (log.gone || existing.count(log.path)) continue;
    log.gone = true;
    for (const int number : log.events)
      if (const Event& e = event(number); !e.settled && !e.may) {
        _findings.add("events: " + log.path + " was removed with event " + std::to_string(number) +
                      ", which nobody has");
        break;
      }
  }
}

std::string EventAccount::listUnsettled() {
  std::string list;
  int listed = 0;
  for (int number = 1; number <= count() && listed < 10; ++number)
    if (const Event& e = event(number); e.whole && !e.settled && !e.may) {
      list += " " + std::to_string(number) + " (" + _logs[static_cast<size_t>(e.log)].path + ")";
      ++listed;
    }
  return list;
}

}  // namespace korvane::simulation
