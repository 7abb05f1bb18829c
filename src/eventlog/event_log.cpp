#include "eventlog/event_log.h"

#include <charconv>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "eventlog/catalogue.h"
#include "eventlog/event_log_file.h"
#include "eventlog/log_file.h"
#include "eventlog/log_mutex.h"
#include "eventlog/recent_errors.h"
#include "eventlog/record.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "util/utf8.h"

namespace korvane::eventlog {
namespace {

constexpr int kEventNoCatalogue = 10500;
constexpr int kEventRecordsLost = 10501;
constexpr const char* kSource = "EventLog";
constexpr size_t kMaxKeptBuffer = 16 * 1024;
constexpr size_t kRecentTextBytes = 512;

std::atomic<uint64_t> lostRecords{0};

// The one log of the process. Never destroyed: a thread left behind may write while the process ends.
class Log {
 public:
  void open(const Settings& settings, platform::Files& files, platform::Clock& clock) {
    LogLock hold(_lock);
    if (_holders++ > 0) return;
    _files = &files;
    _clock = &clock;
    _recent.clear();
    _file = std::make_unique<LogFile>(files, clock);
    _file->configure(settings);
    _sequence = _file->open();
    notePath();
    apply(settings);
    readCatalogue(settings.cataloguePath);
  }

  void reconfigure(const Settings& settings) {
    LogLock hold(_lock);
    if (!_file) return;
    _file->configure(settings);
    apply(settings);
    if (settings.cataloguePath != _cataloguePath) readCatalogue(settings.cataloguePath);
  }

  void close() {
    LogLock hold(_lock);
    if (_holders == 0 || --_holders > 0) return;
    detail::tracing = false;
    _file.reset();
    _catalogue.clear();
  }

  void trace(std::string_view tag, std::string_view text) {
    LogLock hold(_lock);
    Record record;
    record.type = "TRAC";
    record.source = tag;
    record.text = text;
    write(record);
  }

  void event(int id, std::string_view source, std::span<const std::string> insertions) {
    LogLock hold(_lock);
    writeEvent(id, source, insertions);
  }

  std::string currentFile() {
    LogLock hold(_lock);
    return _path;
  }

  std::vector<RecentError> recentErrors() {
    LogLock hold(_lock);
    return {_recent.rbegin(), _recent.rend()};
  }

  uint64_t rolledCount() {
    LogLock hold(_lock);
    return _file ? _file->rolled() : 0;
  }

 private:
  void apply(const Settings& settings) REQUIRES(_lock) { detail::tracing = settings.tracing; }

  void notePath() REQUIRES(_lock) {
    if (!_file->path().empty()) _path = _file->path();
  }

  void readCatalogue(const std::string& path) REQUIRES(_lock) {
    _cataloguePath = path;
    _catalogue.clear();
    std::string bytes, reason;
    if (const int error = platform::readWholeFile(*_files, path, kMaxCatalogueBytes, bytes))
      reason = "it cannot be read, error " + std::to_string(error);
    else if (const auto wrong = parseCatalogue(bytes, _catalogue))
      reason = wrong->describe();
    if (!reason.empty())
      writeEvent(kEventNoCatalogue, kSource, std::vector<std::string>{path, reason});
  }

  void writeEvent(int id, std::string_view source, std::span<const std::string> insertions)
      REQUIRES(_lock) {
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
    write(record);
    if (record.type != "AINF") keepRecent(record);
  }

  void keepRecent(const Record& record) REQUIRES(_lock) {
    if (_recent.size() == kRecentErrors) _recent.pop_front();
    _recent.push_back({record.wallMs, record.id, std::string(record.type),
                       std::string(record.source),
                       utf16ToUtf8(utf8ToUtf16(record.text.substr(0, kRecentTextBytes)))});
  }

  void write(Record& record) REQUIRES(_lock) {
    if (!_file) return;
    record.sequence = ++_sequence;
    record.wallMs = _clock->wallMs();
    platform::Platform& system = platform::current();
    record.processId = system.processes.currentId();
    record.threadId = system.threading.currentThreadId();
    _line.clear();
    appendRecord(_line, record);
    const int error = _file->write(_line);
    if (_line.capacity() > kMaxKeptBuffer) _line = {};
    if (error != 0) {
      ++lostRecords;
      ++_unreported;
      _lastError = error;
      return;
    }
    notePath();
    if (_unreported > 0) reportLost();
  }

  void reportLost() REQUIRES(_lock) {
    const std::vector<std::string> insertions = {std::to_string(std::exchange(_unreported, 0)),
                                                 std::to_string(_lastError)};
    writeEvent(kEventRecordsLost, kSource, insertions);
  }

  LogMutex _lock;
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
};

Log& log() {
  static Log& log = *new Log;
  return log;
}

// What cannot even be formatted, for want of memory, is a lost record.
template <class F>
void guarded(F write) noexcept {
  try {
    write();
  } catch (...) {
    ++lostRecords;
  }
}

}  // namespace

void detail::writeTrace(std::string_view tag, const char* format,
                        std::initializer_list<Arg> arguments) {
  guarded([&] { log().trace(tag, formatPrintf(format, arguments)); });
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

void EventLog::reconfigure(const Settings& settings) {
  guarded([&] { log().reconfigure(settings); });
}

void EventLog::close() {
  guarded([] { log().close(); });
}

uint64_t EventLog::lost() {
  return lostRecords;
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
