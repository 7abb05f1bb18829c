// Event categories and the forwarding filter, over UTF-8 texts.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace korvane {

// The mask of an event type text, which may be one type or a comma-separated list of them;
// 65535 for "*".
int eventCategory(std::string_view type);

// False for the types that a record is not folded for: those beginning with "D" or "M", and those
// whose mask is 1, 2, 4, 8 or 2048. A record that does not pass is forwarded all the same.
bool passesForwardFilter(std::string_view type);

// passesForwardFilter with a memory of the four-letter types it has seen. One thread.
class ForwardFilter {
 public:
  bool passes(std::string_view type);

 private:
  struct Entry {
    uint32_t type = 0;  // the four letters; 0 in an unused entry
    bool passes = false;
  };
  std::array<Entry, 64> _seen{};
};

}  // namespace korvane
