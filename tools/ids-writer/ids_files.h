// The files of the IDS component that the agent looks at, as docs/file-formats.md has them:
// "ids.properties" with the names of the event logs, and the real-time logs
// "logs/KAVRTEvent-NNNNNN.csv", each of which is written until it is handed over to the next one.
// One thread. Failures are thrown as FileError.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/files.h"
#include "platform/platform.h"

namespace korvane::ids_writer {

enum class Encoding { utf8, utf16 };

class IdsFiles {
 public:
  // `system` must outlive the object. Folders and the settings file are made when missing; the log
  // named there is continued when it has the same encoding, otherwise handed over to a new one.
  IdsFiles(platform::Platform& system, const std::string& installRoot, Encoding encoding);

  // Appends UTF-8 lines, each with its end, in one write.
  void append(const std::string& lines);
  // Goes on in a new log: makes it, names it in the settings, then ends the old one with its
  // marker.
  void handOver();
  // True when the agent has finished with every log before this one, so that handing over loses
  // none.
  bool mayHandOver() const;

  const std::string& currentLog() const { return _path; }
  uint64_t made() const { return _made; }
  uint64_t bytes() const { return _bytes; }

 private:
  void begin(uint32_t number);
  bool resume();
  void mendEnd();
  void nameInSettings();
  std::string logPath(uint32_t number) const;
  bool agentReadsThisLog() const;
  void write(platform::File& file, Encoding encoding, const std::string& lines);

  platform::Platform& _system;
  const std::string _ids;
  const std::string _pointerFile;
  const Encoding _encoding;  // of new logs
  Encoding _fileEncoding = Encoding::utf8;
  uint32_t _number = 0;
  std::string _path;
  std::unique_ptr<platform::File> _file;
  uint64_t _made = 0;
  uint64_t _bytes = 0;
};

}  // namespace korvane::ids_writer
