// The textual registry: whatever parses must come back the same from what is written of it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/reg_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using korvane::platform::RegDocument;
  RegDocument document;
  if (!document.parse({reinterpret_cast<const char*>(data), size}).empty()) return 0;
  document.addKey("SOFTWARE\\Fuzz");
  document.setString("SOFTWARE\\Fuzz", "text", korvane::STRING(u"a\\\"b\n"));
  document.setDword("SOFTWARE\\Fuzz", "number", 7);
  const std::string written = document.format();
  if (written.size() > RegDocument::kMaxBytes) return 0;
  RegDocument again;
  const std::string problem = again.parse(written);
  const bool full = problem.find("more than") != std::string::npos;
  if (!full && (!problem.empty() || again.format() != written)) std::abort();
  return 0;
}
