// A log that is a text file, UTF-8 or UTF-16LE with a byte order mark.
//
// Opening: the file that the pointer names, or else the type's current log file as the
// settings know it. Through the pointer's name the encoding is seen, once the first bytes are
// there; through the current file it is taken for UTF-8, since the test for the mark is then not
// made at the file's beginning (switchToLog is how a new log is begun). A log that cannot be opened
// is event 10185, once until its state changes, and every read retries.
//
// Lifetime: owns its pointer and the open file; files and settings outlive it. Closing does not
// write the pointer. Threads: one.
// Errors: FileError from reading ("readLineBuffered") and from writing the pointer.
//
//   FileLogSource source(HIDS_RT_LOG, files, settings.logs);
//   STRING line;
//   while (source.readRecord(line) > 0) use(line), line.clear();
//   source.savePointer();
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "config/log_type.h"
#include "logs/file_log_pointer.h"
#include "logs/line_reader.h"
#include "logs/log_source.h"
#include "logs/next_logs.h"
#include "platform/fwd.h"

namespace korvane {

class LogSettings;

class FileLogSource : public LogSource {
 public:
  FileLogSource(LogType type, platform::Files& files, const LogSettings& settings);
  ~FileLogSource() override;

  void openLog() override;
  void closeLog() override;
  int readRecord(STRING& line) override;
  bool isEOF() override;
  void savePointer() override;
  void switchToLog(const STRING& path) override;

  // The core of readRecord: the line as UTF-8 where it was read, valid until the next call. False
  // when there is nothing. A line without an end at the end of the file is handed out as it stands;
  // goTo(line.start) goes back before it.
  [[nodiscard]] bool readLine(SourceLine& line);
  void goTo(int64_t position);
  // The position behind the last line read.
  int64_t position() const { return _reader.position(); }
  bool isOpen() const { return _file != nullptr; }

  // The account of the lines before the saved position: as the pointer had it at the start, and as it
  // is to have it from the next write on, which is that of the position it belongs to.
  std::optional<StreamState> savedAccount() const;
  void setAccount(const StreamState& state);
  bool pointerDamaged() const { return _pointer && _pointer->damaged(); }

  // Keeps `position` as the next unread line, whatever has been read beyond it. durably: and returns
  // when the disk has that.
  void savePointerAt(int64_t position, bool durably = false);
  // Makes `path`, from this offset on, the pointer's log and returns when the disk has that; no log
  // is open then.
  void moveDurablyTo(const STRING& path, int64_t offset);
  // Does that again when it has thrown: before it is through, nothing may be removed that the
  // pointer on the disk still needs.
  void settleMove();
  // The same before names are written that lead on from the pointer's log. What fails is tried again
  // with the next call.
  void keepDurably();
  // Where the pointer stands; 0 for a type without one.
  int64_t savedOffset() const { return _pointer ? _pointer->position() : 0; }

  // Opens the pointer's log and no other. False when it cannot be opened now.
  [[nodiscard]] bool openPointersLog();
  // The open log is not the one that the pointer was saved for.
  bool isAnotherLog() const { return _isAnotherLog; }
  // Of the open file; 0 without one.
  int64_t size() const;
  uint64_t identity() const { return _identity; }
  // What the end of the open file says about what became of it.
  enum class FileState { same, grown, shrunken, replaced };
  FileState stateAtEnd();
  // What tells the open log, read so far, from any other: for the pointer when it is finished, for
  // the list of left logs when it is not.
  STRING mark();
  NextLogs::Place place();
  // True while the pointer's path still leads to the open file.
  bool pathIsOpenFile();
  void releaseMemory() { _reader.releaseMemory(); }

 protected:
  LogPointer* pointer() const override { return _pointer.get(); }

 private:
  [[nodiscard]] bool openNamed(const STRING& name, int64_t offset);
  void openCurrent(int64_t offset);
  void useFile(std::unique_ptr<platform::File> file, const STRING& name);
  int64_t offsetThatApplies(int64_t offset);
  [[nodiscard]] bool detectUtf16();
  void startReading(bool utf16, int64_t offset);
  void awaitMark();
  void reportOpenFailure(const STRING& path);
  void noteHead(int64_t position);
  void attachAccount();

  platform::Files& _files;
  const LogType _type;
  const LogSettings& _settings;
  std::unique_ptr<FileLogPointer> _pointer;
  bool _moveOutstanding = false;  // a move of the pointer is not on the disk yet
  int64_t _keptPosition = 0;
  std::unique_ptr<platform::File> _file;
  std::string _openPath;
  LineReader _reader;
  uint64_t _identity = 0;  // of the open file
  LogHead _head;           // of the pointer's log
  bool _isAnotherLog = false;
  std::optional<StreamState> _state;  // to be saved
  STRING _reportedPath;               // whose failed opening has been reported
  bool _markAwaited = false;  // the log was opened by its name before its first bytes were there
};

}  // namespace korvane
