#include "config/server_list.h"

#include <algorithm>
#include <string>
#include <utility>

namespace korvane {
namespace {

STRING withoutBlanks(const STRING& text) {
  std::u16string units = text.utf16();
  std::erase_if(units, [](char16_t unit) { return unit == u' ' || unit == u'\t'; });
  return STRING(std::move(units));
}

}  // namespace

bool ServerList::namesUser(const STRING& entry) {
  return entry.find("@") != STRING::npos;
}

void ServerList::assign(const STRING& text, const STRING& urlHost) {
  _text = text;
  _entries.clear();
  _refused = 0;
  for (const STRING& part : text.split(u',')) {
    STRING entry = withoutBlanks(part);
    if (entry.empty()) continue;
    if (namesUser(entry)) {
      ++_refused;
      continue;
    }
    _entries.push_back(std::move(entry));
  }
  _primary = _entries.empty() ? urlHost : _entries.front();
  _current = _primary;
  setNextAfter(_primary);
  _last = "Unknown";
}

void ServerList::setUrlHost(const STRING& urlHost) {
  if (!_entries.empty() || urlHost == _primary) return;
  _primary = urlHost;
  _current = urlHost;
  _next = urlHost;
}

void ServerList::setNextAfter(const STRING& server) {
  if (_entries.empty()) {
    _next = _primary;
    return;
  }
  const auto found = std::find(_entries.begin(), _entries.end(), server);
  const bool wraps = found == _entries.end() || found + 1 == _entries.end();
  _next = wraps ? _entries.front() : *(found + 1);
}

}  // namespace korvane
