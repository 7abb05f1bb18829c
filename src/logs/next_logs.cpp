#include "logs/next_logs.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "eventlog/event_log.h"
#include "logs/log_mark.h"
#include "logs/text_hash.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr char kNextLogsSource[] = "NextLogs";

constexpr std::string_view kFirstLine = "korvane-next-logs 1\n";
constexpr std::string_view kPointerEnd = "filepointer", kEnd = "nextlogs";
constexpr uint64_t kMaxBytes = 4u << 20;

// Takes the text up to `separator` off `rest`.
std::string_view nextWord(std::string_view& rest, char separator) {
  const size_t end = std::min(rest.find(separator), rest.size());
  const std::string_view word = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return word;
}

template <class Number>
bool parseNumber(std::string_view& rest, Number& out) {
  const std::string_view word = nextWord(rest, ' ');
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), out);
  return error == std::errc() && end == word.data() + word.size() && out >= 0;
}

// The parts of a path, without those that ".." takes back.
std::vector<std::string_view> partsOf(std::string_view path) {
  std::vector<std::string_view> parts;
  while (!path.empty()) {
    const size_t end = std::min(path.find_first_of("/\\"), path.size());
    const std::string_view part = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (part == ".." && !parts.empty())
      parts.pop_back();
    else if (!part.empty() && part != ".")
      parts.push_back(part);
  }
  return parts;
}

std::string lastLine(std::string_view before) {
  return "end " + hexText(textHash(before)) + "\n";
}

}  // namespace

std::string NextLogs::pathBeside(const STRING& pointerFile) {
  std::string path = pointerFile.toUtf8();
  if (!path.ends_with(kPointerEnd)) return {};
  return path.replace(path.size() - kPointerEnd.size(), kPointerEnd.size(), kEnd);
}

// Null, or what is wrong with the text.
const char* NextLogs::parse(std::string_view text, Content& out) {
  if (!text.starts_with(kFirstLine)) return "its first line is not a list header";
  const size_t end = text.rfind("end ");
  if (end == std::string_view::npos || text.substr(end) != lastLine(text.substr(0, end)))
    return "it is truncated or modified";
  std::string_view rest = text.substr(kFirstLine.size(), end - kFirstLine.size());
  while (!rest.empty()) {
    std::string_view line = nextWord(rest, '\n');
    const std::string_view kind = nextWord(line, ' ');
    Left left{};
    if (kind == "left" &&
        !(parseNumber(line, left.place.offset) && parseNumber(line, left.place.size) &&
          parseNumber(line, left.place.identity) && parseNumber(line, left.place.before)))
      return "a log position is not a number";
    if (line.empty()) return "a name is missing";
    if (kind == "named") {
      out.named = STRING(line);
    } else if (kind == "next") {
      out.names.emplace_back(line);
    } else if (kind == "left") {
      left.name = STRING(line);
      out.left.push_back(left);
    } else {
      return "a line is of unknown kind";
    }
  }
  if (out.names.size() > kMaxNames || out.left.size() > kMaxLeft) return "it has too many lines";
  return nullptr;
}

std::vector<STRING> NextLogs::namesIn(platform::Files& files, const std::string& path) {
  std::string text;
  Content content;
  if (path.empty() || platform::readWholeFile(files, path, kMaxBytes, text) != 0) return {};
  return parse(text, content) ? std::vector<STRING>() : content.names;
}

void NextLogs::load(const STRING& current) {
  if (_path.empty()) return;
  std::string text;
  const int error = platform::readWholeFile(_files, _path, kMaxBytes, text);
  if (error == ENOENT) return;
  Content content;
  const std::string failure = "error " + std::to_string(error);
  const char* const wrong = error != 0 ? failure.c_str() : parse(text, content);
  _unusable = wrong != nullptr;
  if (wrong) {
    eventlog::event(EventId::logListUnusable, kNextLogsSource, {_path, std::string(wrong)});
    return;
  }
  _named = content.named;
  _names = content.names;
  _left = content.left;
  if (!_names.empty() && same(_names.front(), current)) drop(1);
  std::erase_if(_left, [&](const Left& left) { return same(left.name, current); });
}

std::string NextLogs::text() const {
  std::string text(kFirstLine);
  if (!_named.empty()) text += "named " + _named.toUtf8() + "\n";
  for (const STRING& name : _names) text += "next " + name.toUtf8() + "\n";
  for (const Left& left : _left)
    text += "left " + std::to_string(left.place.offset) + " " + std::to_string(left.place.size) +
            " " + std::to_string(left.place.identity) + " " + std::to_string(left.place.before) +
            " " + left.name.toUtf8() + "\n";
  return text + lastLine(text);
}

void NextLogs::save() {
  if (_path.empty() || !_changed) return;
  if (const int error = platform::writeFileAtomically(_files, _path, text())) {
    if (!_failureReported)
      eventlog::event(EventId::logListNotWritten, kNextLogsSource, {_path, error});
    _failureReported = true;
    return;
  }
  _failureReported = _changed = false;
}

bool NextLogs::same(const STRING& a, const STRING& b) {
  if (a == b) return true;
  const std::string first = a.toUtf8(), second = b.toUtf8();
  return platform::fileNameOf(first) == platform::fileNameOf(second) &&
         partsOf(first) == partsOf(second);
}

std::optional<size_t> NextLogs::indexOf(const STRING& name) const {
  for (size_t i = 0; i < _names.size(); ++i)
    if (same(_names[i], name)) return i;
  return {};
}

void NextLogs::note(const STRING& name, const STRING& current) {
  if (name.empty() || name == _named) return;
  _named = name;
  _changed = true;
  if (!same(name, current) || !_names.empty()) append(name);
}

void NextLogs::append(const STRING& name) {
  if (indexOf(name)) return;
  if (_names.size() < kMaxNames) {
    _names.push_back(name);
    _changed = true;
    return;
  }
  // The name that the settings show comes again and again.
  if (std::exchange(_lastDropped, name) != name) _dropped.push_back(name);
  if (!_fullReported) eventlog::event(EventId::logListFull, kNextLogsSource, {kMaxNames, name});
  _fullReported = true;
}

void NextLogs::noteSuccessor(const STRING& name) {
  if (indexOf(name)) return;
  _names.insert(_names.begin(), name);
  _changed = true;
}

void NextLogs::noteReturn(const STRING& name, size_t index) {
  if (indexOf(name)) return;
  _names.insert(_names.begin() + static_cast<std::ptrdiff_t>(index) + 1, name);
  _changed = true;
}

void NextLogs::drop(size_t count) {
  _names.erase(_names.begin(), _names.begin() + static_cast<std::ptrdiff_t>(count));
  _fullReported = false;
  _changed = true;
}

void NextLogs::leave(const STRING& name, const Place& place) {
  std::erase_if(_left, [&](const Left& left) { return same(left.name, name); });
  if (_left.size() == kMaxLeft) _left.erase(_left.begin());
  _left.push_back({name, place});
  _changed = true;
}

std::vector<NextLogs::Left>::const_iterator NextLogs::findLeft(const STRING& name) const {
  return std::find_if(_left.begin(), _left.end(),
                      [&](const Left& left) { return same(left.name, name); });
}

bool NextLogs::isLeft(const STRING& name) const {
  return findLeft(name) != _left.end();
}

bool NextLogs::isExhausted(const STRING& name) const {
  const auto left = findLeft(name);
  platform::FileInfo now;
  return left != _left.end() && _files.info(name.toUtf8(), now) == 0 && isUnchanged(*left, now) &&
         static_cast<uint64_t>(left->place.offset) == now.size;
}

bool NextLogs::isUnchanged(const Left& left, const platform::FileInfo& now) const {
  return now.size == left.place.size && beginOf(left, now) == left.place.offset;
}

// Where reading begins in the file that has the name now: where it ended when that is the
// file that was left.
int64_t NextLogs::beginOf(const Left& left, const platform::FileInfo& now) const {
  const Place& place = left.place;
  std::unique_ptr<platform::File> file;
  if (now.identity != place.identity || now.size < place.size) return 0;
  if (_files.open(left.name.toUtf8(), platform::OpenMode::read, file) != 0) return 0;
  return hashBefore(*file, place.offset) == place.before ? place.offset : 0;
}

void NextLogs::recallGrown(const STRING& current) {
  platform::FileInfo now;
  for (auto left = _left.rbegin(); left != _left.rend(); ++left) {
    if (_files.info(left->name.toUtf8(), now) != 0 || now.size == 0) continue;
    if (isUnchanged(*left, now)) continue;
    if (!same(left->name, current)) noteSuccessor(left->name);
  }
}

int64_t NextLogs::enter(const STRING& name) {
  const auto left = findLeft(name);
  if (left == _left.end()) return 0;
  platform::FileInfo now;
  const bool there = _files.info(name.toUtf8(), now) == 0;
  const int64_t offset = there ? beginOf(*left, now) : 0;
  _left.erase(left);
  _changed = true;
  return offset;
}

}  // namespace korvane
