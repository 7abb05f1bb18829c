#include "cloud/settings_change.h"

#include <algorithm>

#include "cloud/parameters.h"
#include "config/masking.h"
#include "config/setting_check.h"
#include "config/settings_file.h"
#include "rpc/rpc_errors.h"

namespace korvane {
namespace {

bool holdsControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

void apply(SettingsFile& settings, const PropertyList& changes) {
  STRING refusedKey;
  switch (settings.changeAll(changes, refusedKey)) {
    case SettingsFile::ChangeAll::refused:
      refuseParameter(refusedKey.toUtf8(), "the value is refused");
    case SettingsFile::ChangeAll::locked:
      throw RPCError(kRpcFileOpenError, "agent.ini: another program holds the lock file");
    case SettingsFile::ChangeAll::notWritten:
      throw RPCError(kRpcFileCopyError, "agent.ini cannot be written");
    default:
      break;
  }
}

int countChanged(const SettingsFile& settings, const PropertyList& before) {
  int changed = 0;
  for (const auto& [key, value] : before)
    if (settings.getValue(key) != value) ++changed;
  return changed;
}

}  // namespace

PropertyList settingsFrom(const JsonTree& params, const SettingsFile& settings) {
  const JsonTree* given = givenParameter(params, "settings");
  if (!given) refuseParameter("settings", "is missing");
  PropertyList changes;
  for (const auto& [name, child] : *given) {
    const STRING key = name;
    const STRING value = child.data();
    if (name.empty()) refuseParameter("settings", "must be a non-empty object");
    if (!settings.hasValue(key)) refuseParameter(name, "is not a setting");
    if (!child.empty())
      refuseParameter(name, "the value must be a string, a number, true or false");
    if (holdsControl(child.data()))
      refuseParameter(name, "contains a line break or another control character");
    if (const std::string fault = trustFault(key); !fault.empty()) refuseParameter(name, fault);
    if (const std::string fault = settingFault(key, value); !fault.empty())
      refuseParameter(name, "\"" + maskedSetting(name, child.data()) + "\" " + fault);
    changes.emplace_back(key, value);
  }
  if (changes.empty()) refuseParameter("settings", "must be a non-empty object");
  return changes;
}

int changeSettings(SettingsFile& settings, const PropertyList& changes) {
  const PropertyList before = settings.allValues();
  apply(settings, changes);
  return countChanged(settings, before);
}

}  // namespace korvane
