#include "util/string.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "util/errors.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr bool isBlank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

constexpr char16_t lower(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}

}  // namespace

STRING::STRING(const char* utf8) : STRING(std::string_view(utf8 ? utf8 : "")) {}
STRING::STRING(std::string_view utf8) : _text(utf8ToUtf16(utf8)) {}
STRING::STRING(const std::string& utf8) : STRING(std::string_view(utf8)) {}
STRING::STRING(const char16_t* text) : _text(text ? text : u"") {}
STRING::STRING(std::u16string text) : _text(std::move(text)) {}
STRING::STRING(std::u16string_view text) : _text(text) {}

STRING STRING::fromInt(int64_t number) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  return STRING(std::string_view(digits, static_cast<size_t>(end - digits)));
}

STRING STRING::fromBool(bool value) {
  return value ? u"true" : u"false";
}

std::string STRING::toUtf8() const {
  return utf16ToUtf8(_text);
}

int32_t STRING::toInt() const {
  if (_text.empty()) throw AgentError(kErrorEmptyString, "empty string", "STRING::toInt");
  size_t at = 0;
  while (at < _text.size() && isBlank(_text[at])) ++at;
  bool negative = false;
  if (at < _text.size() && (_text[at] == u'-' || _text[at] == u'+')) negative = _text[at++] == u'-';
  int64_t number = 0;
  constexpr int64_t kLimit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
  for (; at < _text.size() && _text[at] >= u'0' && _text[at] <= u'9'; ++at)
    number = std::min(number * 10 + (_text[at] - u'0'), kLimit);
  if (negative) return static_cast<int32_t>(-number);
  return static_cast<int32_t>(std::min(number, kLimit - 1));
}

bool STRING::toBool() const {
  return equalsIgnoreCase(u"true");
}

STRING& STRING::operator+=(const STRING& other) {
  _text += other._text;
  return *this;
}

size_t STRING::find(const STRING& part, size_t from) const {
  return _text.find(part._text, from);
}
bool STRING::startsWith(const STRING& prefix) const {
  return _text.starts_with(prefix._text);
}
bool STRING::endsWith(const STRING& suffix) const {
  return _text.ends_with(suffix._text);
}

STRING STRING::substr(size_t from, size_t count) const {
  return from >= _text.size() ? STRING() : STRING(_text.substr(from, count));
}

bool STRING::equalsIgnoreCase(const STRING& other) const {
  return std::equal(_text.begin(), _text.end(), other._text.begin(), other._text.end(),
                    [](char16_t a, char16_t b) { return lower(a) == lower(b); });
}

STRING STRING::trimmed() const {
  size_t begin = 0, end = _text.size();
  while (begin < end && isBlank(_text[begin])) ++begin;
  while (end > begin && isBlank(_text[end - 1])) --end;
  return STRING(_text.substr(begin, end - begin));
}

std::vector<STRING> STRING::split(char16_t separator) const {
  std::vector<STRING> parts;
  size_t begin = 0;
  for (size_t end; (end = _text.find(separator, begin)) != npos; begin = end + 1)
    parts.emplace_back(_text.substr(begin, end - begin));
  parts.emplace_back(_text.substr(begin));
  return parts;
}

}  // namespace korvane
