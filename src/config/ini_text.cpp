#include "config/ini_text.h"

#include <unordered_set>

#include "config/settings_table.h"
#include "util/sha256.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr size_t kMaxKeyLength = 256;

std::string_view trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Cuts the next line, without its line feed, off `rest`.
std::string_view nextLine(std::string_view& rest) {
  const size_t end = rest.find('\n');
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return line;
}

bool isHeader(std::string_view line, std::string_view name) {
  return line.size() == name.size() + 2 && line.front() == '[' && line.back() == ']' &&
         line.substr(1, name.size()) == name;
}

// The key and value of a trimmed line; false for every other line.
bool splitLine(std::string_view line, std::string_view& key, std::string_view& value) {
  if (line.empty() || line.front() == ';' || line.front() == '#' || line.front() == '[') {
    return false;
  }
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) return false;
  key = trim(line.substr(0, equals));
  value = trim(line.substr(equals + 1));
  return !key.empty() && key.size() <= kMaxKeyLength;
}

void readChecksum(std::string_view rest, IniText& out) {
  std::string_view key;
  std::string_view value;
  while (!rest.empty() && !out.hasChecksum) {
    if (!splitLine(trim(nextLine(rest)), key, value) || key != kChecksumKey) continue;
    out.hasChecksum = true;
    out.storedChecksum = value;
  }
}

}  // namespace

bool parseIniText(std::string_view bytes, IniText& out) {
  out = IniText();
  if (bytes.find('\0') != std::string_view::npos || !isValidUtf8(bytes)) return false;
  std::string_view rest = bytes;
  if (rest.starts_with(kByteOrderMark)) rest.remove_prefix(kByteOrderMark.size());
  std::unordered_set<std::string_view> seen;
  size_t covered = bytes.size();
  while (!rest.empty()) {
    const size_t lineStart = bytes.size() - rest.size();
    const std::string_view line = trim(nextLine(rest));
    if (isHeader(line, kChecksumSection)) {
      covered = lineStart;
      readChecksum(rest, out);
      break;
    }
    std::string_view key;
    std::string_view value;
    if (!splitLine(line, key, value) || key == kChecksumKey || !seen.insert(key).second) continue;
    out.values.emplace_back(STRING(key), STRING(value));
  }
  out.computedChecksum = sha256Hex(bytes.substr(0, covered));
  return true;
}

bool checksumHolds(const IniText& text, bool mayLackChecksum) {
  if (!text.hasChecksum) return mayLackChecksum;
  return text.storedChecksum == kNotComputed || text.storedChecksum == text.computedChecksum;
}

void IniWriter::section(std::string_view name) {
  if (_open == name) return;
  _open = name;
  _text += '[';
  _text += name;
  _text += ']';
  _text += _lineEnd;
}

void IniWriter::value(const STRING& key, const STRING& value) {
  appendUtf8(_text, key.utf16());
  _text += '=';
  appendUtf8(_text, value.utf16());
  _text += _lineEnd;
}

std::string IniWriter::finish() {
  const std::string checksum = sha256Hex(_text);
  section(kChecksumSection);
  value(kChecksumKey, checksum);
  return std::move(_text);
}

bool isKeyName(const STRING& key) {
  if (key.empty() || key.length() > kMaxKeyLength || key == kChecksumKey) return false;
  if (key.trimmed() != key) return false;
  const char16_t first = key.utf16().front();
  if (first == u'[' || first == u';' || first == u'#') return false;
  for (const char16_t unit : key.utf16()) {
    if (unit < 0x20 || unit == 0x7F || unit == u'=' || unit == 0xFEFF) return false;
  }
  return true;
}

STRING oneLine(const STRING& value) {
  std::u16string text = value.utf16();
  for (char16_t& unit : text) {
    if (unit < 0x20) unit = u' ';
  }
  return STRING(std::move(text));
}

STRING lineValue(const STRING& value) {
  return oneLine(value).trimmed();
}

}  // namespace korvane
