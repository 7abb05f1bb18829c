#include "config/properties_file.h"

#include <utility>

#include "config/ini_text.h"
#include "platform/paths.h"

namespace korvane {

PropertyList parseProperties(std::string_view text) {
  PropertyList properties;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const STRING line = STRING(text.substr(0, end)).trimmed();
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const size_t equals = line.find("=");
    if (line.startsWith("#") || equals == STRING::npos) continue;
    STRING key = line.substr(0, equals).trimmed();
    if (!key.empty()) properties.emplace_back(std::move(key), line.substr(equals + 1).trimmed());
  }
  return properties;
}

int readPropertiesFile(platform::Files& files, const std::string& path, PropertyList& out) {
  std::string bytes;
  const int error = platform::readWholeFile(files, path, kMaxIniBytes, bytes);
  if (error == 0) out = parseProperties(bytes);
  return error;
}

}  // namespace korvane
