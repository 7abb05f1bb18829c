#include "comm/curl_trace.h"

#include <algorithm>

#include "config/url_text.h"

namespace korvane {
namespace {

constexpr std::string_view kHidden = "***";

// Headers of requests and answers whose values are no secret of anybody, in small letters.
constexpr std::string_view kHarmless[] = {"accept",
                                          "allow",
                                          "cache-control",
                                          "connection",
                                          "content-encoding",
                                          "content-length",
                                          "content-type",
                                          "date",
                                          "expect",
                                          "host",
                                          "keep-alive",
                                          "korvane-charset",
                                          "korvane-error",
                                          "korvane-error-text",
                                          "korvane-format-version",
                                          "proxy-connection",
                                          "retry-after",
                                          "server",
                                          "trailer",
                                          "transfer-encoding",
                                          "upgrade",
                                          "user-agent",
                                          "via"};

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return out;
}

std::string printable(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if ((c < ' ' && c != '\t') || c > '~') c = '.';
  return out;
}

// A line of a head: the request's or the status line, or a header.
std::string headLine(std::string_view line) {
  const size_t colon = line.find(':');
  const size_t blank = line.find(' ');
  // "POST http://host/ HTTP/1.1", "CONNECT host:443 HTTP/1.1", "HTTP/1.1 200 OK"
  if (blank < colon) {
    const bool first = line.starts_with("HTTP/") || line.find(" HTTP/") != std::string_view::npos;
    return first ? maskedRemark(line) : std::string(kHidden);
  }
  if (colon == std::string_view::npos) return line.empty() ? "" : std::string(kHidden);
  const std::string name = lower(line.substr(0, colon));
  const bool harmless =
      std::find(std::begin(kHarmless), std::end(kHarmless), name) != std::end(kHarmless);
  if (harmless) return maskedRemark(line);
  return printable(line.substr(0, colon)) + ": " + std::string(kHidden);
}

// "user 'ann'" without the name; what the first quotation mark opens ends at the last one.
void hideUser(std::string& text) {
  constexpr std::string_view kUser = "user '";
  const size_t at = text.find(kUser);
  if (at == std::string::npos) return;
  const size_t end = text.rfind('\'');
  const size_t begin = at + kUser.size();
  text.replace(begin, end > begin ? end - begin : text.size() - begin, kHidden);
}

// What stands before the last '@' began at a scheme, a quotation mark or a blank: at the first of
// them that is there, since a password may hold any.
void hideBeforeAt(std::string& text) {
  const size_t last = text.rfind('@');
  if (last == std::string::npos) return;
  const std::string_view before = std::string_view(text).substr(0, last);
  size_t begin = before.find("://");
  if (begin != std::string_view::npos) {
    begin += 3;
  } else {
    begin = before.find_first_of("'\"");
    if (begin == std::string_view::npos) begin = before.substr(0, before.find('@')).rfind(' ');
    begin = begin == std::string_view::npos ? 0 : begin + 1;
  }
  text.replace(begin, last - begin, kHidden);
}

}  // namespace

std::string maskedRemark(std::string_view text) {
  std::string out = printable(text);
  hideBeforeAt(out);
  hideUser(out);
  return out;
}

std::string traceText(curl_infotype type, std::string_view piece) {
  static constexpr const char* kMark[] = {"* ", "< ", "> "};
  if (type > CURLINFO_HEADER_OUT) return {};
  std::string out;
  while (!piece.empty()) {
    const size_t end = piece.find('\n');
    std::string_view line = piece.substr(0, end);
    piece.remove_prefix(end == std::string_view::npos ? piece.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    out += kMark[type];
    out += type == CURLINFO_TEXT ? maskedRemark(line) : headLine(line);
    out += '\n';
  }
  return out;
}

}  // namespace korvane
