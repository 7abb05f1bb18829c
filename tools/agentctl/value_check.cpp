#include "agentctl/value_check.h"

#include "config/ini_text.h"
#include "config/masking.h"
#include "config/setting_check.h"

namespace korvane::agentctl {
namespace {

// "key: "value" ", secrets masked, cut where it is long.
std::string subject(const STRING& key, const STRING& value) {
  constexpr size_t kShown = 60;
  const STRING shown(maskedSetting(key.toUtf8(), value.toUtf8()));
  return key.toUtf8() + ": \"" + shown.substr(0, kShown).toUtf8() +
         (shown.length() > kShown ? "..." : "") + "\" ";
}

}  // namespace

ValueFault checkValue(const STRING& key, const STRING& value) {
  const STRING held = lineValue(value);
  const std::string fault = settingFault(key, held);
  if (!fault.empty()) return {true, subject(key, held) + fault};
  const std::string doubt = settingDoubt(key, held);
  return {false, doubt.empty() ? "" : subject(key, held) + doubt};
}

const std::vector<std::string>& keyNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const SettingRow& row : settingsTable()) all.emplace_back(row.name);
    return all;
  }();
  return names;
}

const std::vector<std::string>& sectionNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all{kOtherSection, kChecksumSection};
    for (const SettingRow& row : settingsTable())
      if (all.back() != row.section) all.emplace_back(row.section);
    return all;
  }();
  return names;
}

}  // namespace korvane::agentctl
