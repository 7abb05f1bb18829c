#include "agentctl/own_log.h"

#include <algorithm>
#include <charconv>
#include <compare>
#include <map>
#include <memory>
#include <optional>

#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::agentctl {
namespace {

constexpr std::string_view kPrefix = "korvane-agent-";
constexpr std::string_view kSuffix = ".log";
constexpr size_t kStampDigits = 17;
constexpr size_t kFixedFields = 8;
constexpr uint64_t kFirstPiece = 64 * 1024;
constexpr uint64_t kMostAtOnce = 8u << 20;

// What puts the files of the series in order.
struct Begin {
  std::string stamp;
  uint64_t number = 0;
  friend auto operator<=>(const Begin&, const Begin&) = default;
};

// Nothing for a name that is not of the series.
std::optional<Begin> beginOf(std::string_view name) {
  if (!name.starts_with(kPrefix) || !name.ends_with(kSuffix)) return std::nullopt;
  name.remove_prefix(kPrefix.size());
  name.remove_suffix(std::min(kSuffix.size(), name.size()));
  if (name.size() < kStampDigits + 2 || name[kStampDigits] != '-') return std::nullopt;
  Begin begin{std::string(name.substr(0, kStampDigits)), 0};
  name.remove_prefix(kStampDigits + 1);
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), begin.number);
  const bool good = error == std::errc() && end == name.data() + name.size() &&
                    begin.stamp.find_first_not_of("0123456789") == std::string::npos;
  return good ? std::optional(begin) : std::nullopt;
}

// The next field of a line of separated values; a quoted one may hold commas and doubled quotes.
std::string nextField(std::string_view& rest) {
  std::string field;
  const bool quoted = rest.starts_with('"');
  size_t i = quoted ? 1 : 0;
  for (; i < rest.size(); ++i) {
    if (!quoted && rest[i] == ',') break;
    if (quoted && rest[i] == '"' && (i + 1 >= rest.size() || rest[++i] != '"')) break;
    field += rest[i];
  }
  rest.remove_prefix(std::min(i + 1, rest.size()));
  return field;
}

std::string readFrom(platform::Files& files, const std::string& path, uint64_t offset,
                     uint64_t most) {
  std::unique_ptr<platform::File> file;
  platform::FileInfo info;
  if (files.open(path, platform::OpenMode::read, file) != 0 || file->info(info) != 0 ||
      info.size <= offset)
    return {};
  std::string bytes(static_cast<size_t>(std::min(info.size - offset, most)), '\0');
  size_t got = 0;
  if (file->seek(static_cast<int64_t>(offset)) != 0 ||
      file->read(bytes.data(), bytes.size(), got) != 0)
    return {};
  bytes.resize(got);
  return bytes;
}

uint64_t sizeOf(platform::Files& files, const std::string& path) {
  platform::FileInfo info;
  return files.info(path, info) == 0 ? info.size : 0;
}

void parseLines(std::string_view bytes, const RecordFilter& wanted, std::vector<LogRecord>& out) {
  while (!bytes.empty()) {
    const size_t end = std::min(bytes.find('\n'), bytes.size());
    LogRecord record;
    if (parseRecord(bytes.substr(0, end), record) && wanted(record))
      out.push_back(std::move(record));
    bytes.remove_prefix(std::min(end + 1, bytes.size()));
  }
}

// The newest records of one file: more and more of its end is read until there are enough.
std::vector<LogRecord> newestOf(platform::Files& files, const std::string& path, size_t count,
                                const RecordFilter& wanted) {
  const uint64_t size = sizeOf(files, path);
  std::vector<LogRecord> found;
  for (uint64_t piece = kFirstPiece;; piece *= 4) {
    const uint64_t from = piece < size ? size - piece : 0;
    const std::string bytes = readFrom(files, path, from, size - from);
    const size_t begin = from == 0 ? 0 : std::min(bytes.find('\n'), bytes.size());
    found.clear();
    parseLines(std::string_view(bytes).substr(begin), wanted, found);
    if (from == 0 || found.size() >= count) break;
  }
  if (found.size() > count)
    found.erase(found.begin(), found.end() - static_cast<std::ptrdiff_t>(count));
  return found;
}

}  // namespace

bool parseRecord(std::string_view line, LogRecord& out) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::vector<std::string> fields;
  while (!line.empty()) fields.push_back(nextField(line));
  if (fields.size() < kFixedFields - 1 || fields[0].size() != 4) return false;
  fields.resize(std::max(fields.size(), kFixedFields));
  out.type = fields[0];
  std::from_chars(fields[1].data(), fields[1].data() + fields[1].size(), out.sequence);
  out.at = fields[2];
  std::from_chars(fields[3].data(), fields[3].data() + fields[3].size(), out.number);
  out.source = fields[4];
  out.process = fields[5];
  out.thread = fields[6];
  out.text = fields[7];
  out.insertions.assign(fields.begin() + kFixedFields, fields.end());
  return out.isTrace() || out.isComplaint() || out.type == "AINF";
}

std::vector<std::string> ownLogFiles(platform::Files& files, const std::string& directory) {
  std::vector<platform::DirectoryEntry> entries;
  std::map<Begin, std::string> paths;
  // A folder that is not there has no logs.
  ignoreResult(files.list(directory, entries));
  for (const platform::DirectoryEntry& entry : entries) {
    const std::optional<Begin> begin = beginOf(entry.name);
    if (begin && !entry.isDirectory)
      paths[*begin] = platform::joinPath(files, {directory, entry.name});
  }
  std::vector<std::string> inOrder;
  for (const auto& [begin, path] : paths) inOrder.push_back(path);
  return inOrder;
}

std::vector<LogRecord> newestRecords(platform::Files& files, const std::string& directory,
                                     size_t count, const RecordFilter& wanted) {
  const std::vector<std::string> paths = ownLogFiles(files, directory);
  std::vector<LogRecord> all;
  for (auto path = paths.rbegin(); path != paths.rend() && all.size() < count; ++path) {
    const std::vector<LogRecord> older = newestOf(files, *path, count - all.size(), wanted);
    all.insert(all.begin(), older.begin(), older.end());
  }
  return all;
}

LogFollower::LogFollower(platform::Files& files, std::string directory)
    : _files(files), _directory(std::move(directory)) {
  const std::vector<std::string> paths = ownLogFiles(files, _directory);
  if (paths.empty()) return;
  _path = paths.back();
  const uint64_t size = sizeOf(files, _path);
  const uint64_t from = size > kFirstPiece ? size - kFirstPiece : 0;
  // A line that is being written is taken when it is whole.
  const std::string tail = readFrom(files, _path, from, kFirstPiece);
  const size_t lastEnd = tail.rfind('\n');
  _offset = lastEnd == std::string::npos ? size : from + lastEnd + 1;
}

std::string LogFollower::successor() const {
  const std::optional<Begin> present = beginOf(platform::fileNameOf(_path));
  for (const std::string& path : ownLogFiles(_files, _directory))
    if (!present || *present < *beginOf(platform::fileNameOf(path))) return path;
  return {};
}

void LogFollower::take(bool ended, std::vector<LogRecord>& out) {
  for (;;) {
    std::string bytes = readFrom(_files, _path, _offset, kMostAtOnce);
    const size_t read = bytes.size();
    const size_t end = bytes.rfind('\n');
    if (!ended || bytes.size() == kMostAtOnce) bytes.resize(end == std::string::npos ? 0 : end + 1);
    if (bytes.empty() && read < kMostAtOnce) return;
    _offset += bytes.empty() ? read : bytes.size();  // no record is that long
    parseLines(
        bytes, [](const LogRecord&) { return true; }, out);
  }
}

std::vector<LogRecord> LogFollower::next() {
  std::vector<LogRecord> records;
  if (!_path.empty()) take(false, records);
  for (std::string following; !(following = successor()).empty();) {
    // What came between the look and the new file's beginning.
    if (!_path.empty()) take(true, records);
    _path = following;
    _offset = 0;
    take(false, records);
  }
  return records;
}

std::string textOf(const LogRecord& record, const eventlog::Catalogue& catalogue) {
  const auto known = catalogue.find(record.number);
  return known == catalogue.end()
             ? record.text
             : eventlog::expandInsertions(known->second.text, record.insertions);
}

}  // namespace korvane::agentctl
