#include "platform/reg_syntax.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <vector>

#include "util/utf8.h"

namespace korvane::platform {
namespace {

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

bool readHex(std::string_view digits, size_t maxDigits, uint32_t& out) {
  if (digits.empty() || digits.size() > maxDigits) return false;
  const char* end = digits.data() + digits.size();
  return std::from_chars(digits.data(), end, out, 16) == std::from_chars_result{end, std::errc()};
}

// The bytes of "41,00,\<line end>42": none when there is anything else.
std::optional<std::vector<uint8_t>> readHexList(std::string_view list) {
  std::string plain(list);
  std::erase_if(plain, [](char c) { return c == '\\' || c == '\n' || c == ' ' || c == '\t'; });
  std::vector<uint8_t> bytes;
  for (std::string_view rest = plain; !rest.empty();) {
    const size_t comma = rest.find(',');
    uint32_t byte;
    if (!readHex(rest.substr(0, comma), 2, byte)) return std::nullopt;
    bytes.push_back(static_cast<uint8_t>(byte));
    rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
  }
  return bytes;
}

void readHexString(const std::vector<uint8_t>& bytes, RegItem& item) {
  std::u16string units;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2)
    units += static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
  while (!units.empty() && units.back() == u'\0') units.pop_back();
  item.kind = RegItem::Kind::string;
  item.text = STRING(std::move(units));
}

bool readHexValue(std::string_view value, RegItem& item) {
  const size_t colon = value.find(':');
  if (colon == std::string_view::npos) return false;
  std::string_view type = value.substr(3, colon - 3);
  uint32_t typeNumber = 0;
  if (!type.empty()) {
    if (type.size() < 3 || type.front() != '(' || type.back() != ')') return false;
    if (!readHex(type.substr(1, type.size() - 2), 8, typeNumber)) return false;
  }
  const auto bytes = readHexList(value.substr(colon + 1));
  if (!bytes) return false;
  if (type == "(1)" && bytes->size() % 2 == 0) {
    readHexString(*bytes, item);
  } else if (type == "(4)" && bytes->size() == 4) {
    item.kind = RegItem::Kind::dword;
    for (int i = 3; i >= 0; --i) item.number = item.number << 8 | (*bytes)[static_cast<size_t>(i)];
  } else {
    item.kind = RegItem::Kind::verbatim;
    item.raw = value;
  }
  return true;
}

bool fitsBetweenQuotes(const STRING& text) {
  const std::u16string& units = text.utf16();
  return std::none_of(units.begin(), units.end(), [](char16_t c) { return c < 0x20; }) &&
         utf8ToUtf16(utf16ToUtf8(units)) == units;
}

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}

void appendHexString(std::string& out, const STRING& text) {
  out += "hex(1):";
  char digits[8];
  for (const char16_t unit : text.utf16()) {
    std::snprintf(digits, sizeof digits, "%02x,%02x,", unit & 0xFFu, unit >> 8 & 0xFFu);
    out += digits;
  }
  out += "00,00";
}

}  // namespace

std::string foldRegName(std::string_view text) {
  std::string folded(text);
  std::transform(folded.begin(), folded.end(), folded.begin(), lower);
  return folded;
}

bool sameRegName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [](char x, char y) { return lower(x) == lower(y); });
}

std::string_view trimRegPath(std::string_view path) {
  while (!path.empty() && path.front() == '\\') path.remove_prefix(1);
  while (!path.empty() && path.back() == '\\') path.remove_suffix(1);
  return path;
}

bool isRegName(std::string_view text) {
  return isValidUtf8(text) && std::none_of(text.begin(), text.end(), [](char c) {
           return static_cast<unsigned char>(c) < 0x20;
         });
}

bool parseRegQuoted(std::string_view& rest, std::string& out) {
  out.clear();
  for (size_t i = 1; i < rest.size(); ++i) {
    if (rest[i] == '"') {
      rest.remove_prefix(i + 1);
      return true;
    }
    if (rest[i] == '\\' && i + 1 < rest.size() && (rest[i + 1] == '"' || rest[i + 1] == '\\')) ++i;
    out += rest[i];
  }
  return false;
}

bool readRegValue(std::string_view value, RegItem& item) {
  if (value.starts_with('"')) {
    std::string text;
    item.kind = RegItem::Kind::string;
    if (!parseRegQuoted(value, text) || !value.empty()) return false;
    item.text = STRING(text);
    return true;
  }
  const std::string type = foldRegName(value.substr(0, 6));
  if (type == "dword:") {
    item.kind = RegItem::Kind::dword;
    return readHex(value.substr(6), 8, item.number);
  }
  return type.starts_with("hex") && readHexValue(value, item);
}

void appendRegItem(std::string& out, const RegItem& item, std::string_view lineEnd) {
  if (item.kind == RegItem::Kind::comment) {
    out.append(item.raw).append(lineEnd);
    return;
  }
  if (item.name.empty())
    out += '@';
  else
    appendQuoted(out, item.name);
  out += '=';
  if (item.kind == RegItem::Kind::dword) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "dword:%08x", item.number);
    out += digits;
  } else if (item.kind == RegItem::Kind::string && fitsBetweenQuotes(item.text)) {
    appendQuoted(out, item.text.toUtf8());
  } else if (item.kind == RegItem::Kind::string) {
    appendHexString(out, item.text);
  } else {
    for (const char c : item.raw) {
      if (c == '\n')
        out.append(lineEnd).append("  ");
      else
        out += c;
    }
  }
  out += lineEnd;
}

}  // namespace korvane::platform
