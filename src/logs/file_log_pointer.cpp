#include "logs/file_log_pointer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "eventlog/event_log.h"
#include "logs/text_hash.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "util/errors.h"

namespace korvane {
namespace {

// The record's fields, as offsets behind the leading byte.
constexpr size_t kStampUnits = 64;
constexpr size_t kNameAt = kPointerNameAt - 1;
constexpr size_t kOffsetAt = 1024;
constexpr size_t kReservedAt = 1028;
constexpr size_t kCountAt = 1032;
constexpr size_t kEntriesAt = 1036;
constexpr size_t kEntryBytes = 2 * kPointerNameUnits;
constexpr size_t kStartAt = 4108;
constexpr size_t kEndAt = 4236;
constexpr uint32_t kMaxEntries = 2;
// In the room of the third entry, which no count reaches: eight bytes that tell that a position
// follows, the position, and a hash of the log's name that it belongs to.
constexpr size_t kPositionAt = kEntriesAt + kMaxEntries * kEntryBytes;
constexpr std::string_view kPositionTag = "position";
constexpr size_t kPositionBytes = 24;
// Behind it the account: a tag, a hash of the rest, which the position and the log's name go into, and
// the numbers.
constexpr size_t kAccountAt = kPositionAt + kPositionBytes;
constexpr std::string_view kAccountTag = "account1";
constexpr size_t kNumbersAt = kAccountAt + 16;
constexpr size_t kNumbers = 7 + 2 * kLossCauses;
constexpr size_t kNumberBytes = 8;
constexpr int64_t kMaxOffset = std::numeric_limits<int32_t>::max();

uint32_t load32(const uint8_t* at) {
  return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

void store32(uint8_t* at, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) *at++ = static_cast<uint8_t>(value >> shift);
}

uint64_t load64(const uint8_t* at) {
  return load32(at) | static_cast<uint64_t>(load32(at + 4)) << 32;
}

void store64(uint8_t* at, uint64_t value) {
  store32(at, static_cast<uint32_t>(value));
  store32(at + 4, static_cast<uint32_t>(value >> 32));
}

bool isTagged(const uint8_t* at, std::string_view tag = kPositionTag) {
  return std::memcmp(at, tag.data(), tag.size()) == 0;
}

// The numbers of an account, in their order.
template <class Visit>
void visitNumbers(PointerAccount& account, Visit&& visit) {
  StreamState& state = account.state;
  auto since = static_cast<uint64_t>(state.sinceMs);
  for (uint64_t* number : {&state.number, &state.read, &state.delivered, &since,
                           &account.head.identity, &account.head.hash, &account.head.bytes})
    visit(*number);
  state.sinceMs = static_cast<int64_t>(since);
  for (LossSum& sum : state.lost) {
    visit(sum.lines);
    visit(sum.uncounted);
  }
}

// The text up to its NUL; the field's last unit counts as one.
STRING loadText(const uint8_t* at, size_t units) {
  std::u16string text;
  for (size_t i = 0; i + 1 < units; ++i) {
    const auto unit = static_cast<char16_t>(at[2 * i] | at[2 * i + 1] << 8);
    if (unit == 0) break;
    text += unit;
  }
  return STRING(std::move(text));
}

void storeText(uint8_t* at, size_t units, const STRING& text) {
  std::memset(at, 0, 2 * units);
  const size_t length = std::min(text.length(), units - 1);
  for (size_t i = 0; i < length; ++i) {
    at[2 * i] = static_cast<uint8_t>(text.utf16()[i]);
    at[2 * i + 1] = static_cast<uint8_t>(text.utf16()[i] >> 8);
  }
}

}  // namespace

FileLogPointer::FileLogPointer(const STRING& pointerFilePath)
    : FileLogPointer(platform::current().files, pointerFilePath) {}

FileLogPointer::FileLogPointer(platform::Files& files, const STRING& pointerFilePath)
    : FileLogPointer(files, pointerFilePath, platform::OpenMode::readWrite) {}

FileLogPointer::FileLogPointer(platform::Files& files, const STRING& pointerFilePath,
                               platform::OpenMode mode)
    : _files(&files) {
  _pointerFile = pointerFilePath;
  load(mode);
}

FileLogPointer::FileLogPointer(const FileLogPointer&) = default;
FileLogPointer& FileLogPointer::operator=(const FileLogPointer&) = default;
FileLogPointer::~FileLogPointer() = default;

void FileLogPointer::load(platform::OpenMode mode) {
  if (_pointerFile.empty()) return;
  std::unique_ptr<platform::File> file;
  const bool keep = mode == platform::OpenMode::readWrite;
  const int error = _files->open(_pointerFile.toUtf8(), mode, file);
  if (error == ENOENT || (error != 0 && !keep)) return;
  _damaged = true;
  if (error != 0) {
    eventlog::event(EventId::pointerFileNotOpened, "FileLogPointer", {_pointerFile});
    return;
  }
  size_t got = 0;
  if (file->read(&_leadingByte, 1, got) != 0 ||
      file->read(_record.data(), _record.size(), got) != 0) {
    _record.fill(0);
    eventlog::event(EventId::pointerFileNotOpened, "FileLogPointer", {_pointerFile});
    return;
  }
  const uint32_t count = load32(&_record[kCountAt]);
  if (count > kMaxEntries) {
    const int offset = getOffset();
    _record.fill(0);
    setOffset(offset);
    return;
  }
  _damaged = got > 0 && got < _record.size();
  platform::FileInfo info;
  _overlong = file->info(info) == 0 && info.size > kFileBytes;
  if (keep) _stream = std::move(file);
  _currentLogName = loadText(&_record[kNameAt], kPointerNameUnits);
  for (uint32_t i = 0; i < count; ++i)
    _logNames.push_back(loadText(&_record[kEntriesAt + i * kEntryBytes], kPointerNameUnits));
  _startTimeStamp = loadText(&_record[kStartAt], kStampUnits);
  _endTimeStamp = loadText(&_record[kEndAt], kStampUnits);
  loadPosition();
  loadAccount();
}

// What another program left behind, or wrote an offset over, does not count.
void FileLogPointer::loadPosition() {
  _position = getOffset();
  const uint8_t* const at = &_record[kPositionAt];
  const auto position = static_cast<int64_t>(load64(at + 8));
  if (_position == kMaxOffset && isTagged(at) && position > kMaxOffset &&
      load64(at + 16) == textHash(_currentLogName.toUtf8()))
    _position = position;
}

uint64_t FileLogPointer::accountHash() const {
  std::string bytes(reinterpret_cast<const char*>(&_record[kNumbersAt]), kNumbers * kNumberBytes);
  uint8_t position[kNumberBytes];
  store64(position, static_cast<uint64_t>(_position));
  bytes.append(reinterpret_cast<const char*>(position), sizeof position);
  return textHash(bytes + _currentLogName.toUtf8());
}

void FileLogPointer::loadAccount() {
  const uint8_t* at = &_record[kAccountAt];
  if (!isTagged(at, kAccountTag) || load64(at + kNumberBytes) != accountHash()) return;
  at = &_record[kNumbersAt];
  visitNumbers(_savedAccount.emplace(), [&](uint64_t& number) {
    number = load64(at);
    at += kNumberBytes;
  });
}

void FileLogPointer::storeAccount() {
  uint8_t* at = &_record[kNumbersAt];
  visitNumbers(*_account, [&](const uint64_t& number) {
    store64(at, number);
    at += kNumberBytes;
  });
  std::memcpy(&_record[kAccountAt], kAccountTag.data(), kAccountTag.size());
  store64(&_record[kAccountAt + kNumberBytes], accountHash());
}

STRING FileLogPointer::getCurrentLogName() const {
  return _currentLogName;
}
void FileLogPointer::setCurrentLogName(const STRING& name) {
  _currentLogName = name;
}
STRING FileLogPointer::getStartTimeStamp() {
  return _startTimeStamp;
}
STRING FileLogPointer::getEndTimeStamp() {
  return _endTimeStamp;
}
void FileLogPointer::setStartTimeStamp(const STRING& text) {
  _startTimeStamp = text;
}
void FileLogPointer::setEndTimeStamp(const STRING& text) {
  _endTimeStamp = text;
}

int FileLogPointer::getOffset() {
  return static_cast<int32_t>(load32(&_record[kOffsetAt]));
}

void FileLogPointer::setOffset(int offset) {
  setPosition(offset);
}

int64_t FileLogPointer::position() const {
  return _position;
}

void FileLogPointer::setPosition(int64_t position) {
  _position = position;
  store32(&_record[kOffsetAt], static_cast<uint32_t>(std::min(position, kMaxOffset)));
}

void FileLogPointer::addOffset(int amount) {
  const int64_t sum = int64_t{getOffset()} + amount;
  setOffset(static_cast<int>(std::clamp<int64_t>(sum, std::numeric_limits<int32_t>::min(),
                                                 std::numeric_limits<int32_t>::max())));
}

void FileLogPointer::openForWriting() {
  std::unique_ptr<platform::File> file;
  const int error = _files->open(_pointerFile.toUtf8(), platform::OpenMode::create, file);
  if (error != 0)
    throw FileError(error, "writePointer",
                    "Failed to open file pointer file" + _pointerFile +
                        " Error Code : " + STRING::fromInt(error));
  _stream = std::move(file);
}

void FileLogPointer::composeRecord() {
  storeText(&_record[kNameAt], kPointerNameUnits, _currentLogName);
  store32(&_record[kReservedAt], 0);
  store32(&_record[kCountAt], static_cast<uint32_t>(_logNames.size()));
  for (size_t i = 0; i < _logNames.size(); ++i)
    storeText(&_record[kEntriesAt + i * kEntryBytes], kPointerNameUnits, _logNames[i]);
  uint8_t* const at = &_record[kPositionAt];
  if (_position > kMaxOffset) {
    std::memcpy(at, kPositionTag.data(), kPositionTag.size());
    store64(at + 8, static_cast<uint64_t>(_position));
    store64(at + 16, textHash(_currentLogName.toUtf8()));
  } else if (isTagged(at)) {
    std::memset(at, 0, kPositionBytes);
  }
  if (_account) storeAccount();
  storeText(&_record[kStartAt], kStampUnits, _startTimeStamp);
  storeText(&_record[kEndAt], kStampUnits, _endTimeStamp);
}

void FileLogPointer::throwWriteError(int error) const {
  throw FileError(error, "writePointer",
                  "Failed to write to file pointer file" + _pointerFile +
                      " Error Code : " + STRING::fromInt(error));
}

const std::optional<PointerAccount>& FileLogPointer::savedAccount() const {
  return _savedAccount;
}

void FileLogPointer::setAccount(const PointerAccount& account) {
  _account = account;
}

bool FileLogPointer::damaged() const {
  return _damaged;
}

void FileLogPointer::writePointer() {
  if (!_stream) openForWriting();
  composeRecord();
  int error = _stream->seek(0);
  if (error == 0) error = _stream->write(&_leadingByte, 1);
  if (error == 0) error = _stream->write(_record.data(), _record.size());
  if (error == 0 && _overlong) error = _stream->truncate(kFileBytes);
  if (error != 0) throwWriteError(error);
  _overlong = false;
}

void FileLogPointer::writePointerDurably() {
  writePointer();
  int error = _stream->flush();
  if (error == 0 && !_directoryFlushed)
    error = _files->flushDirectory(platform::directoryOf(_pointerFile.toUtf8()));
  if (error != 0) throwWriteError(error);
  _directoryFlushed = true;
}

}  // namespace korvane
