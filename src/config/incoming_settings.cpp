#include "config/incoming_settings.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "config/setting_check.h"
#include "config/settings_table.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr std::string_view kPathSeparators = "/\\";
// What ends a path in a text that may name several.
constexpr std::string_view kEndOfPath = "\"'<>|;,=";
constexpr std::string_view kBlanksAround = " \t";

// A part that leads elsewhere on some system: upwards, to a device, to a stream of a file.
bool leadsAway(std::string_view part) {
  if (part.empty()) return false;
  return part.ends_with('.') || part.ends_with(' ') || part.find(':') != std::string_view::npos ||
         std::any_of(part.begin(), part.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

bool isShare(std::string_view path) {
  return path.find_first_not_of(kPathSeparators) != 0 &&
         path.find_first_of(kPathSeparators, 1) == 1;
}

std::string_view withoutBlanksAround(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanksAround);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanksAround) - first + 1);
}

bool holdsPath(std::string_view word) {
  return word == ".." || word.find_first_of(kPathSeparators) != std::string_view::npos ||
         (word.size() > 1 && word[1] == ':');
}

}  // namespace

const char* nameOf(SettingsSource source) {
  switch (source) {
    case SettingsSource::server:
      return "server";
    case SettingsSource::cloudChannel:
      return "cloud channel";
    default:
      return "local channel";
  }
}

IncomingSettings::IncomingSettings(const Surroundings& of) : _of(of) {
  for (const STRING& part : of.localOnly.split(u','))
    if (STRING key = part.trimmed(); !key.empty()) _localOnly.insert(std::move(key));
  if (!_localOnly.empty()) _localOnly.insert(rowOf(Key::settingsLocalOnly).name);
}

bool IncomingSettings::staysBelow(std::string_view path) const {
  if (path.empty()) return true;
  const bool absolute = platform::isAbsolutePath(path);
  if (isShare(path)) return false;
  std::string_view rest = path;
  if (absolute && path.size() > 2 && path[1] == ':') rest.remove_prefix(2);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find_first_of(kPathSeparators), rest.size());
    if (leadsAway(rest.substr(0, end))) return false;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  const std::string full =
      absolute ? std::string(path) : platform::joinPath(_of.files, {_of.own, path});
  std::string root;
  std::string leadsTo;
  if (_of.root.empty() || _of.files.resolve(_of.root, root) != 0 ||
      _of.files.resolve(full, leadsTo) != 0)
    return false;
  return leadsTo.size() > root.size() && leadsTo.starts_with(root) &&
         kPathSeparators.find(leadsTo[root.size()]) != std::string_view::npos;
}

bool IncomingSettings::allStayBelow(std::string_view text) const {
  while (!text.empty()) {
    const size_t end = std::min(text.find_first_of(kEndOfPath), text.size());
    const std::string_view word = withoutBlanksAround(text.substr(0, end));
    if (holdsPath(word) && !staysBelow(word)) return false;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return true;
}

SettingVerdict IncomingSettings::judge(SettingsSource from, const STRING& key,
                                       const STRING& value) const {
  if (keptLocal(key)) return {"is kept local (settings.local.only)", true};
  if (std::string fault = settingFault(key, value); !fault.empty()) return {std::move(fault)};
  if (from == SettingsSource::localChannel) return {};
  if (std::string doubt = settingDoubt(key, value, _of.plainHttp); !doubt.empty())
    return {std::move(doubt)};
  const SettingRow* row = findRow(key);
  const std::string text = value.trimmed().toUtf8();
  if ((row && row->type == ValueType::path && !staysBelow(text)) ||
      (row && row->type == ValueType::paths && !allStayBelow(text)))
    return {"names a file or folder outside the installation", true};
  return {};
}

}  // namespace korvane
