#include "comm/response_parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <system_error>

namespace korvane {
namespace {

constexpr std::string_view kFormatKey = "Data-Format";
constexpr std::string_view kTypeKey = "Data-Type";
constexpr std::string_view kLengthKey = "Data-Length";
constexpr std::string_view kEndMarker = "EOF_FLAG";
constexpr std::string_view kErrorTextType = "stacktrace";
constexpr size_t kQuotedInFault = 40;  // bytes of the answer that a fault text repeats at most

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

std::string_view withoutBlanks(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view withoutLineEnd(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

// The number that the text begins with; 0 without one. A number too large for an int stays
// an error code.
int errorNumber(std::string_view value) {
  value = withoutBlanks(value);
  int number = 0;
  const auto read = std::from_chars(value.data(), value.data() + value.size(), number);
  if (read.ec == std::errc::result_out_of_range) return INT_MAX;
  return number < 0 ? 0 : number;
}

// The value is cut at the key's length plus one from the start of the line, wherever the
// key stands.
std::string_view valueAfter(std::string_view key, std::string_view line) {
  return line.size() > key.size() ? line.substr(key.size() + 1) : std::string_view();
}

std::optional<size_t> lengthOf(std::string_view text) {
  text = withoutBlanks(text);
  size_t length = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), length);
  if (text.empty() || read.ec != std::errc() || read.ptr != text.data() + text.size()) return {};
  return length;
}

// A part of the answer for a fault text, without bytes that would disturb a log line.
std::string quoted(std::string_view text) {
  std::string out(text.substr(0, kQuotedInFault));
  for (char& c : out) {
    if (c < ' ' || c > '~') c = '?';
  }
  return out;
}

}  // namespace

void ResponseParser::reset() {
  _headers.clear();
  _headerBytes = _headerLines = 0;
  beginBlock();
  _body.clear();
  _fault.clear();
  _brokenOff = false;
  _at = 0;
  dropParts();
}

void ResponseParser::beginBlock() {
  _errorCode = 0;
  _wide = _encoded = false;
  _insideHeaders = false;
  _openEnded = false;
}

void ResponseParser::dropParts() {
  _insideDropped = false;
  _sectionCount = _propertyCount = _textBytes = 0;
  _properties.clear();
  _errorText.reset();
  _texts.clear();
  _binaries.clear();
}

void ResponseParser::refuse(std::string fault) {
  if (_fault.empty()) _fault = std::move(fault);
  _body.clear();
  dropParts();
}

ResponseParser::Walk ResponseParser::malformed(const SectionHeader& header,
                                               const std::string& what) {
  refuse(fmt::format("section {} at byte {} of the body: {}", _sectionCount, header.at, what));
  return Walk::malformed;
}

void ResponseParser::addHeaderLine(std::string_view line) {
  if (refused()) return;
  _headerBytes += line.size();
  ++_headerLines;
  if (_headerBytes > _limits.headerBytes || _headerLines > _limits.headerCount) {
    refuse(fmt::format("more than {} bytes or {} lines of headers", _limits.headerBytes,
                       _limits.headerCount));
    return;
  }
  line = withoutLineEnd(line);
  if (line.starts_with("HTTP/")) {
    beginBlock();
    _insideHeaders = true;
    _openEnded = true;
    return;
  }
  if (line.empty()) _insideHeaders = false;
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  std::string_view value = line.substr(colon + 1);
  if (!value.empty() && isBlank(value.front())) value.remove_prefix(1);
  keepHeader(line.substr(0, colon), value);
}

void ResponseParser::keepHeader(std::string_view name, std::string_view value) {
  if (sameName(name, "Korvane-Error")) _errorCode = errorNumber(value);
  if (sameName(name, "Korvane-Charset")) _wide = withoutBlanks(value) == "UTF-16LE";
  if (sameName(name, "Content-Encoding")) _encoded = withoutBlanks(value) != "identity";
  if (sameName(name, "Content-Length") || sameName(name, "Transfer-Encoding")) _openEnded = false;
  _headers.emplace_back(name, value);
}

void ResponseParser::addBody(std::string_view piece) {
  if (refused()) return;
  if (!_body.append(piece)) refuse(fmt::format("a body of more than {} bytes", _limits.bodyBytes));
}

bool ResponseParser::finish(bool unicode) {
  _at = 0;
  dropParts();
  checkWhole();
  while (!refused() && skipToSection()) {
    if (readSection(unicode) != Walk::goesOn) break;
  }
  return !refused();
}

// What HTTP itself does not notice when a connection breaks off without a word.
void ResponseParser::checkWhole() {
  if (refused()) return;
  const std::string_view all = _body.view(), body = withoutLineEnd(all);
  if (_insideHeaders) refuse("the answer ends among its header lines");
  const size_t first = all.find_first_not_of('\n');
  const bool readable = first == std::string::npos || all.substr(first).starts_with("Data-") ||
                        body.substr(first).starts_with(kEndMarker);
  if (_encoded && !readable) refuse("the body is encoded (Content-Encoding)");
  const bool openBody = _openEnded && !body.empty() && !body.ends_with(kEndMarker);
  _brokenOff = _insideHeaders || openBody;
  if (openBody) {
    refuse(fmt::format("the connection ended after {} bytes of the body, before the end marker",
                       _body.size()));
  }
}

bool ResponseParser::nextLine(std::string_view& line) {
  if (_at >= _body.size()) return false;
  const std::string_view rest = _body.view().substr(_at);
  const size_t end = rest.find('\n');
  line = rest.substr(0, end);
  _at = end == std::string_view::npos ? _body.size() : _at + end + 1;
  return true;
}

bool ResponseParser::skipToSection() {
  std::string_view line;
  size_t begin = _at;
  while (nextLine(line) && line.empty()) begin = _at;
  if (line.empty() || line == kEndMarker) return false;
  _at = begin;
  return true;
}

ResponseParser::Walk ResponseParser::readSection(bool unicode) {
  SectionHeader header;
  header.at = _at;
  if (++_sectionCount > _limits.sections) {
    return malformed(header, fmt::format("more than {} sections", _limits.sections));
  }
  const Walk walk = readSectionHeader(header);
  return walk == Walk::goesOn ? parseSection(header, unicode) : walk;
}

ResponseParser::Walk ResponseParser::readSectionHeader(SectionHeader& header) {
  std::string_view line;
  while (nextLine(line)) {
    if (line.empty()) return Walk::goesOn;
    if (readHeaderLine(line, header) == Walk::malformed) return Walk::malformed;
  }
  // The payload of a dropped section is not a framing, so its end is not a fault.
  if (_insideDropped) return Walk::ends;
  return malformed(header, "the body ends among its header lines");
}

ResponseParser::Walk ResponseParser::readHeaderLine(std::string_view line, SectionHeader& header) {
  if (line.find(kFormatKey) != std::string_view::npos) {
    header.format = valueAfter(kFormatKey, line);
  } else if (line.find(kTypeKey) != std::string_view::npos) {
    header.name = valueAfter(kTypeKey, line);
  } else if (line.find(kLengthKey) != std::string_view::npos) {
    const std::string_view text = valueAfter(kLengthKey, line);
    header.length = lengthOf(text);
    if (!header.length) {
      return malformed(header, fmt::format("the length [{}] is invalid", quoted(text)));
    }
  }
  return Walk::goesOn;
}

ResponseParser::Walk ResponseParser::parseSection(const SectionHeader& header, bool unicode) {
  const bool text = header.format == "text/plain";
  const bool xml = header.format == "text/xml";
  const bool binary = header.format == "binary/zip";
  if (!text && !xml && !binary) return Walk::ends;
  if (!header.length) return malformed(header, "it declares no length");
  const size_t there = _body.size() - _at;
  if (*header.length > there) {
    return malformed(header,
                     fmt::format("it declares {} bytes and {} are there", *header.length, there));
  }
  const std::string_view payload = _body.view().substr(_at, *header.length);
  if (binary && header.name != "policy" && header.name != "zipdata") {
    // Its payload is not skipped: the walk reads on inside it.
    _insideDropped = true;
    return Walk::goesOn;
  }
  if (!binary && !(text && header.name == kErrorTextType)) {
    if (payload.size() > _limits.textBytes - _textBytes)
      return malformed(header, fmt::format("more than {} bytes of text", _limits.textBytes));
    _textBytes += payload.size();
  }
  if (text && !parseText(header.name, payload)) {
    return malformed(header, fmt::format("more than {} properties", _limits.properties));
  }
  if (xml) _texts.emplace_back(header.name, payload);
  if (binary) _binaries.push_back({header.name, payload, unicode});
  _at += *header.length;
  return Walk::goesOn;
}

bool ResponseParser::parseText(std::string_view name, std::string_view payload) {
  if (name == "properties") return parseProperties(payload);
  if (name == kErrorTextType) {
    _errorText = decode(payload.substr(0, _limits.errorTextBytes));
    if (_errorText->empty()) _errorText = kNoErrorText;
  }
  return true;
}

// The next line without its end, which is one byte, or two of UTF-16.
std::string_view ResponseParser::nextPair(std::string_view& rest) const {
  const size_t unit = _wide ? 2 : 1;
  size_t end = 0;
  while (end + unit <= rest.size() && !(rest[end] == '\n' && (!_wide || rest[end + 1] == 0)))
    end += unit;
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(end + unit, rest.size()));
  return line;
}

// Line by line, so that the section is not in memory a second time.
bool ResponseParser::parseProperties(std::string_view payload) {
  PropertyList pairs;
  const auto lines = static_cast<size_t>(std::count(payload.begin(), payload.end(), '\n')) + 1;
  pairs.reserve(std::min(lines, _limits.properties - _propertyCount));
  while (!payload.empty()) {
    const STRING text = decode(nextPair(payload));
    const std::u16string_view line = text.utf16();
    const size_t equals = line.find(u'=');
    if (line.starts_with(u'#') || equals == std::u16string_view::npos) continue;
    if (++_propertyCount > _limits.properties) return false;
    pairs.emplace_back(STRING(line.substr(0, equals)), STRING(line.substr(equals + 1)));
  }
  _properties.push_back(std::move(pairs));
  return true;
}

STRING ResponseParser::decode(std::string_view bytes) const {
  if (!_wide) return STRING(bytes);
  std::u16string text(bytes.size() / 2, u'\0');
  for (size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                    static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
  }
  return text;
}

}  // namespace korvane
