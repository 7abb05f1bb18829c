// Any bytes as agent.ini: reading them never fails, and what is written from them reads
// back as the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "config/value_map.h"

namespace {

using korvane::IniText;
using korvane::MapKind;
using korvane::ValueMap;

std::string written(const ValueMap& settings, const ValueMap& communication) {
  korvane::IniWriter writer("\n");
  for (const auto& row : korvane::settingsTable()) {
    settings.writeSection(writer, row.section);
    communication.writeSection(writer, row.section);
  }
  settings.writeSection(writer, korvane::kOtherSection);
  return writer.finish();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  IniText text;
  if (!korvane::parseIniText(bytes, text)) return 0;
  ValueMap settings(MapKind::settings);
  ValueMap communication(MapKind::communication);
  korvane::PropertyList refused;
  settings.merge(text, refused);
  communication.merge(text, refused);
  const std::string once = written(settings, communication);
  IniText again;
  if (!korvane::parseIniText(once, again) || !korvane::checksumHolds(again, false)) std::abort();
  if (settings.merge(again, refused) || communication.merge(again, refused)) std::abort();
  if (settings.dirty() || communication.dirty()) std::abort();
  if (written(settings, communication) != once) std::abort();
  return 0;
}
