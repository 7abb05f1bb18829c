#include "tools/server/wire_message.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "util/utf8.h"

namespace korvane::server {

namespace {

// Plain ASCII is the usual case and told by one pass that the compiler vectorises.
bool isUtf8(std::string_view bytes) {
  unsigned char bits = 0;
  for (const char byte : bytes)
    bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(byte));
  return bits < 0x80 || isValidUtf8(bytes);
}

constexpr std::string_view kEndMarker = "EOF_FLAG";
constexpr std::string_view kFormatKey = "Data-Format=";
constexpr std::string_view kNameKey = "Data-Type=";
constexpr std::string_view kLengthKey = "Data-Length=";

class Reader {
 public:
  explicit Reader(std::string_view body) : _body(body) {}

  WireMessage read() {
    while (_message.error.empty() && readSection()) {
    }
    if (!_message.error.empty()) _message.sections.clear();
    return std::move(_message);
  }

 private:
  // False at the end marker and after an error.
  bool readSection() {
    while (_at < _body.size() && _body[_at] == '\n') ++_at;
    const size_t start = _at;
    const auto first = line("a section or the end marker");
    if (!first) return false;
    if (*first == kEndMarker) return finish();
    WireSection section;
    const auto format = valueOf(*first, kFormatKey, start);
    if (!format) return false;
    const auto name = header(kNameKey);
    if (!name) return false;
    const size_t lengthAt = _at;
    const auto length = header(kLengthKey);
    if (!length) return false;
    section.format = *format;
    section.name = *name;
    if (!payload(*length, lengthAt, section) || !check(section, start)) return false;
    _message.sections.push_back(section);
    return true;
  }

  bool finish() {
    if (_at != _body.size()) return fail("bytes after the end marker", _at);
    return false;
  }

  std::optional<std::string_view> header(std::string_view key) {
    const size_t start = _at;
    const auto text = line(key);
    return text ? valueOf(*text, key, start) : std::nullopt;
  }

  std::optional<std::string_view> valueOf(std::string_view text, std::string_view key,
                                          size_t start) {
    if (text.starts_with(key)) return text.substr(key.size());
    fail("a line that should begin with \"" + std::string(key) + "\"", start);
    return std::nullopt;
  }

  std::optional<std::string_view> line(std::string_view wanted) {
    const size_t end = _body.find('\n', _at);
    if (end == std::string_view::npos) {
      fail("the body ends where " + std::string(wanted) + " should be", _at);
      return std::nullopt;
    }
    const auto text = _body.substr(_at, end - _at);
    _at = end + 1;
    return text;
  }

  bool payload(std::string_view digits, size_t digitsAt, WireSection& section) {
    size_t length = 0;
    const char* last = digits.data() + digits.size();
    const auto [end, status] = std::from_chars(digits.data(), last, length);
    if (digits.empty() || status != std::errc() || end != last) {
      return fail("Data-Length \"" + std::string(digits.substr(0, 32)) + "\" is not a length",
                  digitsAt);
    }
    if (_at >= _body.size() || _body[_at] != '\n')
      return fail("no empty line before a payload", _at);
    ++_at;
    if (length >= _body.size() - _at) return fail("Data-Length exceeds the body", digitsAt);
    section.payload = _body.substr(_at, length);
    _at += length;
    if (_body[_at] != '\n') return fail("no line feed after a payload", _at);
    ++_at;
    return true;
  }

  bool check(const WireSection& section, size_t start) {
    if (section.isProperties()) return checkProperties(section.payload, start);
    const bool known = section.format == "text/xml" || section.format == "binary/zip";
    return known || fail("a section \"" + std::string(section.name.substr(0, 64)) +
                             "\" of format \"" + std::string(section.format.substr(0, 64)) + "\"",
                         start);
  }

  bool checkProperties(std::string_view payload, size_t start) {
    for (size_t at = 0; at < payload.size();) {
      const size_t end = payload.find('\n', at);
      if (end == std::string_view::npos) return fail("a property without its line feed", start);
      const size_t equals = payload.find('=', at);
      if (equals == std::string_view::npos || equals >= end)
        return fail("a property without \"=\"", start);
      at = end + 1;
    }
    return isUtf8(payload) || fail("properties that are not UTF-8", start);
  }

  bool fail(const std::string& what, size_t at) {
    if (_message.error.empty()) _message.error = "body offset " + std::to_string(at) + ": " + what;
    return false;
  }

  std::string_view _body;
  size_t _at = 0;
  WireMessage _message;
};

}  // namespace

WireMessage readMessage(std::string_view body) {
  return Reader(body).read();
}

WireProperties readProperties(std::string_view payload) {
  WireProperties properties;
  for (size_t at = 0; at < payload.size();) {
    const size_t end = payload.find('\n', at);
    const size_t equals = payload.find('=', at);
    if (end == std::string_view::npos || equals >= end) break;
    properties.emplace_back(payload.substr(at, equals - at),
                            payload.substr(equals + 1, end - equals - 1));
    at = end + 1;
  }
  return properties;
}

std::string_view propertyIn(std::string_view payload, std::string_view name) {
  for (size_t at = 0; at < payload.size();) {
    size_t end = payload.find('\n', at);
    if (end == std::string_view::npos) end = payload.size();
    const auto line = payload.substr(at, end - at);
    if (line.size() > name.size() && line[name.size()] == '=' && line.starts_with(name)) {
      return line.substr(name.size() + 1);
    }
    at = end + 1;
  }
  return {};
}

std::string propertyOf(const WireProperties& properties, std::string_view name) {
  for (const auto& [key, value] : properties) {
    if (key == name) return value;
  }
  return {};
}

void writeSection(std::string& out, std::string_view format, std::string_view name,
                  std::string_view payload) {
  out.append(kFormatKey).append(format).append("\n");
  out.append(kNameKey).append(name).append("\n");
  out.append(kLengthKey).append(std::to_string(payload.size())).append("\n\n");
  out.append(payload).append("\n");
}

void writeProperties(std::string& out, const WireProperties& properties) {
  std::string payload;
  for (const auto& [name, value] : properties)
    payload.append(name).append("=").append(value).append("\n");
  writeSection(out, "text/plain", "properties", payload);
}

void writeEnd(std::string& out) {
  out.append(kEndMarker).append("\n");
}

std::string withDataLength(const std::string& body, std::string_view value) {
  std::string changed;
  size_t at = 0;
  for (size_t key; (key = body.find(kLengthKey, at)) != std::string::npos;) {
    const size_t digits = key + kLengthKey.size();
    changed.append(body, at, digits - at).append(value);
    at = std::min(body.find('\n', digits), body.size());
  }
  return changed.append(body, at);
}

}  // namespace korvane::server
