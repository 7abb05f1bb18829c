// Reading of the lines and fields of manifest and state. Views of the text; nothing is kept.
#pragma once

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <string_view>

namespace korvane::bulk {

// Lines that end in LF; what has no end is no line.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : _rest(text) {}
  // Empty behind the last one.
  std::string_view line() {
    const size_t end = _rest.find('\n');
    if (end == std::string_view::npos) return {};
    const std::string_view line = _rest.substr(0, end);
    _rest.remove_prefix(end + 1);
    return line;
  }
  bool atEnd() const { return _rest.empty(); }

 private:
  std::string_view _rest;
};

// Fields with one blank between them.
class FieldReader {
 public:
  explicit FieldReader(std::string_view text) : _rest(text) {}
  std::string_view word() {
    const size_t end = std::min(_rest.find(' '), _rest.size());
    const std::string_view word = _rest.substr(0, end);
    _rest.remove_prefix(std::min(end + 1, _rest.size()));
    return word;
  }
  // Decimal, without leading zeros.
  template <std::integral T>
  [[nodiscard]] bool number(T& out) {
    const std::string_view digits = word();
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), out);
    const size_t sign = digits.starts_with('-') ? 1 : 0;
    return read.ec == std::errc() && read.ptr == digits.data() + digits.size() &&
           (digits.size() == 1 || digits[sign] != '0');
  }
  std::string_view rest() { return _rest; }

 private:
  std::string_view _rest;
};

// The value of "name=value"; false when the line has another name.
inline bool valueOf(std::string_view line, std::string_view name, std::string_view& value) {
  if (!line.starts_with(name) || line.size() <= name.size() || line[name.size()] != '=')
    return false;
  value = line.substr(name.size() + 1);
  return true;
}

inline constexpr size_t kStampDigits = 17;  // of date and time in names

inline bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

inline bool isHex(std::string_view text, size_t digits) {
  return text.size() == digits && text.find_first_not_of("0123456789abcdef") == text.npos;
}

}  // namespace korvane::bulk
