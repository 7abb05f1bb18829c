#include <algorithm>

#include "platform/reg_syntax.h"
#include "platform/reg_text.h"
#include "util/utf8.h"

namespace korvane::platform {
namespace {

constexpr std::string_view kHeaders[] = {"Windows Registry Editor Version 5.00", "REGEDIT4"};

std::string_view trimmed(std::string_view line) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  while (!line.empty() && blank(line.front())) line.remove_prefix(1);
  while (!line.empty() && blank(line.back())) line.remove_suffix(1);
  return line;
}

size_t lineAt(std::string_view text, size_t offset) {
  return 1 + static_cast<size_t>(
                 std::count(text.begin(), text.begin() + static_cast<ptrdiff_t>(offset), '\n'));
}

std::string atLine(size_t line, const std::string& what) {
  return "line " + std::to_string(line) + ": " + what;
}

std::u16string unitsFrom(std::string_view bytes) {
  std::u16string units;
  units.reserve(bytes.size() / 2);
  for (size_t i = 0; i + 1 < bytes.size(); i += 2)
    units += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) |
                                   static_cast<uint8_t>(bytes[i + 1]) << 8);
  return units;
}

}  // namespace

// Reads the lines of one document.
class RegParser {
 public:
  explicit RegParser(RegDocument& document) : _document(document) {}

  std::string run(std::string_view bytes) {
    if (bytes.size() > RegDocument::kMaxBytes)
      return "larger than " + std::to_string(RegDocument::kMaxBytes) + " bytes";
    if (std::string problem = decode(bytes); !problem.empty()) return problem;
    if (const size_t nul = _text.find('\0'); nul != std::string::npos)
      return atLine(lineAt(_text, nul), "a NUL character");
    _document._crlf = _text.find("\r\n") != std::string::npos;
    _rest = _text;
    if (_rest.empty()) return {};
    while (!_rest.empty())
      if (std::string problem = parseEntry(); !problem.empty()) return atLine(_line, problem);
    return _headerSeen ? "" : atLine(1, "the format's header line is missing");
  }

 private:
  std::string decode(std::string_view bytes) {
    _document._utf16 = bytes.starts_with(kUtf16Mark);
    _document._mark = _document._utf16 || bytes.starts_with(kUtf8Mark);
    if (_document._utf16) {
      if (bytes.size() % 2) return "an odd number of bytes in UTF-16 text";
      const std::u16string units = unitsFrom(bytes.substr(2));
      _text = utf16ToUtf8(units);
      return utf8ToUtf16(_text) == units ? "" : "an unpaired surrogate in UTF-16 text";
    }
    _text = bytes.substr(_document._mark ? kUtf8Mark.size() : 0);
    return isValidUtf8(_text) ? "" : "neither UTF-8 nor UTF-16LE with a byte-order mark";
  }

  std::string_view nextLine() {
    const size_t end = _rest.find('\n');
    const std::string_view line = _rest.substr(0, end);
    _rest.remove_prefix(end == std::string_view::npos ? _rest.size() : end + 1);
    ++_nextLine;
    return line;
  }

  std::string parseEntry() {
    _line = _nextLine;
    const std::string_view line = trimmed(nextLine());
    if (line.empty()) return {};
    if (!_headerSeen && line[0] != ';') return parseHeader(line);
    if (line[0] == ';') return parseComment(line);
    if (line[0] == '[') return parseKey(line);
    if (line[0] == '"' || line[0] == '@') return parseValue(line);
    return "neither a key nor a value";
  }

  std::string parseHeader(std::string_view line) {
    _headerSeen = std::find(std::begin(kHeaders), std::end(kHeaders), line) != std::end(kHeaders);
    if (!_headerSeen) return "the format's header line is missing";
    _document._header = line;
    return {};
  }

  std::string parseComment(std::string_view line) {
    if (!_key) {
      _document._preamble.emplace_back(line);
      return {};
    }
    RegItem comment;
    comment.kind = RegItem::Kind::comment;
    comment.raw = line;
    return append(std::move(comment));
  }

  std::string parseKey(std::string_view line) {
    if (line.back() != ']') return "a key without its closing bracket";
    line = line.substr(1, line.size() - 2);
    const bool removal = line.starts_with('-');
    if (removal) line.remove_prefix(1);
    if (trimRegPath(line).empty()) return "a key without a name";
    const std::string path(trimRegPath(line));
    if (path.starts_with('-')) return "a key whose name begins with a minus sign";
    if (removal) _document.eraseTree(foldRegName(path));
    _key = nullptr;
    _skipping = removal;
    if (removal) return {};
    _key = &_document.keyFor(path);
    return _document._keys.size() <= RegDocument::kMaxKeys
               ? ""
               : "more than " + std::to_string(RegDocument::kMaxKeys) + " keys";
  }

  std::string parseValue(std::string_view line) {
    if (!_key) return _skipping ? "a value below a removed key" : "a value outside a key";
    RegItem item;
    if (line[0] == '@') {
      line.remove_prefix(1);
    } else if (!parseRegQuoted(line, item.name)) {
      return "a value name without its closing quotation mark";
    }
    line = trimmed(line);
    if (!line.starts_with('=')) return "no \"=\" after the value name \"" + item.name + "\"";
    std::string value(trimmed(line.substr(1)));
    // Binary values may go on behind a backslash at the end of the line.
    while (!value.starts_with('"') && value.ends_with('\\') && !_rest.empty()) {
      value += '\n';
      value += trimmed(nextLine());
    }
    if (!value.starts_with('"') && value.ends_with('\\'))
      return "a truncated value: \"" + item.name + "\"";
    if (value == "-") return removeValue(item.name);
    if (!readRegValue(value, item)) return "not a value: \"" + item.name + "\"";
    return append(std::move(item));
  }

  std::string removeValue(const std::string& name) {
    std::erase_if(_key->items, [&](const RegItem& item) { return named(item, name); });
    return {};
  }

  static bool named(const RegItem& item, std::string_view name) {
    return item.kind != RegItem::Kind::comment && sameRegName(item.name, name);
  }

  std::string append(RegItem item) {
    if (item.kind != RegItem::Kind::comment)
      for (RegItem& known : _key->items)
        if (named(known, item.name)) {
          known = std::move(item);
          return {};
        }
    if (_key->items.size() == RegDocument::kMaxItemsPerKey)
      return "more than " + std::to_string(RegDocument::kMaxItemsPerKey) + " lines in one key";
    _key->items.push_back(std::move(item));
    return {};
  }

  RegDocument& _document;
  RegDocument::Key* _key = nullptr;
  bool _skipping = false;
  bool _headerSeen = false;
  std::string _text;
  std::string_view _rest;
  size_t _line = 1;
  size_t _nextLine = 1;
};

std::string RegDocument::parse(std::string_view bytes) {
  *this = RegDocument();
  std::string problem = RegParser(*this).run(bytes);
  if (!problem.empty()) *this = RegDocument();
  return problem;
}

}  // namespace korvane::platform
