// A bulk manifest and a transfer state with any content: one that is taken for whole is written back to the
// same bytes. The same text as names of logs and as a setting of external logs.
#include <cstdlib>

#include "bulk/bulk_state.h"
#include "bulk/log_names.h"
#include "util/sha256.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane::bulk;
  const std::string text(reinterpret_cast<const char*>(data), size);
  Manifest manifest;
  if (parseManifest(text, manifest) && manifestText(manifest) != text) std::abort();
  // With a checksum that holds, so that what lies behind it is reached.
  const std::string sealed = text + "end=" + korvane::sha256Hex(text) + "\n";
  State state;
  for (const std::string& one : {text, sealed})
    if (parseState(one, state) && stateText(state) != one) std::abort();
  if (shapeOf(nextName(text, 0)) != shapeOf(nextName(nextName(text, 0), 1))) std::abort();
  if (nameOfSent(text + ".sent") != std::string_view(text) && !text.empty()) std::abort();
  matches(text.substr(0, size / 2), text.substr(size / 2));
  for (const std::string& entry : entriesOf(text)) entryFault(entry);
  if (fitsLine(text)) {
    Part part{entryName(Kind::ids, 1, text), Kind::ids, "0123456789ab", 0, 1, 1, 0, "", text};
    Part again;
    if (!parsePart(partText(part), again) || !(again == part)) std::abort();
  }
  return 0;
}
