#include "agentctl/value_check.h"

#include <algorithm>
#include <string_view>

#include "config/ini_text.h"
#include "config/setting_store.h"

namespace korvane::agentctl {
namespace {

struct Range {
  Key key;
  int64_t least;
  int64_t most;
};

constexpr Range kRanges[] = {{Key::tcpPort, 1, 65535},
                             {Key::logDiskUpperLimit, 0, 100},
                             {Key::logDiskLowerLimit, 0, 100},
                             {Key::logRolloverCause, 0, 2}};

const char* wantedText(ValueType type) {
  switch (type) {
    case ValueType::boolean:
      return "true or false";
    case ValueType::integer:
      return "a whole number from -2147483648 to 2147483647";
    case ValueType::interval:
      return "a whole number from 0 to 4294967295";
    default:
      return "a whole number from 0 to 2147483647";
  }
}

// A value as a text names it, cut where it is long.
std::string quoted(const STRING& value) {
  constexpr size_t kShown = 60;
  return "\"" + value.substr(0, kShown).toUtf8() + (value.length() > kShown ? "..." : "") + "\"";
}

ValueFault outside(const Range& range, const STRING& value) {
  const SettingRow& row = rowOf(range.key);
  const STRING wanted = value.empty() ? STRING(row.defaultText) : value;
  const int64_t number = std::stoll(wanted.toUtf8());
  if (number >= range.least && number <= range.most) return {};
  return {true, quoted(wanted) + " is out of range: " + row.name + " takes " +
                    std::to_string(range.least) + " to " + std::to_string(range.most)};
}

ValueFault checkUrl(const STRING& url) {
  if (url.empty()) return {};
  if (!url.startsWith("https://")) return {false, quoted(url) + " does not begin with https://"};
  if (!url.endsWith("/"))
    return {false, quoted(url) + " does not end with /, and words are appended to it"};
  return {};
}

ValueFault checkPriority(const STRING& value) {
  if (value.empty() || value == "low" || value == "norm" || value == "high") return {};
  return {false, quoted(value) + " is none of low, norm and high"};
}

ValueFault checkMeaning(const SettingRow& row, const STRING& value) {
  if (row.key == Key::agentUrl) return checkUrl(value);
  if (row.key == Key::logPriority) return checkPriority(value);
  for (const Range& range : kRanges)
    if (range.key == row.key) return outside(range, value);
  return {};
}

}  // namespace

ValueFault checkValue(const SettingRow& row, const STRING& value) {
  const STRING held = lineValue(value);
  if (held.length() > SettingStore::kMaxValueUnits)
    return {true, std::string("the value of ") + row.name + " has " +
                      std::to_string(held.length()) + " characters, more than " +
                      std::to_string(SettingStore::kMaxValueUnits)};
  SettingStore store(storeOf(row));
  if (store.set(row, held) == SettingStore::Result::refused)
    return {true,
            quoted(held) + " is not " + wantedText(row.type) + ", which " + row.name + " takes"};
  return checkMeaning(row, store.text(row.key));
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
