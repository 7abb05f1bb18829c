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
    if (!unicode && text.find('\0') != std::string::npos) continue;  // taken for UTF-16
    const PropertyList again = parseUpdateResults(text);
    if (parseUpdateResults(updateResultsText(again, unicode)) != again) std::abort();
  }
  return 0;
}
