// A read pointer kept in a file of exactly 4,365 bytes (docs/file-formats.md has the layout).
//
// The file is opened when the pointer is made, rewritten in place by writePointer() and kept open;
// copies share the open file. A missing file means the defaults; one that cannot be opened is event
// 10176 and the defaults; one whose name count is beyond 2 counts as damaged: its offset stays, its
// texts are empty, and the next write recreates it. Texts that do not fit their field are cut.
// Threads: one. Errors: writePointer() throws FileError with errno and the operation
// "writePointer".
//
//   FileLogPointer pointer("/opt/agent/IPS/hidslog1rtfilepointer");
//   pointer.setOffset(4711);
//   pointer.writePointer();
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "config/pointer_file.h"
#include "logs/log_pointer.h"
#include "logs/pointer_account.h"
#include "platform/fwd.h"
#include "util/export.h"

namespace korvane {

class KORVANE_EXPORT FileLogPointer : public LogPointer {
 public:
  // On the files of the current run.
  explicit FileLogPointer(const STRING& pointerFilePath);
  FileLogPointer(platform::Files& files, const STRING& pointerFilePath);
  // With OpenMode::read the file is only looked at: it is not kept open and a failure is
  // not an event.
  FileLogPointer(platform::Files& files, const STRING& pointerFilePath, platform::OpenMode mode);
  FileLogPointer(const FileLogPointer&);
  FileLogPointer& operator=(const FileLogPointer&);
  ~FileLogPointer() override;

  STRING getCurrentLogName() const override;
  int getOffset() override;
  void writePointer() override;
  void addOffset(int amount) override;
  void setCurrentLogName(const STRING& name) override;
  void setOffset(int offset) override;
  STRING getStartTimeStamp() override;
  STRING getEndTimeStamp() override;
  void setStartTimeStamp(const STRING& text) override;
  void setEndTimeStamp(const STRING& text) override;

  // The offset in full: a position beyond 2^31 - 1 saturates in getOffset() alone.
  int64_t position() const;
  void setPosition(int64_t position);

  // The account of the lines before the position (docs/ledger.md), as the file has it; nothing when it
  // does not belong to that position and log.
  const std::optional<PointerAccount>& savedAccount() const;
  // Goes with every write from now on, as that of the position written.
  void setAccount(const PointerAccount& account);
  // A file was there, and what it says is lost.
  bool damaged() const;

  // Writes the pointer and returns when it is on the disk.
  void writePointerDurably();

  static constexpr size_t kFileBytes = kPointerFileBytes;
  static constexpr size_t kRecordBytes = kFileBytes - 1;

 private:
  void load(platform::OpenMode mode);
  void openForWriting();
  void composeRecord();
  void loadPosition();
  void loadAccount();
  void storeAccount();
  uint64_t accountHash() const;
  [[noreturn]] void throwWriteError(int error) const;

  platform::Files* _files;
  uint8_t _leadingByte = 0;
  std::array<uint8_t, kRecordBytes> _record{};
  std::shared_ptr<platform::File> _stream;
  bool _directoryFlushed = false;
  bool _overlong = false;  // the file that was read is longer than a pointer; cut at the next write
  bool _damaged = false;
  int64_t _position = 0;
  std::optional<PointerAccount> _savedAccount;
  std::optional<PointerAccount> _account;  // what is to be written
  STRING _currentLogName;
  std::vector<STRING> _logNames;
  STRING _startTimeStamp;
  STRING _endTimeStamp;
};

}  // namespace korvane
