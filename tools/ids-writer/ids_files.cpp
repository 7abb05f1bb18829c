#include "ids-writer/ids_files.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "ids-writer/event_maker.h"
#include "ids-writer/settings_file.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "util/utf8.h"

namespace korvane::ids_writer {
namespace {

using platform::OpenMode;

constexpr std::string_view kEventKey = "ids.service.eventfile.name";
constexpr std::string_view kRealTimeKey = "ids.service.rteventfile.name";
constexpr std::string_view kLogPrefix = "KAVRTEvent-";
constexpr std::string_view kLogSuffix = ".csv";

// In the agent's pointer file: a zero-terminated UTF-16 name behind the leading byte.
constexpr uint64_t kMaxPointerBytes = 65536;
constexpr size_t kPointerNameOffset = 1;
constexpr size_t kPointerNameBytes = 1024;

std::optional<uint32_t> numberOf(std::string_view name) {
  if (!name.starts_with(kLogPrefix) || !name.ends_with(kLogSuffix)) return std::nullopt;
  name.remove_prefix(kLogPrefix.size());
  name.remove_suffix(kLogSuffix.size());
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return number;
}

std::string logName(uint32_t number) {
  const std::string digits = std::to_string(number);
  return std::string(kLogPrefix) + std::string(6 - std::min<size_t>(6, digits.size()), '0') +
         digits + std::string(kLogSuffix);
}

}  // namespace

IdsFiles::IdsFiles(platform::Platform& system, const std::string& installRoot, Encoding encoding)
    : _system(system),
      _ids(platform::joinPath(system.files, {installRoot, "IDS"})),
      _pointerFile(platform::joinPath(system.files, {installRoot, "IPS", "hidslog1rtfilepointer"})),
      _encoding(encoding) {
  for (const char* folder : {"bin", "logs"}) {
    const std::string path = platform::joinPath(_system.files, {_ids, folder});
    if (const int error = _system.files.makeDirectories(path); error != 0)
      failFile(error, "make", path);
  }
  if (resume()) return;
  uint32_t number = 1;
  while (platform::fileExists(_system.files, logPath(number))) ++number;
  begin(number);
  nameInSettings();
}

std::string IdsFiles::logPath(uint32_t number) const {
  return platform::joinPath(_system.files, {_ids, "logs", logName(number)});
}

void IdsFiles::begin(uint32_t number) {
  std::unique_ptr<platform::File> file;
  const std::string path = logPath(number);
  if (const int error = _system.files.open(path, OpenMode::create, file); error != 0)
    failFile(error, "create", path);
  if (_encoding == Encoding::utf16)
    if (const int error = file->write("\xFF\xFE", 2); error != 0) failFile(error, "write", path);
  write(*file, _encoding, EventMaker::marker("MSOF", _system.clock.wallMs()) + "\n");
  _file = std::move(file);
  _fileEncoding = _encoding;
  _path = path;
  _number = number;
  ++_made;
}

bool IdsFiles::resume() {
  const std::string settings = readSettings(_system, _ids);
  const auto number = numberOf(platform::fileNameOf(settingIn(settings, kRealTimeKey)));
  platform::FileInfo info;
  if (!number || _system.files.info(logPath(*number), info) != 0) return false;
  _number = *number;
  _path = logPath(*number);
  if (const int error = _system.files.open(_path, OpenMode::readWrite, _file); error != 0)
    failFile(error, "open", _path);
  char mark[2] = {};
  size_t got = 0;
  if (const int error = _file->read(mark, sizeof mark, got); error != 0)
    failFile(error, "read", _path);
  const bool isUtf16 = got == 2 && mark[0] == '\xFF' && mark[1] == '\xFE';
  _fileEncoding = isUtf16 ? Encoding::utf16 : Encoding::utf8;
  mendEnd();
  if (_fileEncoding != _encoding) handOver();
  return true;
}

// A writer that was ended in the middle of a line leaves it without its end.
void IdsFiles::mendEnd() {
  platform::FileInfo info;
  if (const int error = _file->info(info); error != 0) failFile(error, "look at", _path);
  const int64_t unit = _fileEncoding == Encoding::utf16 ? 2 : 1;
  const int64_t whole = static_cast<int64_t>(info.size) / unit * unit;
  char last[2] = {};
  size_t got = 0;
  int error = _file->truncate(static_cast<uint64_t>(whole));
  if (error == 0 && whole > 0) error = _file->seek(whole - unit);
  if (error == 0 && whole > 0) error = _file->read(last, static_cast<size_t>(unit), got);
  if (error == 0) error = _file->seek(whole);
  if (error != 0) failFile(error, "mend the end of", _path);
  if (whole > 0 && last[0] != '\n') append("\n");
}

void IdsFiles::nameInSettings() {
  const std::string up =
      std::string("..") + _system.files.separator() + "logs" + _system.files.separator();
  changeSettings(_system, _ids, [&](const std::string& text) {
    return withSetting(withSetting(text, kEventKey, up + "KAVEvent.csv"), kRealTimeKey,
                       up + logName(_number));
  });
}

void IdsFiles::write(platform::File& file, Encoding encoding, const std::string& lines) {
  std::string bytes = lines;
  if (encoding == Encoding::utf16) {
    bytes.clear();
    for (const char16_t unit : utf8ToUtf16(lines)) {
      bytes += static_cast<char>(unit & 0xFF);
      bytes += static_cast<char>(unit >> 8);
    }
  }
  if (const int error = file.write(bytes.data(), bytes.size()); error != 0)
    failFile(error, "write", _path);
  _bytes += bytes.size();
}

void IdsFiles::append(const std::string& lines) {
  write(*_file, _fileEncoding, lines);
}

void IdsFiles::handOver() {
  const std::unique_ptr<platform::File> old = std::move(_file);
  const Encoding oldEncoding = _fileEncoding;
  begin(_number + 1);
  nameInSettings();
  write(*old, oldEncoding,
        EventMaker::marker("MEOF", _system.clock.wallMs(), logName(_number)) + "\n");
}

bool IdsFiles::agentReadsThisLog() const {
  std::string bytes;
  if (platform::readWholeFile(_system.files, _pointerFile, kMaxPointerBytes, bytes) != 0)
    return false;
  std::u16string name;
  for (size_t at = kPointerNameOffset;
       at + 1 < std::min(bytes.size(), kPointerNameOffset + kPointerNameBytes); at += 2) {
    const auto unit = static_cast<char16_t>(static_cast<unsigned char>(bytes[at]) |
                                            static_cast<unsigned char>(bytes[at + 1]) << 8);
    if (unit == 0) break;
    name += unit;
  }
  return numberOf(platform::fileNameOf(utf16ToUtf8(name))) == _number;
}

bool IdsFiles::mayHandOver() const {
  return agentReadsThisLog();
}

}  // namespace korvane::ids_writer
