// Any bytes as "swupdate.results": no name comes twice, and what was read is read again as it was,
// in both encodings.
#include <cstdlib>
#include <set>

#include "update/update_results_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const PropertyList pairs = parseUpdateResults({reinterpret_cast<const char*>(data), size});
  std::set<STRING> names;
  for (const Property& pair : pairs)
    if (pair.first.empty() || !names.insert(pair.first).second) std::abort();
  for (const bool unicode : {false, true}) {
    const std::string text = updateResultsText(pairs, unicode);
    // What is taken for UTF-16, or for a line end of two bytes, reads back as another text.
    if (text.find('\r') != std::string::npos) continue;
    if (!unicode && text.find('\0') != std::string::npos) continue;
    const PropertyList again = parseUpdateResults(text);
    if (parseUpdateResults(updateResultsText(again, unicode)) != again) std::abort();
  }
  return 0;
}
