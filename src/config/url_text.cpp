#include "config/url_text.h"

#include <algorithm>

namespace korvane {
namespace {

template <class Char>
using View = std::basic_string_view<Char>;

template <class Char>
bool isLetter(Char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
template <class Char>
bool isDigit(Char c) {
  return c >= '0' && c <= '9';
}

// Where the URL's part with the host begins.
template <class Char>
size_t authorityOf(View<Char> url) {
  constexpr Char kMark[] = {':', '/', '/'};
  const size_t mark = url.find(View<Char>(kMark, 3));
  if (mark == View<Char>::npos || mark == 0 || !isLetter(url[0])) return 0;
  const bool scheme = std::all_of(
      url.begin(), url.begin() + static_cast<std::ptrdiff_t>(mark),
      [](Char c) { return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.'; });
  if (!scheme) return 0;
  size_t begin = mark + 3;
  while (begin < url.size() && url[begin] == '/') ++begin;  // libcurl skips them too
  return begin;
}

template <class Char>
size_t endOfAuthority(View<Char> url, size_t begin) {
  constexpr Char kEnds[] = {'/', '?', '#'};
  return std::min(url.find_first_of(View<Char>(kEnds, 3), begin), url.size());
}

// Whether "host[:port]" can be one: no port that is something else.
template <class Char>
bool isPlace(View<Char> place) {
  const size_t bracket = place.starts_with(Char('[')) ? place.find(Char(']')) : View<Char>::npos;
  const size_t colon = place.find(Char(':'), bracket == View<Char>::npos ? 0 : bracket);
  if (colon == View<Char>::npos) return true;
  return std::all_of(place.begin() + static_cast<std::ptrdiff_t>(colon) + 1, place.end(),
                     isDigit<Char>);
}

template <class Char>
UrlPlace find(View<Char> url) {
  const size_t begin = authorityOf(url);
  const size_t last = url.rfind(Char('@'));
  if (last == View<Char>::npos || last < begin) return {begin, begin};
  const View<Char> authority = url.substr(begin, endOfAuthority(url, begin) - begin);
  const size_t at = authority.rfind(Char('@'));
  if (at != View<Char>::npos && begin > 0) return {begin, begin + at + 1};
  return begin == 0 || !isPlace(authority) ? UrlPlace{begin, last + 1} : UrlPlace{begin, begin};
}

}  // namespace

UrlPlace placeInUrl(std::u16string_view url) {
  return find(url);
}

UrlText UrlText::parse(const STRING& url) {
  UrlText parts;
  const STRING text = url.trimmed();
  const UrlPlace place = placeInUrl(text.utf16());
  if (place.authority > 0) parts.protocol = text.substr(0, text.find("://"));
  if (place.host > place.authority)
    parts.user = text.substr(place.authority, place.host - 1 - place.authority);
  STRING rest = text.substr(place.host);
  const size_t end = endOfAuthority(std::u16string_view(rest.utf16()), 0);
  parts.path = rest.substr(end);
  rest = rest.substr(0, end);
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
  if (!user.empty()) {
    url += user;
    url += "@";
  }
  url += host;
  if (!port.empty()) {
    url += ":";
    url += port;
  }
  return url += path;
}

std::string withoutUser(std::string_view url) {
  const UrlPlace place = find(url);
  std::string shown(url.substr(0, place.authority));
  if (place.host > place.authority) {
    // A password may hold what ends the part with the host.
    shown += "***";
    url.remove_prefix(url.rfind('@'));
    return shown += url;
  }
  const std::string_view rest = url.substr(place.authority);
  const size_t query = rest.find_first_of("?#");
  if (query == std::string_view::npos || rest.find('@', query) == std::string_view::npos)
    return shown += rest;
  return shown.append(rest.substr(0, query + 1)) += "***";
}

}  // namespace korvane
