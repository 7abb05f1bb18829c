// The state of a delivery with any content, its checksum set right: what is taken for whole is
// written and read back as the same.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "discovery/delivery_state.h"
#include "util/sha256.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  std::string text(reinterpret_cast<const char*>(data), size);
  DeliveryState state, again;
  bool whole = parseDeliveryState(text, state);
  text.resize(std::min(text.size(), text.rfind("\nend ") + 1));
  text += "end " + sha256Hex(text) + "\n";
  whole = parseDeliveryState(text, state) || whole;
  if (!whole) return 0;
  const bool agrees = state.sent <= state.size && !state.request.empty();
  if (!agrees || !parseDeliveryState(deliveryStateText(state), again) || !(again == state))
    std::abort();
  return 0;
}
