#include "simulate/oracle/event_writer.h"

#include <algorithm>
#include <sstream>

#include "simulate/oracle/state_files.h"

namespace korvane::simulation {

namespace {

constexpr int64_t kTornMs = 3000;      // that a line stands unfinished, as long as it is our choice
constexpr int64_t kPatienceMs = 8000;  // five of the agent's passes are ten seconds apart
constexpr char kRtName[] = "ids.service.rteventfile.name";

std::string padded(int64_t number, int width) {
  const std::string text = std::to_string(number);
  return std::string(static_cast<size_t>(std::max(0, width - static_cast<int>(text.size()))), '0') +
         text;
}

std::string quoted(const std::string& field) {
  if (field.find_first_of(",\"") == std::string::npos) return field;
  std::string out = "\"";
  for (const char letter : field) out += letter == '"' ? "\"\"" : std::string(1, letter);
  return out + "\"";
}

std::string timeText(int64_t nowMs) {
  return "2026-11-" + padded(1 + nowMs / 86400000 % 28, 2) + " " + padded(nowMs / 3600000 % 24, 2) +
         ":" + padded(nowMs / 60000 % 60, 2) + ":" + padded(nowMs / 1000 % 60, 2) + "." +
         padded(nowMs % 1000, 3);
}

std::map<std::string, std::string> valuesOf(const std::string& text) {
  std::map<std::string, std::string> values;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (const size_t equals = line.find('='); equals != std::string::npos)
      values[line.substr(0, equals)] = line.substr(equals + 1);
  return values;
}

std::string textOf(const std::map<std::string, std::string>& values) {
  std::string text;
  for (const auto& [name, value] : values) text += name + "=" + value + "\n";
  return text;
}

// In UTF-8, or in UTF-16LE; the events are made of Latin-1.
std::string encoded(const std::string& text, bool wide) {
  if (!wide) return text;
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    auto letter = static_cast<unsigned char>(text[i]);
    if (letter >= 0xC2 && letter <= 0xC3)
      letter = static_cast<unsigned char>((letter & 3) << 6 |
                                          (static_cast<unsigned char>(text[++i]) & 0x3F));
    out += {static_cast<char>(letter), '\0'};
  }
  return out;
}

}  // namespace

EventWriter::EventWriter(uint64_t seed, std::string root, EventAccount& account,
                         const WriterPlan& plan)
    : _random(seed ^ 0x1D5), _root(std::move(root)), _account(account), _plan(plan) {}

void EventWriter::beginLog(DiskForWriter& disk) {
  _path = _root + "/IDS/logs/KAVRTEvent-" + padded(++_files, 6) + ".csv";
  _wide = _random.chance(20);
  _crlf = _random.chance(10);
  _log = _account.beginLog(_path);
  disk.append(_path,
              (_wide ? "\xFF\xFE" : "") + encoded("MSOF,0," + timeText(_next) + "\n", _wide));
  ++_counts["logs"];
}

void EventWriter::nameLog(DiskForWriter& disk) {
  _settings[kRtName] = _path;
  disk.replace(_root + "/IDS/ids.properties", "# settings\n" + textOf(_settings));
}

void EventWriter::install(DiskForWriter& disk) {
  _settings["ids.service.eventfile.name"] = _root + "/IDS/logs/other.csv";
  beginLog(disk);
  nameLog(disk);
}

// A run of equal events is what the agent folds.
void EventWriter::writeEvent(int64_t nowMs, DiskForWriter& disk) {
  static const char* const types[] = {"TFIL", "TNET", "PREG", "ACRE", "PSET", "PMNT", "DSTA"};
  static const char* const texts[] = {"",   "x",     "two words", "a,b",     "say \"yes\"",
                                      "\"", "k=v#1", "h\u00e4ll", " blank ", "4711",
                                      ",,"};
  const EventLog& log = _account.logs()[static_cast<size_t>(_log)];
  std::vector<std::string> fields;
  if (!log.events.empty() && _random.chance(40)) {
    fields = _account.event(log.events.back()).fields;
  } else {
    fields = {types[_random.below(7)], "", ""};
    const int count = _random.oneOf({3, 4, 9, 17, 18, 24, 49});
    while (static_cast<int>(fields.size()) < count) fields.push_back(texts[_random.below(11)]);
  }
  fields[2] = timeText(nowMs + _account.count() % 1000);
  const int number = _account.add(_log, fields);
  fields[1] = std::to_string(number);
  std::string line;
  for (const std::string& field : fields) line += (line.empty() ? "" : ",") + quoted(field);
  const size_t behindTime = encoded(fields[0] + "," + fields[1] + "," + fields[2], _wide).size();
  line = encoded(line + (_crlf ? "\r\n" : "\n"), _wide);
  ++_counts["events"];
  if (_random.chance(90) || line.size() <= behindTime + 2) {
    disk.append(_path, line);
    _account.becameWhole(number);
    return;
  }
  // Never torn before the number is whole: what would be taken for a line is recognised.
  const auto room = static_cast<int>(line.size() - behindTime);
  const size_t cut = behindTime + static_cast<size_t>(_random.below(room));
  disk.append(_path, line.substr(0, cut));
  _torn = Torn{number, line.substr(cut), nowMs};
  ++_counts["torn lines"];
}

void EventWriter::finishTorn(int64_t nowMs, DiskForWriter& disk) {
  if (_torn->event && nowMs - _torn->since > kPatienceMs) _account.excuse(_torn->event);
  disk.append(_path, _torn->rest);
  if (_torn->event) _account.becameWhole(_torn->event);
  _torn.reset();
}

bool EventWriter::agentIsInTheLog(const std::string& pointer) const {
  const std::string log = readPointer(pointer).log;
  return log.substr(log.rfind('/') + 1) == _path.substr(_path.rfind('/') + 1);
}

// The next log is made and named first, then the old one ends: with a mark that names the next,
// with one that names none, or with none at all. In the last two cases the settings alone name it,
// so it must have been read before another takes its place there.
void EventWriter::handOver(int64_t nowMs, DiskForWriter& disk) {
  const auto pointer = disk.read(_root + "/IPS/hidslog1rtfilepointer");
  // What was handed over before the agent could note where it reads is not found.
  if (!pointer || readPointer(*pointer).log.empty()) return;
  const bool read = agentIsInTheLog(*pointer);
  if (_mustBeSeen && !read) return;
  _mustBeSeen = false;
  const int how = read ? _random.below(10) : 0;
  const std::string old = _path;
  const bool wide = _wide;
  _next = nowMs;
  beginLog(disk);
  nameLog(disk);
  _mustBeSeen = how > 7;
  ++_counts[how > 8 ? "no end mark" : how > 7 ? "bare end mark" : "end mark"];
  if (how > 8) return;
  const std::string next = how > 7 ? "" : "," + _path.substr(_path.rfind('/') + 1);
  disk.append(old, encoded("MEOF,0," + timeText(nowMs) + next + "\n", wide));
}

void EventWriter::answerRequests(DiskForWriter& disk) {
  for (const std::string kind : {"policy", "config"}) {
    const auto request = disk.read(_root + "/IDS/" + kind + ".request");
    if (!request) continue;
    auto asked = valuesOf(*request);
    const std::string id = asked["request.id"];
    if (id.empty() || _answered[kind] == id) continue;
    _answered[kind] = id;
    ++_counts["requests"];
    const bool refuses = _random.chance(15);
    const std::string prefix = kind == "policy" ? "IDS.Policy.Result" : "IDS.Config.Result";
    disk.replace(_root + "/IDS/" + kind + ".result",
                 "request.id=" + id + "\n" + prefix + "Code=" + (refuses ? "7" : "0") + "\n" +
                     prefix + "Message=" + (refuses ? "refused" : "applied") + "\n");
  }
}

int64_t EventWriter::step(int64_t nowMs, DiskForWriter& disk) {
  answerRequests(disk);
  if (_torn) {
    if (nowMs < _torn->since + (_quiet ? 0 : kTornMs)) return _torn->since + kTornMs;
    finishTorn(nowMs, disk);
  }
  if (_quiet || nowMs < _next || _account.count() >= _plan.mostEvents) return nowMs + 1000;
  for (int left = _random.between(1, _plan.longestBurst); left > 0 && !_torn; --left) {
    if (_random.chance(4)) {
      static const char* const junk[] = {"", "TFI,1,x", "xabc,2,y", "no event at all", "TFILE,3"};
      disk.append(_path, encoded(std::string(junk[_random.below(5)]) + "\n", _wide));
      ++_counts["lines that are no event"];
    }
    writeEvent(nowMs, disk);
  }
  if (!_torn && _random.chance(20)) handOver(nowMs, disk);
  _next = nowMs + _random.below(static_cast<int>(_plan.mostPauseMs));
  return std::min(_next, nowMs + 1000);
}

}  // namespace korvane::simulation
