#include "config/refused_settings.h"

#include <algorithm>

#include "config/ini_text.h"

namespace korvane {
namespace {

constexpr size_t kShownKeyUnits = 80;
constexpr size_t kShownValueUnits = 40;

std::string start(const STRING& text, size_t units) {
  const STRING line = lineValue(text.substr(0, units));
  return line.toUtf8() + (text.length() > units ? "..." : "");
}

std::string named(const RefusedSetting& setting) {
  return start(setting.key, kShownKeyUnits) + "=" + start(setting.value, kShownValueUnits) + " " +
         setting.reason;
}

}  // namespace

std::string refusedSettingsText(const RefusedSettings& refused) {
  if (refused.empty()) return {};
  std::string text =
      std::to_string(refused.count) + (refused.count == 1 ? " setting" : " settings");
  text += " refused: ";
  for (const RefusedSetting& setting : refused.named)
    text += (&setting == refused.named.data() ? "" : "; ") + named(setting);
  if (refused.count > refused.named.size())
    text += "; and " + std::to_string(refused.count - refused.named.size()) + " more";
  return text;
}

}  // namespace korvane
