#include "config/url_text.h"

namespace korvane {

UrlText UrlText::parse(const STRING& url) {
  UrlText parts;
  STRING rest = url.trimmed();
  if (const size_t mark = rest.find("://"); mark != STRING::npos) {
    parts.protocol = rest.substr(0, mark);
    rest = rest.substr(mark + 3);
  }
  if (const size_t slash = rest.find("/"); slash != STRING::npos) {
    parts.path = rest.substr(slash);
    rest = rest.substr(0, slash);
  }
  const size_t bracket = rest.find("]");
  const size_t colon = rest.find(":", bracket == STRING::npos ? 0 : bracket);
  parts.host = rest.substr(0, colon);
  if (colon != STRING::npos) parts.port = rest.substr(colon + 1);
  return parts;
}

STRING UrlText::text() const {
  if (host.empty()) return {};
  STRING url = protocol.empty() ? STRING("https") : protocol;
  url += "://";
  url += host;
  if (!port.empty()) {
    url += ":";
    url += port;
  }
  return url += path;
}

}  // namespace korvane
