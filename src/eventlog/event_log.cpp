#include "eventlog/event_log.h"

#include <cerrno>
#include <charconv>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "eventlog/catalogue.h"
#include "eventlog/event_log_file.h"
#include "eventlog/held_records.h"
#include "eventlog/log_file.h"
#include "eventlog/recent_errors.h"
#include "eventlog/record.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/threading.h"
#include "util/agent_run.h"
#include "util/process_mutex.h"
#include "util/utf8.h"

namespace korvane::eventlog {
namespace {

constexpr int kEventNoCatalogue = static_cast<int>(EventId::catalogueUnusable);
constexpr int kEventRecordsLost = static_cast<int>(EventId::ownLogRecordsLost);
constexpr const char* kSource = "EventLog";
constexpr size_t kMaxKeptBuffer = 16 * 1024;
constexpr size_t kRecentTextBytes = 512;
// What a record is lost of that came when no more could be held: the error of a full memory.
constexpr int kNoRoom = ENOMEM;

// The log of one run.
class Log {
 public:
  Log() = default;
  ~Log() { traceFrom(false); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void open(const Settings& settings, platform::Files& files, platform::Clock& clock) {
    ProcessLock hold(_lock);
    if (_holders++ > 0) return;
    _files = &files;
    _clock = &clock;
    _recent.clear();
    _file = std::make_unique<LogFile>(files, clock);
    _file->configure(settings);
    _sequence = _file->open();
    notePath();
    apply(settings);
    const std::string wrong = readCatalogue(settings.cataloguePath);
    writeHeld();
    reportCatalogue(wrong);
  }

  void hold(platform::Clock& clock) {
    ProcessLock hold(_lock);
    if (_file || _holding) return;
    _holding = true;
    _clock = &clock;
    traceFrom(true);
  }

  void reconfigure(const Settings& settings) {
    ProcessLock hold(_lock);
    if (!_file) return;
    _file->configure(settings);
    apply(settings);
    if (settings.cataloguePath != _cataloguePath)
      reportCatalogue(readCatalogue(settings.cataloguePath));
  }

  void close() {
    ProcessLock hold(_lock);
    if (_holders > 1) {
      --_holders;
      return;
    }
    _holders = 0;
    traceFrom(false);
    _file.reset();
    _catalogue.clear();
    _holding = false;
    _held.take();
  }

  bool traces() const { return _tracing; }

  void trace(std::string_view tag, std::string_view text) {
    ProcessLock hold(_lock);
    if (_file)
      writeTrace(tag, text, now());
    else if (_holding)
      keep({kTrace, std::string(tag), std::string(text), {}, now()});
  }

  void event(int id, std::string_view source, std::span<const std::string> insertions) {
    ProcessLock hold(_lock);
    if (_file)
      writeEvent(id, source, insertions, now());
    else if (_holding)
      keep({id, std::string(source), {}, {insertions.begin(), insertions.end()}, now()});
  }

  std::string currentFile() {
    ProcessLock hold(_lock);
    return _path;
  }

  std::vector<RecentError> recentErrors() {
    ProcessLock hold(_lock);
    return {_recent.rbegin(), _recent.rend()};
  }

  void countLost() { ++_lost; }
  uint64_t lost() const { return _lost; }

  uint64_t rolledCount() {
    ProcessLock hold(_lock);
    return _file ? _file->rolled() : 0;
  }

 private:
  static constexpr int kTrace = 0;  // where an event has its number

  Origin now() REQUIRES(_lock) {
    platform::Platform& system = platform::current();
    return {_clock->wallMs(), system.processes.currentId(), system.threading.currentThreadId()};
  }

  void keep(HeldRecord&& record) REQUIRES(_lock) {
    if (!_held.keep(std::move(record))) lose(kNoRoom);
  }

  void writeHeld() REQUIRES(_lock) {
    _holding = false;
    for (const HeldRecord& held : _held.take()) {
      if (held.id != kTrace)
        writeEvent(held.id, held.source, held.insertions, held.origin);
      else if (_tracing)
        writeTrace(held.source, held.text, held.origin);
    }
  }

  void lose(int error) REQUIRES(_lock) {
    ++_lost;
    ++_unreported;
    _lastError = error;
  }

  void apply(const Settings& settings) REQUIRES(_lock) { traceFrom(settings.tracing); }

  void traceFrom(bool on) {
    if (_tracing.exchange(on) != on) detail::tracing += on ? 1 : -1;
  }

  void notePath() REQUIRES(_lock) {
    if (!_file->path().empty()) _path = _file->path();
  }

  // What is wrong with it; empty when nothing is.
  std::string readCatalogue(const std::string& path) REQUIRES(_lock) {
    _cataloguePath = path;
    _catalogue.clear();
    std::string bytes, reason;
    if (const int error = platform::readWholeFile(*_files, path, kMaxCatalogueBytes, bytes))
      reason = "it cannot be read, error " + std::to_string(error);
    else if (const auto wrong = parseCatalogue(bytes, _catalogue))
      reason = wrong->describe();
    return reason;
  }

  void reportCatalogue(const std::string& wrong) REQUIRES(_lock) {
    if (wrong.empty()) return;
    writeEvent(kEventNoCatalogue, kSource, std::vector<std::string>{_cataloguePath, wrong}, now());
  }

  void writeTrace(std::string_view tag, std::string_view text, const Origin& origin)
      REQUIRES(_lock) {
    Record record;
    record.type = "TRAC";
    record.source = tag;
    record.text = text;
    write(record, origin);
  }

  void writeEvent(int id, std::string_view source, std::span<const std::string> insertions,
                  const Origin& origin) REQUIRES(_lock) {
    const auto found = _catalogue.find(id);
    const bool known = found != _catalogue.end();
    std::string text;
    if (known) {
      text = expandInsertions(found->second.text, insertions);
    } else {
      for (const std::string& insertion : insertions) text += (text.empty() ? "" : " ") + insertion;
    }
    Record record;
    record.type = known                     ? std::string_view(found->second.type)
                  : id == kEventNoCatalogue ? "AWRN"
                                            : "AINF";
    record.id = id;
    record.source = source;
    record.text = text;
    record.insertions = insertions;
    write(record, origin);
    if (record.type != "AINF") keepRecent(record);
  }

  void keepRecent(const Record& record) REQUIRES(_lock) {
    if (_recent.size() == kRecentErrors) _recent.pop_front();
    _recent.push_back({record.wallMs, record.id, std::string(record.type),
                       std::string(record.source),
                       utf16ToUtf8(utf8ToUtf16(record.text.substr(0, kRecentTextBytes)))});
  }

  void write(Record& record, const Origin& origin) REQUIRES(_lock) {
    record.sequence = ++_sequence;
    record.wallMs = origin.wallMs;
    record.processId = origin.processId;
    record.threadId = origin.threadId;
    _line.clear();
    appendRecord(_line, record);
    const int error = _file->write(_line);
    if (_line.capacity() > kMaxKeptBuffer) _line = {};
    if (error != 0) {
      lose(error);
      return;
    }
    notePath();
    if (_unreported > 0) reportLost();
  }

  void reportLost() REQUIRES(_lock) {
    const std::vector<std::string> insertions = {std::to_string(std::exchange(_unreported, 0)),
                                                 std::to_string(_lastError)};
    writeEvent(kEventRecordsLost, kSource, insertions, now());
  }

  std::atomic<bool> _tracing{false};
  std::atomic<uint64_t> _lost{0};
  ProcessMutex _lock;
  int _holders GUARDED_BY(_lock) = 0;
  platform::Files* _files GUARDED_BY(_lock) = nullptr;
  platform::Clock* _clock GUARDED_BY(_lock) = nullptr;
  std::unique_ptr<LogFile> _file GUARDED_BY(_lock);
  std::string _path GUARDED_BY(_lock);
  std::string _cataloguePath GUARDED_BY(_lock);
  Catalogue _catalogue GUARDED_BY(_lock);
  uint64_t _sequence GUARDED_BY(_lock) = 0;
  uint64_t _unreported GUARDED_BY(_lock) = 0;
  int _lastError GUARDED_BY(_lock) = 0;
  std::string _line GUARDED_BY(_lock);  // reused from record to record
  std::deque<RecentError> _recent GUARDED_BY(_lock);
  bool _holding GUARDED_BY(_lock) = false;
  HeldRecords _held GUARDED_BY(_lock);
};

Log& log() {
  return AgentRun::current().part<Log>(RunPart::ownLog);
}

// What cannot even be formatted, for want of memory, is a lost record.
template <class F>
void guarded(F write) noexcept {
  try {
    write();
  } catch (...) {
    log().countLost();
  }
}

}  // namespace

void detail::writeTrace(std::string_view tag, const char* format,
                        std::initializer_list<Arg> arguments) {
  guarded([&] {
    // Another run's log may be the one that traces.
    if (log().traces()) log().trace(tag, formatPrintf(format, arguments));
  });
}

void event(int id, std::string_view source, std::initializer_list<Arg> insertions) {
  guarded([&] {
    std::vector<std::string> texts;
    for (const Arg& insertion : insertions) texts.push_back(insertion.text());
    log().event(id, source, texts);
  });
}

std::vector<RecentError> recentErrors() {
  return log().recentErrors();
}

std::string currentFile() {
  return log().currentFile();
}

void EventLog::open(const Settings& settings, platform::Files& files, platform::Clock& clock) {
  guarded([&] { log().open(settings, files, clock); });
}

void EventLog::hold(platform::Clock& clock) {
  guarded([&] { log().hold(clock); });
}

void EventLog::reconfigure(const Settings& settings) {
  guarded([&] { log().reconfigure(settings); });
}

void EventLog::close() {
  guarded([] { log().close(); });
}

uint64_t EventLog::lost() {
  return log().lost();
}

uint64_t EventLog::rolledCount() {
  return log().rolledCount();
}

RolloverCause rolloverCause(int number) {
  return number == 1   ? RolloverCause::age
         : number == 2 ? RolloverCause::lines
                       : RolloverCause::size;
}

int64_t rolloverValue(const std::string& text) {
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() && value > 0
             ? value
             : Settings().rolloverValue;
}

}  // namespace korvane::eventlog
