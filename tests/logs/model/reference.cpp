#include "tests/logs/model/reference.h"

#include "platform/paths.h"
#include "util/utf8.h"

namespace korvane::log_model {

namespace {

// A record's values next to what they should be. `time` is v3, `repeats` a5.
bool sameValues(const Record& record, const std::vector<std::string>& fields,
                const std::string& time, const std::string& repeats, const std::string& lastTime) {
  size_t at = 0;
  const auto next = [&](const std::string& name, const std::string& value) {
    if (value.empty()) return true;
    if (at == record.size() || record[at].first != name || record[at].second != value) return false;
    return ++at > 0;
  };
  const auto field = [&](size_t n) {
    return n == 3 ? time : n > fields.size() ? std::string() : fields[n - 1];
  };
  for (const size_t n : {2u, 3u, 1u})
    if (!next("v" + std::to_string(n), field(n))) return false;
  for (size_t n = 4; n <= 17; ++n)
    if (!next("v" + std::to_string(n), field(n))) return false;
  for (const char* const own : {"a1", "a2", "a3"})
    if (at < record.size() && record[at].first == own) ++at;
  if (!next("a4", "hidslog1rt") || !next("a5", repeats)) return false;
  if (repeats != "1" && !next("a6", lastTime.substr(0, 22))) return false;
  if (at < record.size() && repeats == "1" && record[at].first == "a6")
    ++at;
  else if (repeats == "1" && !time.empty())
    return false;
  for (size_t n = 18; n <= fields.size(); ++n)
    if (!next("v" + std::to_string(n), field(n))) return false;
  return at == record.size();
}

std::string withoutReplacements(std::string text) {
  for (size_t at; (at = text.find("\xEF\xBF\xBD")) != std::string::npos;) text.erase(at, 3);
  while (!text.empty() && text.back() == '\r') text.pop_back();
  return text;
}

std::string decoded(const Log& log, const std::string& bytes) {
  if (!log.utf16) return withoutReplacements(utf16ToUtf8(utf8ToUtf16(bytes)));
  std::u16string wide;
  for (size_t at = 0; at + 1 < bytes.size(); at += 2)
    wide += static_cast<char16_t>(static_cast<uint8_t>(bytes[at]) |
                                  static_cast<uint8_t>(bytes[at + 1]) << 8);
  return withoutReplacements(utf16ToUtf8(wide));
}

std::string textOf(const Record& record) {
  std::string text;
  for (const auto& [name, value] : record) text += " " + name + "=" + value;
  return text;
}

}  // namespace

void Counts::add(const Counts& more) {
  auto* const mine = &schedules;
  const auto* const theirs = &more.schedules;
  for (size_t i = 0; i <= static_cast<size_t>(&failures - &schedules); ++i) mine[i] += theirs[i];
  for (size_t i = 0; i < rotationKinds; ++i) rotations[i] += more.rotations[i];
}

std::string Counts::json(uint64_t seed) const {
  const std::pair<const char*, uint64_t> values[] = {
      {"seed", seed},           {"schedules", schedules},
      {"kills", kills},         {"kills_between_passes", killsBetween},
      {"restarts", restarts},   {"passes", passes},
      {"batches", batches},     {"answers_lost", lost},
      {"refused", refused},     {"dropped_by_server", dropped},
      {"events", events},       {"excluded", excluded},
      {"delivered", delivered}, {"again", again},
      {"summaries", summaries}, {"torn_lines_taken", pieces}};
  std::string text = "{";
  for (const auto& [name, value] : values)
    text += "\"" + std::string(name) + "\":" + std::to_string(value) + ",";
  text += "\"rotations\":{";
  for (size_t i = 0; i < rotationKinds; ++i)
    text += (i ? ",\"" : "\"") + std::string(nameOf(static_cast<Rotation>(i))) +
            "\":" + std::to_string(rotations[i]);
  return text + "},\"failures\":" + std::to_string(failures) + "}";
}

void Reference::watch(ModelMachine& machine, Component& component) {
  _machine = &machine;
  _component = &component;
}

void Reference::fail(const std::string& what) {
  if (_failure.empty()) _failure = what;
  if (tell) tell("FAILED: " + what);
}

// --- what the process looks at ---

void Reference::opened(const std::string& path) {
  if (path.ends_with("/IDS/ids.properties")) _looked.insert(_component->named());
}

void Reference::readToItsEnd(uint64_t identity) {
  Log* log = _inPass ? _component->byIdentity(identity) : nullptr;
  if (!log || !log->torn) return;
  log->torn->lookedAt = true;
  if (log->torn->event >= 0 && log->torn->looks + 1 >= kPatience)
    event(log->torn->event).may = true;
}

void Reference::removing(uint64_t identity, const std::string& how) {
  Log* log = _component->byIdentity(identity);
  if (!log) return;
  const std::string file = platform::fileNameOf(log->path);
  if (!log->marked) fail(file + " is " + how + " without its end mark");
  for (const int index : log->events)
    if (const Event& e = event(index); !e.acknowledged && !e.may)
      return fail(file + " is " + how + " before event " + e.fields[1] + " was delivered");
  log->removed = true;
  if (tell) tell("    agent: " + file + " is " + how);
}

void Reference::processBegins() {
  _looked.clear();
  for (Log& log : _component->logs)
    if (log.torn) log.torn->looks = 0, log.torn->lookedAt = false;
}

void Reference::passBegins() {
  ++counts.passes;
  _inPass = true;
  _arrived.clear();
}

void Reference::examine(const LedgerView& books) {
  const auto lost = [&](LossCause cause) { return books.totals[static_cast<size_t>(cause)].lines; };
  const uint64_t dropped = lost(LossCause::serverDropped) + lost(LossCause::serverRejected);
  if (!_droppedLines.allow(dropped))
    fail(std::to_string(dropped) + " lines are ledgered as dropped");
  for (const StreamAccount& account : books.accounts) {
    if (!account.closed() || account.ledgered != linesLost(books.totals))
      fail("the account does not close");
    if (!_acceptedLines.allow(account.delivered))
      fail(std::to_string(account.delivered) + " lines are counted as delivered");
  }
}

void Reference::passEnds(bool killed) {
  _inPass = false;
  _acceptedLines.passEnds(killed);
  _droppedLines.passEnds(killed);
  if (!killed) {
    for (const int log : _looked) _component->logs[static_cast<size_t>(log)].seen = true;
    _looked.clear();
    return;
  }
  for (const Part& part : _arrived)
    for (const int index : part.events) ++event(index).allowedAgain;
  for (size_t i = 0; i < _component->logs.size(); ++i) {
    const Log& log = _component->logs[i];
    if (log.marked && _component->allAcknowledged(log)) _leftByKill.insert(static_cast<int>(i));
  }
}

// --- what arrives ---

Answer Reference::draw() {
  if (_trouble == 0) return {};
  --_trouble;
  const int code = _settings.serviceType == 1 ? _random.oneOf({302, 400, 600, 300, 601})
                                              : _random.oneOf({429, 430, 500, 1});
  switch (_random.below(4)) {
    case 0:
      return {Outcome::answerLost, _random.oneOf({0, 28})};
    case 1:
      return {Outcome::notArrived, _random.oneOf({0, 28, 503})};
    case 2:
      return {};
    default:
      return {Outcome::answered, code};
  }
}

bool Reference::delivers(const Answer& answer) const {
  if (answer.outcome != Outcome::answered) return false;
  return answer.code == 0 ||
         (_settings.serviceType == 1 && (answer.code == 302 || answer.code == 600));
}

Answer Reference::take(const Batch& batch) {
  if (_machine->killed()) return {Outcome::notArrived, 0};
  const Answer answer = draw();
  const bool delivered = delivers(answer), lost = answer.outcome == Outcome::answerLost;
  ++counts.batches;
  if (tell) {
    std::string text = "    agent: a batch";
    for (const Record& record : batch)
      for (const auto& [name, value] : record)
        if (name == "v2" || (name == "a5" && value != "1"))
          text += (name == "a5" ? " x" : " ") + value;
    tell(text +
         (lost                                    ? ", the answer is lost"
          : delivered                             ? ", delivered"
          : answer.outcome == Outcome::notArrived ? ", does not arrive"
                                                  : ", refused") +
         " " + std::to_string(answer.code));
  }
  if (delivered)
    for (const Record& record : batch)
      for (const auto& [name, value] : record)
        if (name == "a5")
          (answer.code ? _droppedLines : _acceptedLines).inPass +=
              std::strtoull(value.c_str(), nullptr, 10);
  if (batch.empty()) fail("an empty batch");
  if (static_cast<int>(batch.size()) > _settings.writerLimit + 1)
    fail("a batch of " + std::to_string(batch.size()) + " records");
  for (const Record& record : batch) {
    Part part;
    if (!identify(record, part))
      fail("a record that nobody wrote:" + textOf(record));
    else if ((delivered || lost) && !part.events.empty())
      deliver(part, delivered);
  }
  if (lost)
    ++counts.lost;
  else if (!delivered)
    ++counts.refused;
  else if (answer.code)
    ++counts.dropped;
  return answer;
}

// What may be read of an event: its fields, and those of its line's parts that stand, or stood,
// without an end for long enough.
std::vector<Reference::Reading> Reference::readings(int index) {
  const Event& e = event(index);
  std::vector<Reading> all = {{e.fields, true}};
  if (!e.may) return all;
  const Log& log = _component->logs[static_cast<size_t>(e.log)];
  const auto add = [&](const Torn& torn) {
    if (torn.event != index) return;
    all.push_back({splitLine(decoded(log, torn.piece)), false});
    all.back().fields.resize(std::max<size_t>(3, all.back().fields.size()));
  };
  for (const Torn& torn : log.pieces) add(torn);
  if (log.torn && log.torn->looks + log.torn->lookedAt >= kPatience) add(*log.torn);
  return all;
}

// The events that a record stands for when `index` is the last of them, read as `reading`.
bool Reference::standsFor(const Record& record, int index, const Reading& reading, int covered,
                          Part& part) {
  const auto key = [](std::vector<std::string> of) {
    of[1].clear(), of[2].clear();
    while (!of.empty() && of.back().empty()) of.pop_back();
    return of;
  };
  if (covered > 1 && !(_settings.consolidate && event(index).folds)) return false;
  std::string recordsTime;
  for (const auto& [name, value] : record)
    if (name == "v3") recordsTime = value;
  part.events.clear();
  if (reading.whole) part.events.push_back(index);
  const std::string lastTime = reading.fields[2];
  std::string time = lastTime;
  for (int at = index - 1, left = covered; left > 1; --at) {
    if (at < 0) return false;
    if (event(at).log != event(index).log) continue;
    bool same = false, whole = false;
    for (const Reading& other : readings(at)) {
      if (key(other.fields) != key(reading.fields)) continue;
      // Of two readings with one key, the one that gives the record its time.
      if (!same || other.fields[2] == recordsTime) {
        time = other.fields[2];
        whole = other.whole;
      }
      same = true;
    }
    if (whole) part.events.push_back(at);
    if (same)
      --left;
    else if (!event(at).may)
      return false;
  }
  return sameValues(record, reading.fields, time, std::to_string(covered),
                    covered > 1 ? lastTime : "");
}

// False for a record that stands for nothing that was written.
bool Reference::identify(const Record& record, Part& part) {
  std::string sequence, repeats;
  for (const auto& [name, value] : record) {
    if (name == "v2") sequence = value;
    if (name == "a5") repeats = value;
  }
  const int index = std::atoi(sequence.c_str()) - 1, covered = std::atoi(repeats.c_str());
  if (covered < 1) return false;
  if (index >= 0 && index < static_cast<int>(_component->events.size()) &&
      standsFor(record, index, {event(index).fields, true}, covered, part))
    return true;
  Record plain;
  for (const auto& [name, value] : record)
    if (!withoutReplacements(value).empty()) plain.emplace_back(name, withoutReplacements(value));
  for (size_t torn = 0; torn < _component->events.size(); ++torn)
    for (const Reading& reading : readings(static_cast<int>(torn)))
      if (!reading.whole && standsFor(plain, static_cast<int>(torn), reading, covered, part)) {
        ++counts.pieces;
        return true;
      }
  return false;
}

void Reference::deliver(const Part& part, bool acknowledged) {
  if (acknowledged) _arrived.push_back(part);
  const int log = event(part.events[0]).log;
  _newest.resize(_component->logs.size(), -1);
  counts.summaries += part.events.size() > 1;
  for (auto at = part.events.rbegin(); at != part.events.rend(); ++at) {
    const int index = *at;
    Event& e = event(index);
    if (e.deliveries++ == 0) {
      ++counts.delivered;
      int& newest = _newest[static_cast<size_t>(log)];
      if (index < newest && !e.may)
        fail("event " + e.fields[1] + " comes behind later ones of its log");
      newest = std::max(newest, index);
      if (log < _newestLog && !e.may)
        fail("event " + e.fields[1] + " comes behind those of a later log");
      _newestLog = std::max(_newestLog, log);
    } else {
      ++counts.again;
      if (--e.allowedAgain < 0) fail("event " + e.fields[1] + " comes again without a reason");
    }
    if (acknowledged)
      e.acknowledged = true;
    else
      ++e.allowedAgain;
  }
}

// --- the account ---

std::vector<bool> Reference::demanded() const {
  const std::vector<Log>& logs = _component->logs;
  std::vector<bool> demand(logs.size());
  for (size_t i = 0; i < logs.size(); ++i) {
    if (logs[i].seen || static_cast<int>(i) == _component->named()) demand[i] = true;
    if (logs[i].may) demand[i] = false;
    if (demand[i] && logs[i].marked && !logs[i].markedLate && logs[i].next > static_cast<int>(i))
      demand[static_cast<size_t>(logs[i].next)] = true;
  }
  return demand;
}

std::string Reference::missing() {
  const std::vector<bool> demand = demanded();
  counts.excluded = 0;
  int last = -1;
  for (size_t i = 0; i < demand.size(); ++i)
    if (demand[i] && _component->logs[i].identity) last = static_cast<int>(i);
  for (size_t i = 0; i < demand.size(); ++i) {
    const Log& log = _component->logs[i];
    const std::string file = platform::fileNameOf(log.path);
    if (!demand[i]) {
      counts.excluded += log.events.size();
      continue;
    }
    for (const int index : log.events)
      if (const Event& e = event(index); !e.acknowledged && !e.may)
        return "event " + e.fields[1] + " of " + file + " never comes";
    if (log.marked && !log.markedLate && !log.gone && !log.removed && static_cast<int>(i) < last &&
        !_leftByKill.contains(static_cast<int>(i)))
      return "finished log " + file + " is never removed";
  }
  return "";
}

}  // namespace korvane::log_model
