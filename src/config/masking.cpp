#include "config/masking.h"

#include <algorithm>
#include <cctype>

#include "config/settings_table.h"

namespace korvane {
namespace {

constexpr size_t kShownOfIdentifier = 8;

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

bool namesSecret(std::string_view key) {
  const std::string name = lower(key);
  for (const char* word : {"password", "passwd", "secret", "token", "private", "credential"})
    if (name.find(word) != std::string::npos) return true;
  return false;
}

// The user information of a URL ends at the last '@' before its path.
std::string withoutUsers(std::string_view text) {
  constexpr std::string_view kScheme = "://";
  std::string out;
  for (;;) {
    const size_t scheme = text.find(kScheme);
    if (scheme == std::string_view::npos) return out += text;
    out += text.substr(0, scheme + kScheme.size());
    text.remove_prefix(scheme + kScheme.size());
    const std::string_view authority = text.substr(0, text.find_first_of("/?# \t\r\n\"<>"));
    const size_t at = authority.rfind('@');
    if (at == std::string_view::npos) continue;
    out += kMask;
    text.remove_prefix(at);
  }
}

}  // namespace

std::string maskedIdentifier(const std::string& identifier) {
  if (identifier.empty()) return {};
  const size_t shown = identifier.size() > kShownOfIdentifier ? kShownOfIdentifier : 0;
  return identifier.substr(0, shown) + kMask;
}

std::string maskedSetting(std::string_view key, const std::string& value) {
  if (key == rowOf(Key::agentId).name) return maskedIdentifier(value);
  if (!value.empty() && namesSecret(key)) return kMask;
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
