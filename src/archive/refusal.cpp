#include "archive/refusal.h"

namespace korvane::archive {

std::string Refusal::text() const {
  std::string line = archive;
  if (!entry.empty()) line += ", entry " + entry;
  line += ": " + reason + " (code " + std::to_string(code());
  if (error) line += ", error " + std::to_string(error);
  return line + ")";
}

}  // namespace korvane::archive
