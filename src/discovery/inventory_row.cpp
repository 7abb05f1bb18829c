#include "discovery/inventory_row.h"

#include <charconv>

#include "platform/survey.h"
#include "util/sha256.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr char kHexDigits[] = "0123456789abcdef";

bool isReplaced(unsigned char c) {
  return (c < ' ' && c != '\t' && c != '\n' && c != '\r') || c == 0x7F;
}

void appendEscaped(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\t':
        out += "&#9;";
        break;
      case '\n':
        out += "&#10;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        out += c;
    }
  }
}

// How much of a text is kept: whole characters.
size_t boundedSize(std::string_view text) {
  if (text.size() <= platform::kMostTextBytes) return text.size();
  size_t end = platform::kMostTextBytes;
  for (int back = 0; back < 3 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80; ++back)
    --end;
  return end;
}

void appendPart(std::string& out, std::string_view part) {
  out += std::to_string(part.size());
  out += ':';
  out += part;
}

}  // namespace

std::string cleanText(std::string_view text) {
  text = text.substr(0, boundedSize(text));
  const std::string valid = isValidUtf8(text) ? std::string(text) : utf16ToUtf8(utf8ToUtf16(text));
  std::string out;
  out.reserve(valid.size());
  for (size_t i = 0; i < valid.size(); ++i) {
    // U+FFFE and U+FFFF, which XML does not have.
    const bool none =
        valid.compare(i, 3, "\xEF\xBF\xBE") == 0 || valid.compare(i, 3, "\xEF\xBF\xBF") == 0;
    if (none) i += 2;
    if (none || isReplaced(static_cast<unsigned char>(valid[i]))) {
      out += kReplacement;
    } else {
      out += valid[i];
    }
  }
  out.resize(boundedSize(out));  // a replacement is longer than what it stands for
  return out;
}

void InventoryRow::begin(std::string_view element) {
  _xml = '<';
  _xml += element;
  _counted.clear();
  appendPart(_counted, element);
}

void InventoryRow::add(std::string_view name, std::string_view text, Counts counts) {
  if (!text.empty()) addAlways(name, text, counts);
}

void InventoryRow::addAlways(std::string_view name, std::string_view text, Counts counts) {
  const std::string clean = cleanText(text);
  _xml += ' ';
  _xml += name;
  _xml += "=\"";
  appendEscaped(_xml, clean);
  _xml += '"';
  if (counts == Counts::no) return;
  appendPart(_counted, name);
  appendPart(_counted, clean);
}

void InventoryRow::add(std::string_view name, uint64_t number, Counts counts) {
  addAlways(name, std::to_string(number), counts);
}

void InventoryRow::addBytesIfUnclean(std::string_view name, std::string_view bytes) {
  if (cleanText(bytes) == bytes) return;
  std::string hex;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kHexDigits[byte >> 4];
    hex += kHexDigits[byte & 15];
  }
  addAlways(name, hex);
}

std::string_view InventoryRow::finish() {
  _xml += "/>\n";
  return _xml;
}

void RowSum::add(const InventoryRow& row) {
  const std::string digest = sha256Hex(row.counted());
  unsigned carry = 0;
  for (size_t i = _sum.size(); i-- > 0 && digest.size() == kSha256Digits;) {
    unsigned byte = 0;
    std::from_chars(digest.data() + 2 * i, digest.data() + 2 * i + 2, byte, 16);
    carry += _sum[i] + byte;
    _sum[i] = static_cast<uint8_t>(carry);
    carry >>= 8;
  }
  ++_rows;
}

std::string RowSum::text() const {
  const std::string sum(_sum.begin(), _sum.end());
  return sha256Hex(sum + std::to_string(_rows));
}

}  // namespace korvane
