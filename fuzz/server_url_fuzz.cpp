// Any text as agent.http.url and as server.list. What is taken for the URL's host is the one that
// libcurl connects to, and another host can be put in its place and is found there; a text to show
// holds no user that libcurl sees. No entry of a list is empty, names a user or holds a blank, and
// a fail-over reaches each of them.
#include <curl/curl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "comm/server_url.h"
#include "config/server_list.h"
#include "config/setting_check.h"
#include "config/url_text.h"

namespace {

using namespace korvane;
using Url = std::unique_ptr<CURLU, void (*)(CURLU*)>;

constexpr char kOther[] = "other.example";

std::string part(const Url& url, CURLUPart which) {
  char* text = nullptr;
  if (curl_url_get(url.get(), which, &text, 0) != CURLUE_OK) return {};
  const std::string copy = text;
  curl_free(text);
  return copy;
}

Url parse(const std::string& text) {
  Url url(curl_url(), &curl_url_cleanup);
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) url.reset();
  return url;
}

void checkUrl(const std::string& bytes) {
  const STRING text(bytes);
  const std::string valid = text.toUtf8();  // as the settings hold it
  const std::string shown = withoutUser(valid);
  if (withoutUser(shown) != shown) std::abort();
  const STRING host = hostOfUrl(text);
  if (host.find("@") != STRING::npos) std::abort();
  if (UrlText::parse(text).host.find("@") != STRING::npos) std::abort();
  if (valid.find('\0') != std::string::npos) return;
  const Url seen = parse(valid);
  if (!seen) return;
  const std::string user = part(seen, CURLUPART_USER), word = part(seen, CURLUPART_PASSWORD);
  const bool hidden = shown.find("***@") != std::string::npos;
  if (!hidden && !(user + word).empty()) std::abort();
  // A URL that the settings' rules take is read as libcurl reads it.
  if (!settingFault("agent.http.url", text).empty() || valid.find('%') != std::string::npos) return;
  // libcurl writes addresses its own way.
  const std::string connected = part(seen, CURLUPART_HOST);
  const bool address =
      connected.find_first_not_of("0123456789.") == std::string::npos || connected.starts_with('[');
  if (!address && connected != host.toUtf8()) std::abort();
  if (hostOfUrl(withHost(text, kOther)) != STRING(kOther)) std::abort();
}

void checkList(const std::string& bytes) {
  ServerList list;
  const STRING text(bytes);
  list.assign(text, "host");
  const auto& entries = list.entries();
  for (const STRING& entry : entries)
    if (entry.empty() || entry.find("@") != STRING::npos || entry.find(" ") != STRING::npos)
      std::abort();
  if ((list.refused() > 0) != (text.find("@") != STRING::npos)) std::abort();
  const bool ordinary = text.length() <= 65536 && text.find("****") == STRING::npos;
  if (ordinary && (list.refused() > 0) == settingFault("server.list", text).empty()) std::abort();
  if (list.primary() != (entries.empty() ? STRING("host") : entries.front())) std::abort();
  for (size_t i = 0; i < entries.size() && i < 100; ++i) {
    list.setNextAfter(entries[i]);
    if (std::find(entries.begin(), entries.end(), list.next()) == entries.end()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  checkUrl(bytes);
  checkUrl("https://" + bytes);
  checkList(bytes);
  return 0;
}
