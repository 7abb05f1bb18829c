#include "config/masking.h"

#include <algorithm>

#include "config/settings_table.h"

namespace korvane {
namespace {

constexpr size_t kShownOfIdentifier = 8;
constexpr std::string_view kSchemeMark = "://";
constexpr std::string_view kEndOfWord = " \t\r\n\"'<>";

// A word up to the last "@", whose user begins at `begin`.
std::string maskedBeforeAt(std::string_view word, size_t begin) {
  return std::string(word.substr(0, begin)) + kMask + std::string(word.substr(word.rfind('@')));
}

std::string wordWithoutUser(std::string_view word) {
  const size_t at = word.rfind('@');
  if (at == std::string_view::npos) return std::string(word);
  const std::string_view before = word.substr(0, at);
  if (const size_t scheme = before.find(kSchemeMark); scheme != std::string_view::npos)
    return maskedBeforeAt(word, scheme + kSchemeMark.size());
  const size_t colon = before.find(':');
  if (colon == std::string_view::npos) return std::string(word);
  return maskedBeforeAt(word, before.substr(0, colon).find_last_of("=,(;") + 1);  // npos + 1 is 0
}

// A value that is a server's URL or names servers: whatever stands before an "@" is a user.
std::string withoutUserOfServer(std::string_view value) {
  const size_t at = value.rfind('@');
  if (at == std::string_view::npos) return std::string(value);
  const size_t scheme = value.substr(0, at).find(kSchemeMark);
  return maskedBeforeAt(value, scheme == std::string_view::npos ? 0 : scheme + kSchemeMark.size());
}

}  // namespace

std::string withoutUsers(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const size_t end = std::min(text.find_first_of(kEndOfWord), text.size());
    out += wordWithoutUser(text.substr(0, end));
    if (end < text.size()) out += text[end];
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out;
}

std::string maskedIdentifier(const std::string& identifier) {
  if (identifier.empty()) return {};
  const size_t shown = identifier.size() > kShownOfIdentifier ? kShownOfIdentifier : 0;
  return identifier.substr(0, shown) + kMask;
}

std::string maskedSetting(std::string_view key, const std::string& value) {
  const SettingRow* row = findRow(STRING(key));
  if (!row) return value.empty() ? "" : kMask;
  if (row->key == Key::agentId) return maskedIdentifier(value);
  if (row->key == Key::agentUrl || row->key == Key::serverList) return withoutUserOfServer(value);
  return withoutUsers(value);
}

std::string maskedText(std::string_view text, const std::string& identifier) {
  std::string out = withoutUsers(text);
  if (identifier.empty()) return out;
  const std::string shown = maskedIdentifier(identifier);
  for (size_t at = 0; (at = out.find(identifier, at)) != std::string::npos; at += shown.size())
    out.replace(at, identifier.size(), shown);
  return out;
}

}  // namespace korvane
