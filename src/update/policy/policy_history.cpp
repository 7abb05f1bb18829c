#include "update/policy/policy_history.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>

#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/policy_files.h"
#include "util/errors.h"

namespace korvane {
namespace {

constexpr std::string_view kHeading =
    "time,plus file,policy name,version,result code,error text,minus file,items file,duration ms\n";
constexpr size_t kFields = 9;
constexpr char kCreating[] = "PolicyProcessor::InitializePolicyHistory (creating directory)";
constexpr char kWriting[] = "PolicyProcessor::UpdateHistory";

void check(int error, const char* operation, const std::string& path) {
  if (error != 0) throw FileError(error, operation, std::string(operation) + " " + path);
}

// Line ends and other control characters become blanks: a record is one line to whatever reads it.
void addField(std::string& line, const std::string& value) {
  if (!line.empty()) line += ',';
  line += '"';
  for (const char c : value) {
    if (c == '"') line += c;
    line += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
  }
  line += '"';
}

bool parseNumber(const std::string& text, int64_t& out) {
  const char* const end = text.data() + text.size();
  return !text.empty() && std::from_chars(text.data(), end, out).ptr == end;
}

bool endsWithLine(platform::File& file, uint64_t size) {
  char last = '\n';
  size_t got = 0;
  if (size == 0) return true;
  check(file.seek(static_cast<int64_t>(size) - 1), "seek", "");
  check(file.read(&last, 1, got), "read", "");
  return got == 1 && last == '\n';
}

}  // namespace

std::string historyLine(const HistoryRecord& record) {
  std::string line;
  for (const STRING* text : {&record.time, &record.plusFile, &record.name, &record.version})
    addField(line, text->toUtf8());
  addField(line, std::to_string(record.resultCode));
  addField(line, record.errorText.substr(0, PolicyHistory::kMaxErrorUnits).toUtf8());
  addField(line, record.minusFile.toUtf8());
  addField(line, record.itemsFile.toUtf8());
  addField(line, std::to_string(record.durationMs));
  return line + "\n";
}

std::vector<std::string> historyFields(std::string_view line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (size_t at = 0; at < line.size() && line[at] != '\n'; ++at) {
    if (line[at] != '"' && (quoted || line[at] != ',')) {
      fields.back() += line[at];
    } else if (line[at] == ',') {
      fields.emplace_back();
    } else if (quoted && at + 1 < line.size() && line[at + 1] == '"') {
      fields.back() += line[++at];
    } else {
      quoted = !quoted;
    }
  }
  return fields;
}

bool parseHistoryLine(std::string_view line, HistoryRecord& out) {
  if (!line.ends_with('\n')) return false;
  const std::vector<std::string> fields = historyFields(line);
  int64_t code = 0;
  HistoryRecord record;
  if (fields.size() != kFields || !parseNumber(fields[4], code) ||
      !parseNumber(fields[8], record.durationMs))
    return false;
  record.time = fields[0];
  record.plusFile = fields[1];
  record.name = fields[2];
  record.version = fields[3];
  record.resultCode = static_cast<int>(code);
  record.errorText = fields[5];
  record.minusFile = fields[6];
  record.itemsFile = fields[7];
  out = record;
  return true;
}

bool PolicyHistory::initialize() {
  _enabled = true;
  try {
    check(_files.makeDirectories(historyDirectory(_files)), "makeDirectories",
          historyDirectory(_files));
    for (const char* name : {ips, ids})
      begin(platform::joinPath(_files, {historyDirectory(_files), name}));
  } catch (const FileError& error) {
    disable(kCreating, error.errnoValue(), error.message().toUtf8());
  }
  return _enabled;
}

void PolicyHistory::begin(const std::string& path) {
  const Presence presence = presenceOf(_files, path);
  if (presence == Presence::present) return;
  check(presence == Presence::unknown ? EIO : 0, "info", path);
  check(platform::writeFileAtomically(_files, path, kHeading), "create", path);
}

void PolicyHistory::add(const char* file, const HistoryRecord& record) {
  if (!_enabled) {
    eventlog::trace(kWriting, "Policy History is Disabled.");
    return;
  }
  const std::string path = platform::joinPath(_files, {historyDirectory(_files), file});
  try {
    append(path, historyLine(record));
  } catch (const FileError& error) {
    disable(kWriting, error.errnoValue(), error.message().toUtf8());
  }
}

void PolicyHistory::append(const std::string& path, const std::string& line) {
  platform::FileInfo info;
  if (_files.info(path, info) == 0 && info.size + line.size() > kMaxHistoryBytes) {
    const std::string aside = path.substr(0, path.size() - std::strlen(".csv")) + ".1.csv";
    check(_files.replace(path, aside), "replace", path);
    check(_files.flushDirectory(historyDirectory(_files)), "flushDirectory",
          historyDirectory(_files));
  }
  begin(path);
  std::unique_ptr<platform::File> file;
  check(_files.open(path, platform::OpenMode::readWrite, file), "open", path);
  check(file->info(info), "info", path);
  const std::string text = endsWithLine(*file, info.size) ? line : "\n" + line;
  check(file->seek(static_cast<int64_t>(info.size)), "seek", path);
  check(file->write(text.data(), text.size()), "write", path);
  check(file->flush(), "flush", path);
}

void PolicyHistory::disable(const char* context, int error, const std::string& message) {
  eventlog::trace(context, "Caught Utils Exception- %d Message- %s: Disabling Policy History",
                  error, message);
  _enabled = false;
}

}  // namespace korvane
