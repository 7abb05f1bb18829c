#include "config/setting_check.h"

#include <algorithm>
#include <iterator>

#include "config/identity_check.h"
#include "config/ini_text.h"
#include "config/masking.h"
#include "config/server_list.h"
#include "config/url_text.h"
#include "config/value_map.h"
#include "platform/paths.h"
#include "util/terminal_text.h"

namespace korvane {
namespace {

const char* typeFault(ValueType type) {
  switch (type) {
    case ValueType::boolean:
      return "is neither true nor false";
    case ValueType::integer:
      return "is not a number from -2147483648 to 2147483647";
    case ValueType::interval:
      return "is not a number from 0 to 4294967295";
    case ValueType::enumeration:
      return "is not a number from 0 to 2147483647";
    default:
      return "is too long";
  }
}

bool isPort(const STRING& text) {
  const int32_t number = text.toInt();
  return number > 0 && number <= kLastPort && STRING::fromInt(number) == text;
}

std::string urlFault(const STRING& value) {
  if (value.empty()) return {};
  const UrlText url = UrlText::parse(value);
  if (!url.protocol.equalsIgnoreCase("https") && !url.protocol.equalsIgnoreCase("http"))
    return "begins with neither https:// nor http://";
  if (url.host.empty()) return "names no host";
  if (value.find(" ") != STRING::npos) return "holds a blank";
  if (value.find("@") != STRING::npos) return "names a user";
  return url.port.empty() || isPort(url.port) ? "" : "names no port from 1 to 65535";
}

std::string serverListFault(const STRING& value) {
  for (const STRING& entry : value.split(u','))
    if (ServerList::namesUser(entry)) return "names a user, where a host name or an address stands";
  return {};
}

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

std::string rowDoubt(const SettingRow& row, const STRING& value, bool plainHttp) {
  if (row.key == Key::agentUrl) {
    if (!value.startsWith("https://") && !(plainHttp && value.startsWith("http://")))
      return "does not begin with https://";
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

bool comesWithPolicy(const STRING& key) {
  const SettingRow* row = findRow(key);
  if (!row) return false;
  constexpr Key kept[] = {Key::plusPolicyFile, Key::policyName, Key::policyId, Key::policyPath};
  return std::find(std::begin(kept), std::end(kept), row->key) != std::end(kept);
}

std::string trustFault(const STRING& key) {
  const SettingRow* row = findRow(key);
  const bool decides = row && (row->key == Key::signingKeys || row->key == Key::signingMinimum);
  return decides ? "is local: it can be set in agent.ini alone" : "";
}

std::string settingFault(const STRING& key, const STRING& value) {
  if (value.length() > ValueMap::kMaxValueUnits) return "is too long";
  if (value.find(kMask) != STRING::npos) return "holds a mask in place of the secret";
  const SettingRow* row = findRow(key);
  if (!row) return {};
  ValueMap probe(mapKindOf(*row));
  if (probe.set(*row, value) == ValueMap::Result::refused) return typeFault(row->type);
  if (row->key == Key::agentUrl) return urlFault(value.trimmed());
  if (row->key == Key::serverList) return serverListFault(value);
  if (row->key == Key::sslServerNames || row->key == Key::sslServerPins ||
      row->key == Key::sslMinimumVersion)
    return identityFault(row->key, value);
  if (row->key == Key::tcpPort && probe.number(row->key) > kLastPort)
    return "is not a port from 0 to 65535";
  return {};
}

std::string settingDoubt(const STRING& key, const STRING& value, bool plainHttp) {
  const STRING held = lineValue(value);
  const std::string text = (oneLine(key) + held).toUtf8();
  if (terminalText(text) != text)
    return "holds characters that steer a terminal or turn the reading direction";
  const SettingRow* row = findRow(key);
  return row && !held.empty() ? rowDoubt(*row, held, plainHttp) : "";
}

}  // namespace korvane
