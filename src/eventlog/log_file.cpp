#include "eventlog/log_file.h"

#include <algorithm>
#include <chrono>
#include <tuple>
#include <utility>

#include "eventlog/record.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "util/dates.h"
#include "util/ignore_result.h"

namespace korvane::eventlog {
namespace {

constexpr size_t kStampDigits = 17;
constexpr size_t kMaxFiles = 100;
constexpr size_t kMaxNameAttempts = 1000;
constexpr size_t kTailBytes = 2 * kMaxRecordBytes;
constexpr int64_t kRetryMs = 1000;
constexpr int64_t kDefaultRolloverValue = 50;
constexpr int64_t kMaxRolloverValue = 1'000'000;
constexpr std::string_view kSuffix = ".log";

bool allDigits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

int64_t number(std::string_view digits) {
  int64_t value = 0;
  for (const char c : digits) value = value * 10 + (c - '0');
  return value;
}

std::string stampOf(int64_t wallMs) {
  return expandDatePattern("%M%S", wallMs).toUtf8();
}

// The wall time that a stamp names.
int64_t stampMs(std::string_view stamp) {
  using namespace std::chrono;
  const auto part = [&](size_t from, size_t count) { return number(stamp.substr(from, count)); };
  const year_month_day date(year(static_cast<int>(part(0, 4))),
                            month(static_cast<unsigned>(part(4, 2))),
                            day(static_cast<unsigned>(part(6, 2))));
  const auto midnight = duration_cast<milliseconds>(sys_days(date).time_since_epoch()).count();
  return midnight + ((part(8, 2) * 60 + part(10, 2)) * 60 + part(12, 2)) * 1000 + part(14, 3);
}

int64_t sensible(int64_t rolloverValue) {
  return rolloverValue < 1 ? kDefaultRolloverValue : std::min(rolloverValue, kMaxRolloverValue);
}

}  // namespace

void LogFile::configure(const Settings& settings) {
  const bool moved =
      settings.directory != _settings.directory || settings.baseName != _settings.baseName;
  _settings = settings;
  _settings.rolloverValue = sensible(settings.rolloverValue);
  _settings.totalBytes = std::max(settings.totalBytes, Settings::kMinTotalBytes);
  if (!moved) return;
  _file.reset();
  _path.clear();
}

uint64_t LogFile::open() {
  const std::vector<Kept> kept = oldestFirst();
  const int64_t now = _clock.wallMs();
  if (!kept.empty() && kept.back().stamp <= stampOf(now)) {
    _path = fullPath(kept.back().name);
    if (reopen() == 0) {
      const int64_t age = std::max<int64_t>(0, now - stampMs(kept.back().stamp));
      _begunMs = _clock.monotonicMs() - age;
      _lines = _settings.rolloverCause == RolloverCause::lines ? countLines() : 0;
      return lastSequence(readTail());
    }
  }
  _path.clear();
  // The first line tries again.
  ignoreResult(begin());
  return 0;
}

int LogFile::write(std::string_view line) {
  const int64_t now = _clock.monotonicMs();
  if (_lastError != 0 && now < _retryMs) return _lastError;
  int error = 0;
  if (!_file) error = _path.empty() ? begin() : reopen();
  if (error == 0 && isFull(line.size())) {
    error = begin();
    if (error == 0) ++_rolled;
  }
  if (error == 0) error = append(line);
  if (error != 0) {
    _file.reset();
    _retryMs = now + kRetryMs;
  }
  return _lastError = error;
}

int LogFile::append(std::string_view line) {
  // What a kill or a full disk left of a line ends here, so that it does not take this one with it.
  const int error = _torn ? _file->write(("\n" + std::string(line)).data(), line.size() + 1)
                          : _file->write(line.data(), line.size());
  if (error != 0) return error;
  _size += line.size() + (_torn ? 1 : 0);
  _torn = false;
  ++_lines;
  return 0;
}

int LogFile::begin() {
  makeRoom();
  int error = _files.makeDirectories(_settings.directory);
  if (error != 0) return error;
  const std::string path = unusedPath();
  std::unique_ptr<platform::File> file;
  error = _files.open(path, platform::OpenMode::append, file);
  if (error != 0) return error;
  _file = std::move(file);
  _path = path;
  _size = _lines = 0;
  _torn = false;
  _begunMs = _clock.monotonicMs();
  return 0;
}

int LogFile::reopen() {
  platform::FileInfo info;
  int error = _files.open(_path, platform::OpenMode::append, _file);
  if (error == 0) error = _file->info(info);
  if (error != 0) {
    _file.reset();
    return error;
  }
  _size = info.size;
  readTail();
  return 0;
}

std::string LogFile::readTail() {
  std::string tail(static_cast<size_t>(std::min<uint64_t>(_size, kTailBytes)), '\0');
  std::unique_ptr<platform::File> reader;
  size_t got = 0;
  if (_files.open(_path, platform::OpenMode::read, reader) != 0 ||
      reader->seek(static_cast<int64_t>(_size - tail.size())) != 0 ||
      reader->read(tail.data(), tail.size(), got) != 0)
    got = 0;
  tail.resize(got);
  _torn = _size > 0 && !tail.ends_with('\n');
  return tail;
}

uint64_t LogFile::countLines() {
  std::unique_ptr<platform::File> reader;
  if (_files.open(_path, platform::OpenMode::read, reader) != 0) return 0;
  std::string buffer(kTailBytes, '\0');
  uint64_t lines = 0;
  for (size_t got = 1; got != 0;) {
    if (reader->read(buffer.data(), buffer.size(), got) != 0) break;
    lines += static_cast<uint64_t>(
        std::count(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(got), '\n'));
  }
  return lines;
}

bool LogFile::isFull(size_t nextLine) {
  if (_size == 0) return false;
  if (_size + nextLine + (_torn ? 1 : 0) > fileLimit()) return true;
  if (_settings.rolloverCause == RolloverCause::age)
    return _clock.monotonicMs() - _begunMs >= _settings.rolloverValue * 3600 * 1000;
  return _settings.rolloverCause == RolloverCause::lines &&
         _lines >= static_cast<uint64_t>(_settings.rolloverValue) * 1000;
}

uint64_t LogFile::fileLimit() const {
  const uint64_t half = _settings.totalBytes / 2;
  if (_settings.rolloverCause != RolloverCause::size) return half;
  return std::min(half, static_cast<uint64_t>(_settings.rolloverValue) << 20);
}

void LogFile::makeRoom() {
  const std::vector<Kept> kept = oldestFirst();
  uint64_t total = fileLimit();
  for (const Kept& file : kept) total += file.size;
  size_t count = kept.size();
  for (const Kept& file : kept) {
    if (total <= _settings.totalBytes && count < kMaxFiles) return;
    const std::string path = fullPath(file.name);
    if (path == _path || _files.remove(path) != 0) continue;
    total -= file.size;
    --count;
  }
}

// A file dated later than now was written under a wrong clock: it counts as the oldest, or
// it would outlive all others.
std::vector<LogFile::Kept> LogFile::oldestFirst() {
  std::vector<platform::DirectoryEntry> entries;
  std::vector<Kept> kept;
  if (_files.list(_settings.directory, entries) != 0) return kept;
  for (const platform::DirectoryEntry& entry : entries) {
    Kept file;
    platform::FileInfo info;
    if (entry.isDirectory || !parseName(entry.name, file)) continue;
    if (_files.info(fullPath(file.name), info) != 0) continue;
    file.size = info.size;
    kept.push_back(std::move(file));
  }
  const std::string now = stampOf(_clock.wallMs());
  const auto key = [&](const Kept& file) {
    return std::tuple(file.stamp <= now, file.stamp, file.number);
  };
  std::sort(kept.begin(), kept.end(),
            [&](const Kept& a, const Kept& b) { return key(a) < key(b); });
  return kept;
}

bool LogFile::parseName(const std::string& name, Kept& out) const {
  std::string_view rest = name;
  if (!rest.starts_with(_settings.baseName) || !rest.ends_with(kSuffix)) return false;
  rest.remove_prefix(_settings.baseName.size());
  if (rest.size() < 1 + kStampDigits + 2 + kSuffix.size() || rest[0] != '-' ||
      rest[1 + kStampDigits] != '-')
    return false;
  const std::string_view stamp = rest.substr(1, kStampDigits);
  rest.remove_prefix(kStampDigits + 2);
  rest.remove_suffix(kSuffix.size());
  if (!allDigits(stamp) || !allDigits(rest) || rest.size() > 10) return false;
  out.name = name;
  out.stamp = stamp;
  out.number = static_cast<uint64_t>(number(rest));
  return true;
}

std::string LogFile::unusedPath() {
  std::string path;
  for (size_t i = 0; i < kMaxNameAttempts; ++i) {
    const std::string stamp = expandDatePattern("%M%S-%T", _clock.wallMs()).toUtf8();
    path = fullPath(_settings.baseName + "-" + stamp + std::string(kSuffix));
    if (!platform::fileExists(_files, path)) break;
  }
  return path;
}

std::string LogFile::fullPath(const std::string& name) const {
  return platform::joinPath(_files, {_settings.directory, name});
}

}  // namespace korvane::eventlog
