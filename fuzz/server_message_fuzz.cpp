// The reference server's reader of message bodies: never a crash, and what it accepts it can write
// again so that it reads the same.
#include <cstdlib>

#include "tools/server/events.h"
#include "tools/server/wire_message.h"

using namespace korvane::server;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  const std::string_view body(reinterpret_cast<const char*>(data), size);
  const WireMessage message = readMessage(body);
  if (!message.error.empty()) return 0;
  std::string again;
  for (const WireSection& section : message.sections) {
    writeSection(again, section.format, section.name, section.payload);
    readProperties(section.payload);
    spanOf(section.payload);
  }
  writeEnd(again);
  const WireMessage reread = readMessage(again);
  if (reread.sections.size() != message.sections.size()) std::abort();
  for (size_t i = 0; i < reread.sections.size(); ++i) {
    if (reread.sections[i].payload != message.sections[i].payload) std::abort();
  }
  return 0;
}
