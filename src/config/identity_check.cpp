#include "config/identity_check.h"

#include <algorithm>
#include <string_view>

namespace korvane {
namespace {

constexpr std::string_view kPinKind = "sha256//";
constexpr size_t kPinLength = 44;  // 32 bytes in base64, of which the last character is padding

bool isAlnum(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// A host name, or an address of either kind: the comparison itself knows which.
bool isServerName(std::string_view name) {
  return isAlnum(name.front()) || name.starts_with(':')
             ? std::all_of(name.begin(), name.end(),
                           [](char c) {
                             return isAlnum(c) || c == '-' || c == '_' || c == '.' || c == ':';
                           })
             : false;
}

bool isPin(std::string_view pin) {
  if (!pin.starts_with(kPinKind) || pin.size() != kPinKind.size() + kPinLength) return false;
  const std::string_view digest = pin.substr(kPinKind.size());
  return digest.back() == '=' && std::all_of(digest.begin(), digest.end() - 1, [](char c) {
           return isAlnum(c) || c == '+' || c == '/';
         });
}

}  // namespace

std::vector<std::string> listOf(const STRING& value) {
  std::vector<std::string> entries;
  for (const STRING& part : value.split(u',')) {
    if (const STRING entry = part.trimmed(); !entry.empty()) entries.push_back(entry.toUtf8());
  }
  return entries;
}

std::string identityFault(Key key, const STRING& value) {
  const STRING text = value.trimmed();
  if (text.empty()) return {};
  if (key == Key::sslMinimumVersion)
    return text == "1.2" || text == "1.3" ? "" : "is neither 1.2 nor 1.3";
  const std::vector<std::string> entries = listOf(text);
  const bool names = key == Key::sslServerNames;
  if (!entries.empty() &&
      std::all_of(entries.begin(), entries.end(), [names](const std::string& entry) {
        return names ? isServerName(entry) : isPin(entry);
      }))
    return {};
  return names ? "is no list of host names and addresses, separated by commas"
               : "is no list of pins, each sha256// and the SHA-256 of a public key in base64, "
                 "separated by commas";
}

}  // namespace korvane
