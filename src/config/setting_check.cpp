#include "config/setting_check.h"

#include <algorithm>
#include <iterator>

#include "config/masking.h"
#include "config/url_text.h"
#include "config/value_map.h"

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
  if (value.find(kMask) != STRING::npos) return "holds a mask in place of the secret";
  const SettingRow* row = findRow(key);
  if (!row) return {};
  ValueMap probe(mapKindOf(*row));
  if (probe.set(*row, value) == ValueMap::Result::refused) return typeFault(row->type);
  if (row->key == Key::agentUrl) return urlFault(value.trimmed());
  if (row->key == Key::tcpPort && probe.number(row->key) > kLastPort)
    return "is not a port from 0 to 65535";
  return {};
}

}  // namespace korvane
