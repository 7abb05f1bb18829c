#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "eventlog/catalogue.h"

using namespace korvane::eventlog;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Catalogue catalogue;
  const auto error = parseCatalogue(bytes, catalogue);
  if (error.has_value() != catalogue.empty()) abort();
  if (error) {
    if (error->describe().empty()) abort();
    return 0;
  }
  const std::vector<std::string> insertions = {"one", "", "%1"};
  for (const auto& [number, entry] : catalogue) {
    if (number < 1 || number > 99999 || entry.type.size() != 4 || entry.text.empty()) abort();
    if (expandInsertions(entry.text, insertions).size() > entry.text.size() * 3) abort();
  }
  return 0;
}
