#include "comm/server_url.h"

#include <algorithm>
#include <string_view>

#include "config/server_settings.h"
#include "config/url_text.h"

namespace korvane {
namespace {

struct Span {
  size_t begin;
  size_t end;
};

Span hostSpan(std::u16string_view url) {
  const size_t begin = placeInUrl(url).host;
  const size_t limit = std::min(url.find_first_of(u"/?#", begin), url.size());
  if (begin == limit || url[begin] != u'[') return {begin, std::min(url.find(u':', begin), limit)};
  const size_t bracket = url.find(u']', begin);
  return {begin, bracket < limit ? bracket + 1 : limit};
}

}  // namespace

STRING hostOfUrl(const STRING& url) {
  const Span host = hostSpan(url.utf16());
  return url.substr(host.begin, host.end - host.begin);
}

STRING withHost(const STRING& url, const STRING& host) {
  const Span old = hostSpan(url.utf16());
  return url.substr(0, old.begin) + host + url.substr(old.end);
}

STRING serverInUse(const ServerSettings& settings) {
  const STRING current = settings.getServerCurrent();
  return current.empty() ? hostOfUrl(settings.getURL()) : current;
}

}  // namespace korvane
