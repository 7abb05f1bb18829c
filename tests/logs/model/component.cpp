#include "tests/logs/model/component.h"

#include <algorithm>
#include <cstring>

#include "platform/paths.h"
#include "util/utf8.h"

namespace korvane::log_model {

namespace {

constexpr int kMostLogs = 7, kMostEvents = 40;

const char* const kTypes[] = {"TFIL", "TNET", "PREG", "ACRE", "PSET", "PMNT", "DSTA", "MSTA"};
const char* const kTexts[] = {"",       "x",       "two words", "a,b",         "say \"yes\"",
                              "\"",     "h\u00e4", "\u65e5",    "\U0001f600b", " blank ",
                              "k=v;#1", "4711",    "",          "c:\\w\\x.y",  ",,"};

std::string padded(int number, int width) {
  const std::string text = std::to_string(number);
  const auto missing = std::max<size_t>(static_cast<size_t>(width), text.size()) - text.size();
  return std::string(missing, '0') + text;
}

std::string quoted(const std::string& field) {
  if (field.find_first_of(",\"") == std::string::npos) return field;
  std::string out = "\"";
  for (const char c : field) out += c == '"' ? "\"\"" : std::string(1, c);
  return out + "\"";
}

}  // namespace

const char* nameOf(Rotation kind) {
  static const char* const names[] = {"end_mark",  "bare_mark", "settings",     "deletion",
                                      "same_name", "replacing", "named_in_vain"};
  return names[kind];
}

std::vector<std::string> splitLine(const std::string& line) {
  std::vector<std::string> fields;
  size_t begin = 0, quotes = 0;
  size_t pairs = static_cast<size_t>(std::count(line.begin(), line.end(), '"')) & ~size_t{1};
  for (size_t at = 0; at <= line.size(); ++at) {
    if (at < line.size() && line[at] == '"' && quotes < pairs) ++quotes;
    if (at < line.size() && (line[at] != ',' || quotes % 2)) continue;
    std::string field = line.substr(begin, at - begin);
    if (field.size() > 1 && field.front() == '"' && field.back() == '"') {
      field = field.substr(1, field.size() - 2);
      for (size_t twin = 0; (twin = field.find("\"\"", twin)) != std::string::npos; ++twin)
        field.erase(twin, 1);
    }
    fields.push_back(field);
    begin = at + 1;
  }
  return fields;
}

Component::Component(ModelMachine& machine, Random& random)
    : _machine(machine),
      _random(random),
      _uniform(random.chance(25)),
      _crlf(random.chance(10)),
      _relative(random.chance(50)),
      _waitsForTheAgent(random.chance(60)),
      _utf16Percent(random.oneOf({0, 30, 100})),
      _uniformCount(1 + random.below(8)) {
  setName(planLog());
  if (random.chance(80))
    make(logs[0]);
  else
    _plan.push_back({Do::make, 0});
}

std::string Component::now() const {
  return "2026-11-21 03:" + padded(_sequence / 1000 % 60, 2) + ":" +
         padded(_sequence / 20 % 50, 2) + "." + padded(_sequence * 37 % 1000, 3);
}

std::string Component::bytes(const Log& log, const std::string& text) const {
  if (!log.utf16) return text;
  const std::u16string wide = utf8ToUtf16(text);
  std::string out;
  for (const char16_t unit : wide) {
    out += static_cast<char>(unit & 0xFF);
    out += static_cast<char>(unit >> 8);
  }
  return out;
}

int Component::planLog(const std::string& path) {
  Log log;
  log.path = path.empty()
                 ? _machine.installRoot() + "/IDS/logs/KAVRTEvent-" + padded(++_files, 6) + ".csv"
                 : path;
  log.utf16 = _random.chance(_utf16Percent);
  logs.push_back(log);
  return static_cast<int>(logs.size()) - 1;
}

void Component::setName(int log) {
  _named = log;
  const std::string& path = logAt(log).path;
  const std::string text =
      _relative && _random.chance(70) ? "../logs/" + platform::fileNameOf(path) : path;
  _machine.put(_machine.installRoot() + "/IDS/ids.properties",
               "# settings\nids.service.eventfile.name=../logs/other.csv\n"
               "ids.service.rteventfile.name=" +
                   text + "\n");
}

std::string Component::markerLine(const Log& log, const std::string& type,
                                  const std::string& next) const {
  return bytes(log,
               type + ",0," + now() + (next.empty() ? "" : "," + next) + (_crlf ? "\r\n" : "\n"));
}

std::string Component::firstLine(const Log& log) const {
  return (log.utf16 ? "\xFF\xFE" : "") + markerLine(log, "MSOF", "");
}

// Sometimes in two steps, with the first bytes alone at first.
void Component::make(Log& log) {
  const std::string first = firstLine(log);
  log.bare = !_uniform && _random.chance(20);
  log.identity = _machine.put(
      log.path, log.bare ? first.substr(0, static_cast<size_t>(_random.below(4))) : first);
}

int Component::addEvent(int log) {
  Log& to = logAt(log);
  Event event;
  event.log = log;
  const Event* last = to.events.empty() ? nullptr : &eventAt(to.events.back());
  const std::string sequence = _uniform ? padded(++_sequence, 6) : std::to_string(++_sequence);
  if (last && _random.chance(45)) {
    event.fields = last->fields;
  } else {
    const int count = _uniform ? 8 : _random.oneOf({3, 4, 9, 17, 18, 24});
    event.fields = {kTypes[_random.below(8)], "", ""};
    while (static_cast<int>(event.fields.size()) < count)
      event.fields.push_back(_uniform ? padded(_random.below(100), 4) : kTexts[_random.below(15)]);
  }
  event.fields[1] = sequence;
  event.fields[2] = now();
  const std::string& type = event.fields[0];
  event.folds = type[0] != 'D' && type[0] != 'M' && type != "PMNT";
  events.push_back(event);
  to.events.push_back(static_cast<int>(events.size()) - 1);
  return to.events.back();
}

std::string Component::lineOf(const Event& event) {
  std::string line;
  for (const std::string& field : event.fields) line += (line.empty() ? "" : ",") + quoted(field);
  return line;
}

// Writes the line, or a part of it.
void Component::addLine(int log, int event, const std::string& line, bool torn) {
  Log& to = logAt(log);
  if (event >= 0 && late(to)) eventAt(event).may = true;
  if (event < 0 && late(to)) to.markedLate = true;
  if (!torn) return _machine.append(to.path, line);
  const size_t cut = 1 + static_cast<size_t>(_random.below(static_cast<int>(line.size()) - 1));
  Torn left;
  left.event = event;
  left.piece = line.substr(0, cut);
  left.rest = line.substr(cut);
  left.forGood = event >= 0 && _plan.empty() && _random.chance(12);
  _machine.append(to.path, left.piece);
  if (left.forGood) eventAt(event).may = true;
  to.torn = left;
}

std::string Component::writeEvents(int log, int count) {
  Log& to = logAt(log);
  for (int i = 0; i < count; ++i) {
    const int event = addEvent(log);
    const bool torn = i == count - 1 && _random.chance(20);
    addLine(log, event, bytes(to, lineOf(eventAt(event)) + (_crlf ? "\r\n" : "\n")), torn);
  }
  return "writes " + std::to_string(count) + " events up to " + std::to_string(_sequence) +
         (!to.torn ? ""
                   : ", the last one torn behind " + std::to_string(to.torn->piece.size()) +
                         " bytes" + (to.torn->forGood ? " for good" : ""));
}

std::string Component::goOn(int log, bool wholly) {
  Log& to = logAt(log);
  Torn& torn = *to.torn;
  if (torn.looks >=
      kPatience) {  // it may have been taken as a line, and the rest must not look like two
    to.pieces.push_back(torn);
    wholly = true;
  }
  if (!wholly && torn.rest.size() > 1 && _random.chance(40)) {
    const size_t more =
        1 + static_cast<size_t>(_random.below(static_cast<int>(torn.rest.size()) - 1));
    _machine.append(to.path, torn.rest.substr(0, more));
    const size_t unit = to.utf16 ? 2 : 1;
    // Half a UTF-16 unit more shows nothing new.
    if ((torn.piece.size() + more) / unit != torn.piece.size() / unit) torn.looks = 0;
    torn.piece += torn.rest.substr(0, more);
    torn.rest.erase(0, more);
    return "writes " + std::to_string(more) + " bytes more of a torn line";
  }
  if (late(to)) {
    to.markedLate = true;
    if (torn.event >= 0) eventAt(torn.event).may = true;
  }
  _machine.append(to.path, torn.rest);
  if (torn.event < 0) to.marked = true;
  to.torn.reset();
  return "writes the rest of a torn line";
}

// Offset in the agent's pointer file.
int Component::savedOffset() const {
  const std::string pointer =
      _machine.content(_machine.installRoot() + "/IPS/hidslog1rtfilepointer");
  int32_t offset = 0;
  if (pointer.size() >= 1029) std::memcpy(&offset, pointer.data() + 1025, 4);
  return offset;
}

bool Component::held() const {
  if (_heldFor < 0) return false;
  const Log& log = logAt(_heldFor);
  if (_calm) return !allAcknowledged(log);
  return savedOffset() > static_cast<int>(_machine.size(log.path));
}

bool Component::wantsCalm() const {
  return _calm && held();
}

std::string Component::handOver() {
  if (static_cast<int>(logs.size()) >= kMostLogs) return "";
  for (const Action& action : _plan)
    if (action.what == Do::replace) return "";
  const int old = _plan.empty() ? _writing : _ahead;
  const int written = static_cast<int>(logAt(old).events.size());
  if (!_plan.empty())
    _plan.push_back({Do::write, old});
  else if (_uniform && written < _uniformCount)
    return "";
  int kind = _random.below(rotationKinds);
  if (logAt(old).torn) kind = bySettings;  // left for good
  if (kind == bySameName && _machine.reuseIdentities) kind = byEndMark;
  ++rotations[static_cast<size_t>(kind)];
  _ahead = old;
  const auto plan = [&](const std::vector<Action>& actions) {
    _plan.insert(_plan.end(), actions.begin(), actions.end());
  };
  if (kind == byReplacing) {
    plan({{Do::await, old}, {Do::replace, old}});
  } else if (kind == namedInVain) {
    plan({{Do::name, planLog()}});
  } else if (kind == bySameName) {
    plan({{Do::mark, old, _random.chance(50) ? old : -1}, {Do::await, old}, {Do::replace, old}});
  } else {
    const int next = _ahead = planLog();
    const Action make{Do::make, next}, name{Do::name, next}, change{Do::change, next},
        write{Do::write, next}, mark{Do::mark, old, kind == byEndMark ? next : -1};
    const std::vector<Action> marked[] = {{make, name, mark, change},
                                          {name, {Do::write, old}, make, mark, change},
                                          {name, mark, make, change},
                                          {make, mark, change, write, name},
                                          {mark, make, change, write, name}};
    const std::vector<Action> unmarked[] = {
        {make, name, change}, {name, make, change}, {make, change, write, name}};
    const int order = _random.oneOf({0, 0, 1, 2});
    if (kind == byEndMark || kind == byBareMark) {
      plan(marked[_random.chance(50) ? order : _random.below(5)]);
    } else {
      plan(unmarked[order]);
      if (kind == byDeletion && _random.chance(80)) plan({{Do::await, old}});
      if (kind == byDeletion)
        plan({{Do::remove, old}});
      else if (order < 2 && !logAt(old).torn && _random.chance(40))
        plan({{Do::tail, old}});
    }
  }
  return std::string("begins to hand over: ") + nameOf(static_cast<Rotation>(kind));
}

std::string Component::replace(int old) {
  Log& before = logAt(old);
  const bool there = _machine.exists(before.path);
  const std::string path = before.path;
  const int saved = savedOffset();
  const bool marked = before.marked;
  before.gone = true;
  const int index = planLog(path);
  Log& log = logs.back();
  if (logAt(old).next == old) logAt(old).next = index;
  if (there && !marked && _calm) {  // as long as the other one, or longer
    make(log);
    if (log.bare) log.identity = _machine.put(path, firstLine(log));
    log.bare = false;
    do {
      const int event = addEvent(index);
      addLine(index, event, bytes(log, lineOf(events.back()) + "\n"), false);
    } while (static_cast<int>(_machine.size(path)) < saved);
  } else {
    const std::string first = firstLine(log);
    if (there && !marked && _random.chance(50)) {
      _machine.truncate(path, first);
      log.identity = logAt(old).identity;
      logAt(old).identity = 0;
    } else {
      log.identity = _machine.put(path, first);
    }
  }
  if (_named == old) _named = index;
  _heldFor = index;
  _writing = index;
  return "puts a new log in the place of " + platform::fileNameOf(path);
}

std::string Component::perform(const Action& action) {
  Log& log = logAt(action.log);
  const std::string file = platform::fileNameOf(log.path);
  const int written = static_cast<int>(log.events.size());
  switch (action.what) {
    case Do::make:
      make(log);
      return "makes " + file + (log.bare ? ", without its first line" : "");
    case Do::name:
      setName(action.log);
      return "names " + file + " in the settings";
    case Do::change:
      _writing = action.log;
      return "goes on in " + file;
    case Do::write:
      return writeEvents(action.log, _uniform ? _uniformCount - written : 1 + _random.below(4)) +
             " in " + file;
    case Do::tail:
      if (late(log) || log.removed) return "";
      writeEvents(action.log, 1);
      if (log.torn) goOn(action.log, true);
      return "writes one event more into " + file;
    case Do::remove:
      if (!allAcknowledged(log)) log.may = true;
      log.gone = true;
      _machine.remove(log.path);
      return "deletes " + file;
    case Do::mark: {
      const std::string next = action.next < 0 ? "" : platform::fileNameOf(logAt(action.next).path);
      addLine(action.log, -1, markerLine(log, "MEOF", next), _random.chance(20));
      log.marked = !log.torn;
      log.next = action.next;
      return "marks the end of " + file + (next.empty() ? "" : ", next " + next) +
             (log.torn ? ", torn" : "");
    }
    default:
      return "";
  }
}

std::string Component::act(bool settled) {
  if (held()) return "";
  _heldFor = -1;
  _calm = false;
  Log& current = logAt(_writing);
  for (size_t i = 0; i < logs.size(); ++i) {
    Log& log = logs[i];
    if (log.bare && !log.gone && log.identity) {
      if (_random.chance(50)) return "";
      log.bare = false;
      const std::string first = firstLine(log);
      _machine.append(log.path, first.substr(_machine.size(log.path)));
      return "writes the first line of " + platform::fileNameOf(log.path);
    }
    if (log.torn && !log.torn->forGood && !log.gone)
      return _random.chance(60) ? goOn(static_cast<int>(i), false) : "";
  }
  if (!_plan.empty()) {
    const Action action = _plan.front();
    const Log& log = logAt(action.log);
    const bool there = _machine.exists(log.path);
    bool ready = true;
    if (action.what == Do::await) {
      ready = allAcknowledged(log);
    } else if (action.what == Do::replace) {
      _calm = !log.marked && settled && !log.events.empty() &&
              eventAt(log.events.back()).acknowledged && !_machine.reuseIdentities &&
              _random.chance(50);
      const int saved = savedOffset();
      ready = !there || _calm || saved > 120 || (log.marked && saved == 0);
      if (ready) {
        _plan.pop_front();
        _waits = 0;
        return replace(action.log);
      }
    }
    if (action.what == Do::name && _waitsForTheAgent && !logAt(_named).seen && ++_waits < 12)
      return "";
    if (!ready) {
      if (++_waits > 30) {  // the agent does not read that log: the component goes on elsewhere
        _waits = 0;
        _plan.clear();
        const int next = _ahead = planLog();
        _plan = {{Do::make, next}, {Do::name, next}, {Do::change, next}};
      }
      return "";
    }
    _waits = 0;
    _plan.pop_front();
    return perform(action);
  }
  const int written = static_cast<int>(current.events.size());
  if (current.torn || (_uniform ? written >= _uniformCount : _random.chance(18))) return handOver();
  if (written >= kMostEvents) return "";
  if (!_uniform && _random.chance(6)) {
    static const char* const junk[] = {"", "TFI,1,x", "Xabc,2,y", "no event at all", "TFILE,3"};
    std::string line = junk[_random.below(5)];
    if (_random.chance(20)) line = "TFIL,4,5" + std::string(47, ',');
    addLine(_writing, -1, bytes(current, line + "\n"), false);
    return "writes a line that is not an event";
  }
  return writeEvents(_writing, _uniform ? _uniformCount - written : 1 + _random.below(6));
}

std::string Component::finish() {
  for (Log& log : logs)
    if ((log.bare && log.identity && !log.gone) || (log.torn && !log.torn->forGood && !log.gone))
      return act(false) + " ";
  return _plan.empty() && !held() ? "" : act(false) + " ";
}

// An end mark is not left torn for so long that it could be taken for a line.
void Component::beforePass() {
  for (size_t i = 0; i < logs.size(); ++i) {
    Log& log = logs[i];
    if (!log.torn) continue;
    log.torn->lookedAt = false;
    if (log.torn->event < 0 && log.torn->looks >= 3) goOn(static_cast<int>(i), true);
  }
}

void Component::passed() {
  const Log& other = logAt(_named);
  if (other.identity && _machine.size(other.path))
    for (int i = 0; i < _named; ++i) ++logAt(i).supersededFor;
  for (Log& log : logs)
    if (log.torn && log.torn->lookedAt) ++log.torn->looks;
}

bool Component::allAcknowledged(const Log& log) const {
  for (const int event : log.events)
    if (const Event& e = eventAt(event); !e.acknowledged && !e.may) return false;
  return true;
}

Log* Component::byIdentity(uint64_t identity) {
  for (Log& log : logs)
    if (log.identity == identity) return &log;
  return nullptr;
}

}  // namespace korvane::log_model
