#include "update/update_results_file.h"

#include <algorithm>
#include <map>

#include "util/utf8.h"

namespace korvane {
namespace {

constexpr std::string_view kMark = "\xff\xfe";

// A line's name has an ASCII character first, so a zero behind the first byte tells UTF-16
// without a mark.
bool isWide(std::string_view bytes) {
  return bytes.starts_with(kMark) || (bytes.size() > 1 && bytes[1] == '\0');
}

std::string fromWide(std::string_view bytes) {
  if (bytes.starts_with(kMark)) bytes.remove_prefix(kMark.size());
  std::u16string text;
  for (size_t at = 0; at + 1 < bytes.size(); at += 2)
    text += static_cast<char16_t>(static_cast<unsigned char>(bytes[at]) |
                                  static_cast<unsigned char>(bytes[at + 1]) << 8);
  return utf16ToUtf8(text);
}

std::string toWide(std::string_view utf8) {
  std::string bytes(kMark);
  for (const char16_t unit : utf8ToUtf16(utf8)) {
    bytes += static_cast<char>(unit & 0xff);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

}  // namespace

std::string updateResultsText(const PropertyList& pairs, bool unicode) {
  std::string text;
  for (const Property& pair : pairs)
    text += pair.first.toUtf8() + "=" + pair.second.toUtf8() + "\n";
  return unicode ? toWide(text) : text;
}

PropertyList parseUpdateResults(std::string_view bytes) {
  const std::string text = isWide(bytes) ? fromWide(bytes) : std::string(bytes);
  PropertyList pairs;
  std::map<STRING, size_t> places;
  for (size_t begin = 0, end; begin < text.size(); begin = end + 1) {
    end = std::min(text.find('\n', begin), text.size());
    std::string_view line = std::string_view(text).substr(begin, end - begin);
    if (line.ends_with('\r')) line.remove_suffix(1);
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) continue;
    const STRING name = line.substr(0, equals), value = line.substr(equals + 1);
    const auto [place, isNew] = places.emplace(name, pairs.size());
    if (isNew)
      pairs.emplace_back(name, value);
    else
      pairs[place->second].second = value;
  }
  return pairs;
}

}  // namespace korvane
