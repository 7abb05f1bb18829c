// The system's text type: UTF-16, as the agent's interfaces use it.
//
// A STRING owns its code units. It is made from UTF-8 ("narrow") text or from UTF-16 text
// and gives either back. Malformed input never fails: each invalid UTF-8 byte sequence and
// each unpaired surrogate becomes U+FFFD. It is a value type; like std::u16string it may be
// read by many threads at once and written by one.
//
//   STRING name("server-1");            // from UTF-8
//   std::string wire = name.toUtf8();   // back to UTF-8
//   int port = STRING("8443").toInt();  // AgentError 39 "empty string" for an empty one
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "util/export.h"

namespace korvane {

class KORVANE_EXPORT STRING {
 public:
  static constexpr size_t npos = std::u16string::npos;

  STRING() = default;
  STRING(const char* utf8);         // NOLINT(google-explicit-constructor): texts are written narrow
  STRING(std::string_view utf8);    // NOLINT
  STRING(const std::string& utf8);  // NOLINT
  STRING(const char16_t* text);     // NOLINT
  STRING(std::u16string text);      // NOLINT
  explicit STRING(std::u16string_view text);

  // Decimal text of a number, without leading blanks or zeros.
  static STRING fromInt(int64_t number);
  // "true" or "false".
  static STRING fromBool(bool value);

  const std::u16string& utf16() const { return _text; }
  const char16_t* c_str() const { return _text.c_str(); }
  size_t length() const { return _text.size(); }  // in UTF-16 code units
  bool empty() const { return _text.empty(); }
  void clear() { _text.clear(); }

  std::string toUtf8() const;

  // The decimal number that the text begins with, blanks before it skipped, as atoi reads it (0
  // when there is none); values outside 32 bits are clamped. Throws AgentError 39 "empty string".
  int32_t toInt() const;
  // True for exactly "true", in any case.
  bool toBool() const;

  STRING& operator+=(const STRING& other);
  friend STRING operator+(STRING left, const STRING& right) { return left += right; }
  friend bool operator==(const STRING&, const STRING&) = default;
  friend auto operator<=>(const STRING&, const STRING&) = default;

  size_t find(const STRING& part, size_t from = 0) const;
  bool startsWith(const STRING& prefix) const;
  bool endsWith(const STRING& suffix) const;
  STRING substr(size_t from, size_t count = npos) const;
  // Equal when ASCII letters are compared without case.
  bool equalsIgnoreCase(const STRING& other) const;
  // The text without blanks, tabs, CR and LF at both ends.
  STRING trimmed() const;
  // The parts between separators; n separators give n + 1 parts, empty ones included.
  std::vector<STRING> split(char16_t separator) const;

 private:
  std::u16string _text;
};

}  // namespace korvane
