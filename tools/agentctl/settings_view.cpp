#include "agentctl/settings_view.h"

#include "agentctl/failure.h"
#include "config/ini_files.h"
#include "config/masking.h"

namespace korvane::agentctl {
namespace {

const char* predicateOf(IniFault fault) {
  switch (fault) {
    case IniFault::missing:
      return "is not there";
    case IniFault::unreadable:
      return "cannot be opened";
    case IniFault::tooLarge:
      return "is damaged: it is larger than 4 MiB";
    case IniFault::notText:
      return "is damaged: it is not UTF-8";
    default:
      return "is damaged: its checksum does not match";
  }
}

}  // namespace

void SettingsView::take(const IniText& file) {
  PropertyList refused;  // `config check` names them; here the settings are shown that hold
  _settings.merge(file, refused);
  _communication.merge(file, refused);
  for (const auto& [key, value] : file.values)
    if (!findRow(key) && _settings.other(key)) _others.emplace_back(key, *_settings.other(key));
}

SettingsView SettingsView::ofInstallation(const IniFiles& files) {
  const bool hasFallback = files.stampOf(files.fallbackIni()).exists;
  FileMemory memory;
  IniText text;
  const IniFault fault = files.readIniFileInMem(memory, files.agentIni(), text, !hasFallback);
  if (fault == IniFault::none) {
    SettingsView view(files.agentIni());
    view.take(text);
    return view;
  }
  const std::string what = files.agentIni() + " " + predicateOf(fault);
  if (fault == IniFault::unreadable)
    throw Failure(ExitStatus::notPermitted, what,
                  "Run this as the agent's account or as administrator.");
  const IniFault second = files.readIniFileInMem(memory, files.fallbackIni(), text, true);
  SettingsView view(second == IniFault::none ? files.fallbackIni() : "the built-in defaults");
  view._fault = what;
  if (second == IniFault::none)
    view.take(text);
  else
    view._fault += ", and fallback.ini " + std::string(predicateOf(second));
  return view;
}

SettingsView SettingsView::ofFile(const IniFiles& files, const std::string& path) {
  FileMemory memory;
  IniText text;
  const IniFault fault = files.readIniFileInMem(memory, path, text, true);
  if (fault != IniFault::none && fault != IniFault::corrupt)
    throw Failure(ExitStatus::failed, path + " " + predicateOf(fault),
                  "`agentctl config check FILE` tells more about a file.");
  SettingsView view(path);
  view.take(text);
  return view;
}

STRING SettingsView::text(Key key) const {
  return (mapKindOf(rowOf(key)) == MapKind::settings ? _settings : _communication).text(key);
}

const STRING* SettingsView::find(const STRING& key) const {
  if (const SettingRow* row = findRow(key))
    return &(mapKindOf(*row) == MapKind::settings ? _settings : _communication).text(row->key);
  return _settings.other(key);
}

bool SettingsView::set(const STRING& key, const STRING& value) {
  const SettingRow* row = findRow(key);
  const ValueMap::Result result =
      !row ? _settings.setOther(key, value)
           : (mapKindOf(*row) == MapKind::settings ? _settings : _communication).set(*row, value);
  return result != ValueMap::Result::refused;
}

std::vector<SettingsView::Entry> SettingsView::entries() const {
  std::vector<Entry> all;
  for (const SettingRow& row : settingsTable()) {
    if (row.section == std::string_view(kSectionAfterOther) && all.back().section != row.section)
      for (const auto& [key, value] : _others) all.push_back({kOtherSection, key.toUtf8(), value});
    all.push_back({row.section, row.name, text(row.key)});
  }
  return all;
}

std::string SettingsView::shown(const std::string& key, const STRING& value, bool inFull) {
  return inFull ? value.toUtf8() : maskedSetting(key, value.toUtf8());
}

}  // namespace korvane::agentctl
