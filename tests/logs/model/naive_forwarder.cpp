#include "tests/logs/model/naive_forwarder.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "platform/paths.h"
#include "tests/logs/model/component.h"
#include "util/utf8.h"

namespace korvane::log_model {

namespace {

constexpr size_t kPointerSize = 4365;

struct Line {
  std::vector<std::string> fields;
  size_t end = 0;  // bytes from the log's start
};

class NaiveForwarder final : public Forwarder {
 public:
  NaiveForwarder(Machine& machine, Receiver& receiver, Fault fault)
      : _machine(machine),
        _receiver(receiver),
        _fault(fault),
        _state(machine.installRoot() + "/IPS/hidslog1rtfilepointer") {}

  void start(const Settings& settings) override {
    _settings = settings;
    _files = &_machine.files();
    _names.clear();
    _lastSeen.clear();
    _lastKey.clear();
    _offset = 0;
    _quiet = 0;
    _identity = 0;
    std::string text;
    if (platform::readWholeFile(*_files, _state, 100000, text) == 0) {
      std::istringstream in(text.substr(kPointerSize));
      in >> _offset >> _lastSeen;
      for (std::string name; in >> name;) _names.push_back(name);
      if (_fault == Fault::forgetsNames && _names.size() > 1) _names.resize(1);
    }
    look();
  }

  void pass() override {
    look();
    platform::FileInfo info;
    while (_names.size() > 1 && _files->info(_names[0], info)) moveOn(1);  // deleted, or never made
    if (_files->info(_names[0], info)) return;
    const bool other = (_identity && info.identity != _identity) || info.size < _offset;
    if (other && _fault != Fault::followsNoReplacement) _offset = 0, _lastKey.clear(), save();
    _identity = info.identity;
    std::string log;
    if (platform::readWholeFile(*_files, _names[0], 10000000, log)) return;
    forward(log, info);
  }

  void kill() override {}
  void stop() override {}

 private:
  void look() {
    std::string text;
    if (platform::readWholeFile(*_files, _machine.installRoot() + "/IDS/ids.properties", 100000,
                                text))
      return;
    const std::string key = "ids.service.rteventfile.name=";
    size_t begin = text.find(key) + key.size();
    std::string name = text.substr(begin, text.find('\n', begin) - begin);
    if (name.starts_with("..")) name = _machine.installRoot() + "/IDS" + name.substr(2);
    if (name == _lastSeen) return;
    _lastSeen = name;
    if (_fault == Fault::looksAtTheNewestName && _names.size() > 1) _names.resize(1);
    if (std::find(_names.begin(), _names.end(), name) == _names.end()) _names.push_back(name);
    save();
  }

  bool save() {
    std::string text(kPointerSize, '\0');  // where the component looks for the offset
    const auto offset = static_cast<int32_t>(_offset);
    std::memcpy(text.data() + 1025, &offset, 4);
    text += std::to_string(_offset) + "\n" + _lastSeen + "\n";
    for (const std::string& name : _names) text += name + "\n";
    return platform::writeFileAtomically(*_files, _state, text) == 0;
  }

  // A disk that refuses is that of a killed process.
  bool remove(const std::string& path) { return _files->remove(path) == 0; }

  void moveOn(size_t names) {
    _names.erase(_names.begin(), _names.begin() + static_cast<std::ptrdiff_t>(names));
    _offset = 0;
    _identity = 0;
    _quiet = 0;
    _lastKey.clear();
    save();
  }

  // The lines from the position on. It never takes a line without an end.
  std::vector<Line> lines(const std::string& log) {
    const bool wide = log.starts_with("\xFF\xFE");
    const std::string lf = wide ? std::string("\n\0", 2) : "\n";
    std::vector<Line> found;
    for (size_t at = std::max(_offset, size_t{wide ? 2u : 0u}); at < log.size();) {
      size_t end = log.find(lf, at);
      while (wide && end != std::string::npos && (end - at) % 2) end = log.find(lf, end + 1);
      if (end == std::string::npos && _fault != Fault::tearsAtOnce) break;
      end = std::min(log.size(), end == std::string::npos ? end : end + lf.size());
      std::string text = log.substr(at, end - at);
      if (wide) {
        std::u16string units(text.size() / 2, u'\0');
        std::memcpy(units.data(), text.data(), units.size() * 2);
        text = utf16ToUtf8(units);
      }
      while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
      at = end;
      found.push_back({splitLine(text), at});
      found.back().fields.resize(std::max<size_t>(3, found.back().fields.size()));
    }
    return found;
  }

  void forward(const std::string& log, const platform::FileInfo& info) {
    Batch batch;
    size_t reached = _offset;
    std::string key = _lastKey, next;
    std::vector<Line> run;
    bool marked = false, all = true;
    const auto flush = [&] {
      if (run.empty()) return;
      batch.push_back(recordOf(run));
      reached = run.back().end;
      run.clear();
    };
    for (const Line& line : lines(log)) {
      if (static_cast<int>(batch.size()) >= _settings.writerLimit) {
        marked = all = false;
        break;
      }
      const std::string& type = line.fields[0];
      if (type.size() != 4 || !std::strchr("TDPMA", type[0]) || line.fields.size() > 49) continue;
      marked = type == "MEOF";
      if (marked && line.fields.size() > 3) next = line.fields[3];
      if (marked && _fault == Fault::losesOpenRuns) run.clear();
      const std::string now = marked || type == "MSOF" ? "" : keyOf(line);
      if (now.empty() || now != key) flush();
      key = now;
      if (marked || type == "MSOF") continue;
      const bool repeats = !run.empty() || (!now.empty() && now == _lastKey && batch.empty());
      run.push_back(line);
      if (!repeats) flush();
    }
    flush();
    if (_fault == Fault::deletesEarly && marked) remove(_names[0]);
    if (!batch.empty()) _quiet = 0;
    if (!batch.empty() && !send(batch, reached)) return;
    if (!batch.empty()) _lastKey = key;
    platform::FileInfo after;
    if (marked) {
      finish(next, info);
    } else if (all && batch.empty() && following(1, after) < _names.size() && ++_quiet > 12) {
      moveOn(following(1, after));
    }
  }

  // The first name that a log with that many bytes goes by, of those behind the one being read.
  size_t following(uint64_t bytes, platform::FileInfo& info) {
    size_t at = 1;
    while (at < _names.size() && (_files->info(_names[at], info) || info.size < bytes)) ++at;
    return at;
  }

  bool send(Batch& batch, size_t reached) {
    if (_fault == Fault::swapsRecords && batch.size() > 1) std::swap(batch[0], batch[1]);
    const size_t before = _offset;
    _offset = reached;
    if (_fault == Fault::savesBeforeDelivery) save();
    const auto [outcome, code] = _receiver.take(batch);
    const bool done = outcome == Outcome::answered &&
                      (code == 0 || (_settings.serviceType == 1 && (code == 302 || code == 600)));
    if (!done && _fault != Fault::dropsRefused) _offset = before;
    if (_offset == reached && _fault != Fault::savesTooLate) save();
    return done;
  }

  void finish(const std::string& next, const platform::FileInfo& info) {
    const std::string finished = _names[0];
    const std::string path = platform::directoryOf(finished) + "/" + next;
    if (!next.empty() && std::find(_names.begin(), _names.end(), path) == _names.end())
      _names.insert(_names.begin() + 1, path);
    platform::FileInfo now, after;
    const size_t at = following(0, after);
    if (at >= _names.size()) return;
    moveOn(at);
    if (_files->info(finished, now) || now.identity != info.identity) return;
    if (_fault != Fault::keepsFinishedLogs) remove(finished);
    if (_fault == Fault::deletesEqualLogs && after.size == info.size &&
        after.modifiedNs == info.modifiedNs)
      remove(_names[0]);
  }

  std::string keyOf(const Line& line) const {
    const std::string& type = line.fields[0];
    if (!_settings.consolidate || type[0] == 'D' || type[0] == 'M' || type == "PMNT") return "";
    std::string key = type;
    for (size_t i = 3; i < line.fields.size(); ++i) key += "\x1F" + line.fields[i];
    return key;
  }

  Record recordOf(const std::vector<Line>& run) const {
    const std::vector<std::string>& first = run.front().fields;
    const std::vector<std::string>& last = run.back().fields;
    Record record;
    const auto add = [&](const std::string& name, const std::string& value) {
      if (!value.empty()) record.emplace_back(name, value);
    };
    const auto field = [&](size_t n) {
      return n > last.size() ? "" : n == 3 ? first[2] : last[n - 1];
    };
    for (const size_t n : {2u, 3u, 1u}) add("v" + std::to_string(n), field(n));
    for (size_t n = 4; n <= 17; ++n) add("v" + std::to_string(n), field(n));
    add("a4", "hidslog1rt");
    add("a5", std::to_string(run.size() + (_fault == Fault::countsOneTooMany && run.size() > 1)));
    add("a6", run.size() > 1 ? last[2].substr(0, 22) : std::string(22, '0'));
    for (size_t n = 18; n <= last.size(); ++n) add("v" + std::to_string(n), field(n));
    return record;
  }

  Machine& _machine;
  Receiver& _receiver;
  const Fault _fault;
  const std::string _state;
  platform::Files* _files = nullptr;
  Settings _settings;
  std::vector<std::string> _names;  // the one being read, and those behind it
  std::string _lastSeen, _lastKey;
  size_t _offset = 0;
  uint64_t _identity = 0;
  int _quiet = 0;
};

}  // namespace

std::unique_ptr<Forwarder> makeNaiveForwarder(Machine& machine, Receiver& receiver, Fault fault) {
  return std::make_unique<NaiveForwarder>(machine, receiver, fault);
}

}  // namespace korvane::log_model
