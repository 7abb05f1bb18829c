// What is delivered for a request, and how far: the file "appdata/delivery.state", whose lines
// docs/application-data.md has. A value type and pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "util/string.h"

namespace korvane {

struct DeliveryState {
  enum class Outcome { data, unchanged, error };

  STRING request;
  Outcome outcome = Outcome::error;
  STRING error;           // one line; beside data, why a newer definition was refused
  bool complete = false;  // the inventory has everything
  uint64_t rows = 0;
  uint64_t skipped = 0;
  std::string applicationsChecksum, filesChecksum;
  uint64_t size = 0;   // of the archive; 0 without data
  std::string sha256;  // of the archive
  uint64_t sent = 0;   // bytes of it that the server has taken
  bool delivered = false;

  friend bool operator==(const DeliveryState&, const DeliveryState&) = default;
};

inline constexpr uint64_t kMaxDeliveryStateBytes = 64 * 1024;
inline constexpr size_t kMaxDeliveryErrorUnits = 1000;

const char* nameOf(DeliveryState::Outcome outcome);
std::string deliveryStateText(const DeliveryState& state);
// False, and `out` as it was, for a text that is not a whole state.
[[nodiscard]] bool parseDeliveryState(std::string_view text, DeliveryState& out);

}  // namespace korvane
