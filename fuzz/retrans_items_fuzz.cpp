// Any bytes as a translation's items: reading them never fails otherwise than with a reason, and
// what is written from them reads back as the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "update/policy/retrans_items.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  RetransItems items;
  ItemsProblem problem;
  if (!parseRetransItems({reinterpret_cast<const char*>(data), size}, items, problem)) {
    if (problem.reason.empty() || !items.empty()) std::abort();
    return 0;
  }
  RetransItems again;
  const std::string text = retransItemsText(items);
  if (text.size() <= kMaxItemsBytes && (!parseRetransItems(text, again, problem) || again != items))
    std::abort();
  return 0;
}
