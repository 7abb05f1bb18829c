#include "agentctl/value_check.h"

#include <string_view>

#include "config/ini_text.h"
#include "config/setting_check.h"
#include "platform/paths.h"

namespace korvane::agentctl {
namespace {

// A number that the agent takes and cannot use.
struct Range {
  Key key;
  int64_t least;
  int64_t most;
};

constexpr Range kRanges[] = {{Key::logDiskUpperLimit, 0, 100},
                             {Key::logDiskLowerLimit, 0, 100},
                             {Key::logRolloverCause, 0, 2},
                             {Key::signingMinimum, 1, 16}};

// "key: "value" ", cut where it is long.
std::string subject(const SettingRow& row, const STRING& value) {
  constexpr size_t kShown = 60;
  return std::string(row.name) + ": \"" + value.substr(0, kShown).toUtf8() +
         (value.length() > kShown ? "..." : "") + "\" ";
}

std::string doubt(const SettingRow& row, const STRING& value) {
  if (value.empty()) return {};
  if (row.key == Key::agentUrl) {
    if (!value.startsWith("https://")) return "does not begin with https://";
    if (!value.endsWith("/")) return "does not end with /, and paths are appended to it";
  }
  if (row.key == Key::logPriority && value != "low" && value != "norm" && value != "high")
    return "is not low, norm or high";
  if (row.key == Key::signingKeys && !platform::isAbsolutePath(value.toUtf8()))
    return "is not a full path";
  for (const Range& range : kRanges)
    if (range.key == row.key && (value.toInt() < range.least || value.toInt() > range.most))
      return "is not from " + std::to_string(range.least) + " to " + std::to_string(range.most);
  return {};
}

}  // namespace

ValueFault checkValue(const SettingRow& row, const STRING& value) {
  const STRING held = lineValue(value);
  const std::string fault = settingFault(row.name, held);
  if (!fault.empty()) return {true, subject(row, held) + fault};
  const std::string doubtful = doubt(row, held);
  return {false, doubtful.empty() ? "" : subject(row, held) + doubtful};
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
