// The text form of the ini files: reading, writing and their checksum. Pure functions of bytes; any
// thread. docs/file-formats.md has the syntax.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "util/property_list.h"

namespace korvane {

// A file beyond this size is not read, and none is written.
inline constexpr uint64_t kMaxIniBytes = 4u << 20;

struct IniText {
  // Every key with its value in the order of the file, the checksum left out. The first of several
  // lines with one key counts, the others are dropped.
  PropertyList values;
  bool hasChecksum = false;
  std::string storedChecksum;
  std::string computedChecksum;  // over every byte before the [Checksum] header
};

// False for bytes that are no text: a NUL, or malformed UTF-8. Lines that are neither a header nor
// key=value are skipped, as those that begin with ";" or "#" are.
[[nodiscard]] bool parseIniText(std::string_view bytes, IniText& out);

// True when the stored checksum is the computed one or "Not Computed". A text without one holds
// only when `mayLackChecksum`.
bool checksumHolds(const IniText& text, bool mayLackChecksum);

// Builds the text of a file, section by section.
class IniWriter {
 public:
  explicit IniWriter(std::string_view lineEnd) : _lineEnd(lineEnd) {}
  // Opens a section unless it is the open one.
  void section(std::string_view name);
  void value(const STRING& key, const STRING& value);
  // Adds the [Checksum] section over all that was written and hands out the text.
  std::string finish();

 private:
  std::string _lineEnd;
  std::string _open;
  std::string _text;
};

// True for a name that can stand before the "=" of a line.
bool isKeyName(const STRING& key);
// The value on one line: control characters become blanks.
STRING oneLine(const STRING& value);
// The value as a line of the file keeps it: oneLine() without the blanks at both ends.
STRING lineValue(const STRING& value);

}  // namespace korvane
