#include "rpc/json_escapes.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace korvane {
namespace {

constexpr char kHex[] = "0123456789ABCDEF";
// The letter behind the backslash, and what it stands for.
constexpr std::string_view kLetters = "bfnrt/\"\\";
constexpr std::string_view kMeanings = "\b\f\n\r\t/\"\\";

bool isPlain(char c) {
  const auto u = static_cast<unsigned char>(c);
  return u >= 0x20 && c != '/' && c != '"' && c != '\\';
}

void appendEscape(std::string& out, char c) {
  out += '\\';
  const size_t letter = kMeanings.find(c);
  if (letter != std::string_view::npos) {
    out += kLetters[letter];
    return;
  }
  const auto u = static_cast<unsigned char>(c);
  out.append("u00");
  out += kHex[u >> 4];
  out += kHex[u & 15];
}

// Reads a text and writes what it stands for into the same memory, never more than was read.
class Unescaper {
 public:
  explicit Unescaper(std::string& text) : _in(text.data()), _end(_in + text.size()), _out(_in) {}

  bool run() {
    while (_in != _end) {
      const auto c = static_cast<unsigned char>(*_in);
      if (c < 0x20 || !(c == '\\' ? escape() : c < 0x80 ? copy(1) : sequence(c))) return false;
    }
    return true;
  }
  char* out() const { return _out; }

 private:
  bool copy(size_t count) {
    _out = std::copy(_in, _in + count, _out);
    _in += count;
    return true;
  }

  // Whether it is UTF-8 is judged by the lead byte and the bits of those that follow, as
  // the parser does.
  bool sequence(unsigned char lead) {
    const size_t trailing = lead < 0xC0   ? 0
                            : lead < 0xE0 ? 1
                            : lead < 0xF0 ? 2
                            : lead < 0xF8 ? 3
                                          : 0;
    if (trailing == 0 || static_cast<size_t>(_end - _in) <= trailing) return false;
    for (size_t i = 1; i <= trailing; ++i)
      if ((static_cast<unsigned char>(_in[i]) & 0xC0) != 0x80) return false;
    return copy(trailing + 1);
  }

  bool escape() {
    if (++_in == _end) return false;
    const char letter = *_in++;
    if (letter == 'u') return codePoint();
    const size_t known = kLetters.find(letter);
    if (known == std::string_view::npos) return false;
    *_out++ = kMeanings[known];
    return true;
  }

  std::optional<uint32_t> fourDigits() {
    if (_end - _in < 4) return std::nullopt;
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = *_in++;
      const char upper = c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
      const auto* digit = std::find(kHex, kHex + 16, upper);
      if (digit == kHex + 16) return std::nullopt;
      value = value * 16 + static_cast<uint32_t>(digit - kHex);
    }
    return value;
  }

  bool codePoint() {
    std::optional<uint32_t> point = fourDigits();
    if (!point || (*point >= 0xDC00 && *point <= 0xDFFF)) return false;
    if (*point >= 0xD800 && *point <= 0xDBFF) {
      if (_end - _in < 2 || *_in++ != '\\' || *_in++ != 'u') return false;
      const std::optional<uint32_t> low = fourDigits();
      if (!low || *low < 0xDC00 || *low > 0xDFFF) return false;
      point = 0x10000 + ((*point - 0xD800) << 10) + (*low - 0xDC00);
    }
    put(*point);
    return true;
  }

  void put(uint32_t point) {
    const auto trail = [&](int shift) {
      *_out++ = static_cast<char>(0x80 | ((point >> shift) & 0x3F));
    };
    if (point < 0x80) {
      *_out++ = static_cast<char>(point);
    } else if (point < 0x800) {
      *_out++ = static_cast<char>(0xC0 | (point >> 6));
      trail(0);
    } else if (point < 0x10000) {
      *_out++ = static_cast<char>(0xE0 | (point >> 12));
      trail(6), trail(0);
    } else {
      *_out++ = static_cast<char>(0xF0 | (point >> 18));
      trail(12), trail(6), trail(0);
    }
  }

  char* _in;
  char* const _end;
  char* _out;
};

}  // namespace

size_t escapedSize(std::string_view text) {
  size_t size = 0;
  for (const char c : text)
    size += isPlain(c) ? 1 : kMeanings.find(c) != std::string_view::npos ? 2 : 6;
  return size;
}

void appendEscaped(std::string& out, std::string_view text) {
  const char* begin = text.data();
  const char* const end = begin + text.size();
  while (begin != end) {
    const char* const special = std::find_if_not(begin, end, isPlain);
    out.append(begin, special);
    if (special == end) return;
    appendEscape(out, *special);
    begin = special + 1;
  }
}

bool unescape(std::string& text) {
  Unescaper unescaper(text);
  if (!unescaper.run()) return false;
  text.resize(static_cast<size_t>(unescaper.out() - text.data()));
  return true;
}

}  // namespace korvane
