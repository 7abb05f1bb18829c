// Registry keys and values in the textual .reg format, as a pure function over bytes.
//
// A RegDocument is what a .reg file says, in the file's order: keys with their values. Comments,
// values of other types than string and dword, and keys below other roots than HKEY_LOCAL_MACHINE
// are kept as they stand and written back unchanged. docs/file-formats.md describes the format.
// Names are compared without case (ASCII letters). A plain value: copied freely, used by one thread
// at a time. Errors: a text that says what is wrong and in which line; the document is empty then.
//
//   RegDocument document;
//   if (std::string problem = document.parse(bytes); !problem.empty()) ...
//   document.addKey("SOFTWARE\\Dalvora");
//   document.setString("SOFTWARE\\Dalvora", "Name", u"value");
//   std::string written = document.format();
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "util/string.h"

namespace korvane::platform {

struct RegItem {
  enum class Kind { string, dword, verbatim, comment };
  Kind kind = Kind::verbatim;
  std::string name;     // UTF-8; empty for the default value
  std::string raw;      // verbatim: what follows the "="; comment: the line
  STRING text;          // string
  uint32_t number = 0;  // dword
};

class RegDocument {
 public:
  static constexpr size_t kMaxBytes = 1024 * 1024;
  static constexpr size_t kMaxKeys = 2048;
  static constexpr size_t kMaxItemsPerKey = 1024;

  // Replaces the content by what `bytes` say: UTF-8 with or without mark, or UTF-16LE with mark. No
  // bytes at all are an empty document. Returns an empty text, or the problem.
  std::string parse(std::string_view bytes);
  // The file's bytes, in the encoding and with the line ends that were parsed (UTF-8 and LF
  // otherwise).
  std::string format() const;

  // Keys are given below HKEY_LOCAL_MACHINE; backslashes at either end do not count.
  bool hasKey(std::string_view key) const;
  bool hasSubkeys(std::string_view key) const;
  void addKey(std::string_view key);
  // Removes the key alone; the one above it stays.
  void removeKey(std::string_view key);
  // The value of that name, or null; owned by the document, valid until it changes.
  const RegItem* find(std::string_view key, std::string_view name) const;
  // The key must be there.
  void setString(std::string_view key, std::string_view name, const STRING& value);
  void setDword(std::string_view key, std::string_view name, uint32_t value);

 private:
  struct Key {
    std::string path;    // with its root, as written
    std::string folded;  // in lower case
    std::vector<RegItem> items;
  };
  friend class RegParser;

  const Key* findKey(const std::string& folded) const;
  Key& keyFor(const std::string& path);
  RegItem& itemFor(std::string_view key, std::string_view name);
  void eraseTree(const std::string& folded);

  std::string _header = "Windows Registry Editor Version 5.00";
  std::vector<std::string> _preamble;  // comments before the first key
  std::vector<Key> _keys;
  bool _utf16 = false;
  bool _mark = false;
  bool _crlf = false;
};

}  // namespace korvane::platform
