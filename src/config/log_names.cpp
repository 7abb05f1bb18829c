#include "config/log_names.h"

#include "config/install_root.h"
#include "config/log_type.h"
#include "config/pointer_file.h"
#include "platform/paths.h"
#include "util/string.h"

namespace korvane {
namespace {

std::string logInPointerFile(platform::Files& files, const std::string& path) {
  std::string bytes;
  if (platform::readWholeFile(files, path, kPointerFileBytes, bytes) != 0) return {};
  if (bytes.size() != kPointerFileBytes) return {};
  std::u16string name;
  for (size_t i = 0; i < kPointerNameUnits; ++i) {
    const auto low = static_cast<unsigned char>(bytes[kPointerNameAt + 2 * i]);
    const auto high = static_cast<unsigned char>(bytes[kPointerNameAt + 2 * i + 1]);
    const auto unit = static_cast<char16_t>(low | high << 8);
    if (unit == 0) break;
    name += unit;
  }
  return STRING(std::move(name)).toUtf8();
}

}  // namespace

const char* logBaseName(int type) {
  switch (type) {
    case AGENT_LOG:
      return "agent";
    case HIDS_LOG:
      return "hidslog1";
    case HIDS_RT_LOG:
      return "hidslog1rt";
    default:
      return "";
  }
}

std::string logPointerPath(int type) {
  const std::string base = logBaseName(type);
  return base.empty() ? base : installedFile(base + "filepointer");
}

const char* logTypeName(int type) {
  return type == AGENT_LOG ? "AgentLog" : "No Such Log";
}

bool walkLogChain(platform::Files& files) {
  for (const int type : {AGENT_LOG, HIDS_LOG, HIDS_RT_LOG}) {
    const std::string log = logInPointerFile(files, logPointerPath(type));
    if (!log.empty() && !platform::fileExists(files, log)) return false;
  }
  return true;
}

}  // namespace korvane
