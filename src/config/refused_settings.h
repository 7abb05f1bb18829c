// The settings of a configuration that were refused, and why, for reports.
//
// Value type and a pure function; any thread.
//
//   std::vector<RefusedSetting> refused;
//   config.newConfiguration(pairs, refused);
//   report(refusedSettingsText(refused));  // "1 setting refused: polling.interval=soon ..."
#pragma once

#include <string>
#include <vector>

#include "util/string.h"

namespace korvane {

struct RefusedSetting {
  STRING key;
  STRING value;        // its beginning, secrets masked
  std::string reason;  // goes on behind the value: "is too long"
};

// What is refused beyond so many is counted: an entry without key, value and reason.
inline constexpr size_t kNamedRefusals = 10;

// One line without control characters, at most some 2,000 characters: the first ten with
// their reasons, long keys and values cut, and how many there are in all.
// Empty when there are none.
std::string refusedSettingsText(const std::vector<RefusedSetting>& refused);

}  // namespace korvane
