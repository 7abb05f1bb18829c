#include "comm/failure_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "config/url_text.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr size_t kShownBytes = 80;

std::string lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

// A cut never leaves half a character behind.
std::string cut(const std::string& text) {
  if (text.size() <= kShownBytes) return text;
  size_t end = kShownBytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
  return text.substr(0, end) + "...";
}

}  // namespace

std::string shown(const std::string& text) {
  std::string line = isValidUtf8(text) ? text : std::string();
  if (line.empty()) {
    for (const char c : text) line += c < ' ' || c > '~' ? '?' : c;
  }
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = ' ';
  }
  return cut(line);
}

std::string quoted(const std::string& text) {
  return "\"" + shown(text) + "\"";
}

bool isHttps(const std::string& url) {
  return lower(url.substr(0, 8)) == "https://";
}

bool isPlainHttp(const std::string& url) {
  return lower(url.substr(0, 7)) == "http://";
}

std::string hostOf(const std::string& url) {
  const std::string host = UrlText::parse(withoutUser(url)).host.toUtf8();
  return shown(host.starts_with('[') ? host.substr(1, host.find(']') - 1) : host);
}

std::string placeOf(const std::string& url) {
  const std::string port = UrlText::parse(withoutUser(url)).port.toUtf8();
  return hostOf(url) + " port " + (port.empty() ? isHttps(url) ? "443" : "80" : shown(port));
}

std::string howItEnded(const std::string& errorText) {
  if (contains(errorText, "reset")) return "reset";
  for (const char* sign : {"eof", "closed", "syscall", "aborted", "broken pipe", "getpeername"}) {
    if (contains(errorText, sign)) return "closed";
  }
  return {};
}

std::string bytesShown(const std::string& bytes) {
  const bool text =
      std::all_of(bytes.begin(), bytes.end(), [](char c) { return c >= ' ' && c <= '~'; });
  if (text) return quoted(bytes);
  std::string hex = "the bytes";
  for (const char c : bytes) hex += fmt::format(" {:02x}", static_cast<unsigned char>(c));
  return hex;
}

std::string seconds(uint64_t milliseconds) {
  std::string text = std::to_string(milliseconds / 1000);
  const uint64_t tenths = milliseconds % 1000 / 100;
  if (tenths) text += "." + std::to_string(tenths);
  return text + " s";
}

bool contains(const std::string& text, const char* part) {
  return lower(text).find(part) != std::string::npos;
}

}  // namespace korvane
