#include "platform/reg_text.h"

#include <algorithm>

#include "platform/reg_syntax.h"
#include "util/utf8.h"

namespace korvane::platform {
namespace {

std::string fullPath(std::string_view key) {
  std::string path("HKEY_LOCAL_MACHINE");
  key = trimRegPath(key);
  if (!key.empty()) path.append("\\").append(key);
  return path;
}

std::string foldedPath(std::string_view key) {
  return foldRegName(fullPath(key));
}

bool isBelow(const std::string& folded, const std::string& above) {
  return folded.size() > above.size() && folded[above.size()] == '\\' && folded.starts_with(above);
}

}  // namespace

std::string RegDocument::format() const {
  const std::string_view end = _crlf ? "\r\n" : "\n";
  std::string text = _header;
  text += end;
  for (const std::string& comment : _preamble) text.append(comment).append(end);
  for (const Key& key : _keys) {
    text.append(end).append("[").append(key.path).append("]").append(end);
    for (const RegItem& item : key.items) appendRegItem(text, item, end);
  }
  if (!_utf16) return std::string(_mark ? kUtf8Mark : "") + text;
  std::string bytes(kUtf16Mark);
  for (const char16_t unit : utf8ToUtf16(text)) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

const RegDocument::Key* RegDocument::findKey(const std::string& folded) const {
  const auto found = std::find_if(_keys.begin(), _keys.end(),
                                  [&](const Key& key) { return key.folded == folded; });
  return found == _keys.end() ? nullptr : &*found;
}

RegDocument::Key& RegDocument::keyFor(const std::string& path) {
  const std::string folded = foldRegName(path);
  if (const Key* known = findKey(folded)) return const_cast<Key&>(*known);
  return _keys.emplace_back(Key{path, folded, {}});
}

void RegDocument::eraseTree(const std::string& folded) {
  std::erase_if(
      _keys, [&](const Key& key) { return key.folded == folded || isBelow(key.folded, folded); });
}

// A key that only stands above another one in the file exists as well.
bool RegDocument::hasKey(std::string_view key) const {
  return findKey(foldedPath(key)) || hasSubkeys(key);
}

bool RegDocument::hasSubkeys(std::string_view key) const {
  const std::string folded = foldedPath(key);
  return std::any_of(_keys.begin(), _keys.end(),
                     [&](const Key& known) { return isBelow(known.folded, folded); });
}

void RegDocument::addKey(std::string_view key) {
  keyFor(fullPath(key));
}

void RegDocument::removeKey(std::string_view key) {
  const std::string path = fullPath(key), folded = foldRegName(path);
  std::erase_if(_keys, [&](const Key& known) { return known.folded == folded; });
  keyFor(path.substr(0, path.rfind('\\')));
}

const RegItem* RegDocument::find(std::string_view key, std::string_view name) const {
  const Key* found = findKey(foldedPath(key));
  if (!found) return nullptr;
  for (const RegItem& item : found->items)
    if (item.kind != RegItem::Kind::comment && sameRegName(item.name, name)) return &item;
  return nullptr;
}

RegItem& RegDocument::itemFor(std::string_view key, std::string_view name) {
  if (const RegItem* known = find(key, name)) return const_cast<RegItem&>(*known);
  RegItem& added = keyFor(fullPath(key)).items.emplace_back();
  added.name = name;
  return added;
}

void RegDocument::setString(std::string_view key, std::string_view name, const STRING& value) {
  RegItem& item = itemFor(key, name);
  item.kind = RegItem::Kind::string;
  item.text = value;
}

void RegDocument::setDword(std::string_view key, std::string_view name, uint32_t value) {
  RegItem& item = itemFor(key, name);
  item.kind = RegItem::Kind::dword;
  item.number = value;
}

}  // namespace korvane::platform
