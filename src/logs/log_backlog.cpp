#include "logs/log_backlog.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "agent/thread/stop_token.h"
#include "config/install_root.h"
#include "config/log_settings.h"
#include "ids/hids_component.h"
#include "ids/ids_log_names.h"
#include "logs/event_record.h"
#include "logs/file_log_pointer.h"
#include "logs/line_reader.h"
#include "logs/log_mark.h"
#include "logs/next_logs.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

using platform::FileInfo;
using platform::Files;

constexpr LogType kForwarded[] = {HIDS_RT_LOG};
constexpr int64_t kMarkBytes = 2;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr size_t kNextLogField = 4;
// Where the end mark of a log that is not read as a whole is looked for.
constexpr int64_t kTailBytes = 4096;

STRING currentLog(Files& files, platform::Clock& clock, const LogSettings& settings, LogType type) {
  const STRING known = settings.getCurrentLogFile(type);
  if (!known.empty()) return known;
  HidsComponent component({files, clock, shutdownToken()}, idsDirectory(), [] { return 0; });
  STRING name;
  if (!component.setting(idsLogSetting(type), name) || name.empty()) return {};
  return resolveIdsLogName(name.toUtf8());
}

bool startsUtf16(platform::File& file) {
  char mark[kMarkBytes];
  size_t got = 0;
  ignoreResult(file.seek(0));
  return file.read(mark, sizeof mark, got) == 0 && got == sizeof mark && mark[0] == '\xFF' &&
         mark[1] == '\xFE';
}

// A file that seems to end where no more may be read of it.
class BoundedFile final : public platform::File {
 public:
  BoundedFile(platform::File& file, uint64_t& mayRead) : _file(file), _mayRead(mayRead) {}
  int read(void* buffer, size_t size, size_t& got) override {
    const int error =
        _file.read(buffer, static_cast<size_t>(std::min<uint64_t>(size, _mayRead)), got);
    _mayRead -= got;
    return error;
  }
  int write(const void*, size_t) override { return EBADF; }
  int seek(int64_t offset) override { return _file.seek(offset); }
  int64_t tell() override { return _file.tell(); }
  int info(platform::FileInfo& out) override { return _file.info(out); }
  int truncate(uint64_t) override { return EBADF; }
  int flush() override { return EBADF; }

 private:
  platform::File& _file;
  uint64_t& _mayRead;
};

// Goes over one log type's logs, in the order in which the agent will.
class Count {
 public:
  Count(Files& files, platform::Clock& clock, const LogSettings& settings, LogType type)
      : _files(files), _current(currentLog(files, clock, settings, type)) {
    _out.type = type;
    _out.pointerFile = settings.getLogPointerFileName(type);
    _waiting = NextLogs::namesIn(_files, NextLogs::pathBeside(_out.pointerFile));
  }

  LogBacklog take() {
    const FileLogPointer pointer(_files, _out.pointerFile, platform::OpenMode::read);
    addFirst(pointer);
    while (!_next.empty() && _visited.size() < kMaxLogs) addLog(std::exchange(_next, {}), 0);
    return std::move(_out);
  }

 private:
  void addFirst(FileLogPointer pointer) {
    _out.log = pointer.getCurrentLogName();
    _out.offset = std::max<int64_t>(pointer.position(), 0);
    if (_out.log.empty() || !platform::fileExists(_files, _out.log.toUtf8())) {
      const STRING next = _waiting.empty() ? _current : _waiting.front();
      if (!next.empty()) _out.log = next;
    } else if (_out.offset == 0 && hasLogMark(_files, _out.log, pointer.getEndTimeStamp())) {
      _visited.push_back(_out.log);
      goOn();
      return;
    }
    if (!_out.log.empty()) addLog(_out.log, _out.offset);
  }

  void goTo(const STRING& log) {
    const bool seen = std::find(_visited.begin(), _visited.end(), log) != _visited.end();
    if (!log.empty() && !seen && platform::fileExists(_files, log.toUtf8())) _next = log;
  }

  void goOn() {
    for (const STRING& name : _waiting)
      if (_next.empty()) goTo(name);
    if (_next.empty()) goTo(_current);
  }

  void addLog(const STRING& name, int64_t offset) {
    _visited.push_back(name);
    std::unique_ptr<platform::File> file;
    FileInfo info;
    if (_files.open(name.toUtf8(), platform::OpenMode::read, file) == 0 && file->info(info) == 0)
      addFile(*file, static_cast<int64_t>(info.size), offset);
    const std::string named = std::exchange(_namedByEnd, {});
    if (!named.empty())
      goTo(platform::joinPath(_files, {platform::directoryOf(name.toUtf8()), named}));
    if (_next.empty()) goOn();
  }

  // A log that is shorter than the offset was begun anew.
  void addFile(platform::File& file, int64_t size, int64_t offset) {
    if (offset > size) offset = 0;
    const bool utf16 = startsUtf16(file);
    if (utf16) offset = offset < kMarkBytes ? kMarkBytes : offset & ~int64_t{1};
    _out.bytes += static_cast<uint64_t>(size - offset);
    BoundedFile bounded(file, _mayRead);
    _lines.attach(&bounded, utf16, offset);
    SourceLine line;
    while (nextLine(line, size))
      if (!seeMark(line) && line.size > 0) ++_out.records;
    if (_mayRead > 0 || _lines.position() >= size) return;
    _out.recordsExact = false;
    uint64_t tailBytes = kTailBytes;
    BoundedFile tail(file, tailBytes);
    _lines.attach(&tail, utf16, std::max(_lines.position(), (size - kTailBytes) & ~int64_t{1}));
    while (nextLine(line, size)) seeMark(line);
  }

  bool nextLine(SourceLine& line, int64_t size) {
    return _lines.position() < size && _lines.next(line) == 0 && line.lineEnd;
  }

  // True for a start or end mark; the last line of a log tells what comes next.
  bool seeMark(SourceLine& line) {
    _namedByEnd.clear();
    if (line.start == 0 && std::string_view(line.text, line.size).starts_with(kUtf8Mark)) {
      line.text += kUtf8Mark.size();
      line.size -= kUtf8Mark.size();
    }
    FieldSlice fields[kMaxFields];
    const size_t count = splitFields(line.text, line.size, fields).count;
    const auto field = [&](size_t n) {
      const FieldSlice slice = unquoteInPlace(line.text, fields[n - 1]);
      return std::string_view(line.text + slice.begin, slice.end - slice.begin);
    };
    const std::string_view type = field(1);
    if (type == "MEOF" && count >= kNextLogField) {
      const std::string named(field(kNextLogField));
      if (platform::fileNameOf(named) == named) _namedByEnd = named;
    }
    return type == "MEOF" || type == "MSOF";
  }

  Files& _files;
  const STRING _current;
  LogBacklog _out;
  std::vector<STRING> _waiting, _visited;
  STRING _next;
  std::string _namedByEnd;
  LineReader _lines;
  uint64_t _mayRead = kMaxScanned;
};

}  // namespace

std::vector<LogBacklog> logBacklogs(Files& files, platform::Clock& clock,
                                    const LogSettings& settings) {
  std::vector<LogBacklog> all;
  for (const LogType type : kForwarded) all.push_back(Count(files, clock, settings, type).take());
  return all;
}

}  // namespace korvane
