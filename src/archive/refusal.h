// Why an archive was not used: the kind of fault as a number, the archive, the entry and
// the reason in words.
//
// A value type. The numbers are reported to the server and stay as they are.
#pragma once

#include <string>

namespace korvane::archive {

enum class Fault {
  none = 0,
  notAnArchive = 1,
  damagedDirectory = 2,
  tooManyEntries = 3,
  tooLarge = 4,
  packedTooTightly = 5,
  badName = 6,
  leavesDirectory = 7,
  absolutePath = 8,
  backslash = 9,
  reservedName = 10,
  notAFile = 11,  // a link, a device, a pipe
  duplicate = 12,
  encrypted = 13,
  unknownMethod = 14,
  wrongContent = 15,  // not the size or the checksum that the directory states
  missingEntry = 16,
  fileOperation = 17,  // the disk refused; `error` is the errno value
};

struct Refusal {
  Fault fault = Fault::none;
  std::string archive;
  std::string entry;  // empty when it concerns the whole archive
  std::string reason;
  int error = 0;

  int code() const { return static_cast<int>(fault); }
  // "data.zip, entry ../x: the path leaves the directory (code 7)"
  std::string text() const;
};

}  // namespace korvane::archive
