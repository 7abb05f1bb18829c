// Any bytes as an ini file: where the agent does not take all of it, the check names an error.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "agentctl/ini_check.h"
#include "config/value_map.h"

namespace {

using namespace korvane;

bool hasError(std::string_view bytes) {
  const auto findings = agentctl::checkIni(bytes, /*needsChecksum=*/false);
  return std::any_of(findings.begin(), findings.end(), [](const auto& one) { return one.error; });
}

bool taken(const IniText& text) {
  ValueMap settings(MapKind::settings), communication(MapKind::communication);
  for (const auto& [key, value] : text.values) {
    const SettingRow* row = findRow(key);
    if (!row) continue;
    ValueMap& store = mapKindOf(*row) == MapKind::settings ? settings : communication;
    if (store.set(*row, value) == ValueMap::Result::refused) return false;
  }
  return checksumHolds(text, /*mayLackChecksum=*/true);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  IniText text;
  const bool whole = parseIniText(bytes, text) && taken(text);
  if (!whole && !hasError(bytes)) std::abort();
  return 0;
}
