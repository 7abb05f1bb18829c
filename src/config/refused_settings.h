// The settings of a configuration that were refused, and why, for reports.
//
// Value type and a pure function; any thread.
//
//   RefusedSettings refused;
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

// The first of them by name, and how many there are: a configuration may hold a hundred thousand.
struct RefusedSettings {
  static constexpr size_t kMostNamed = 10;

  std::vector<RefusedSetting> named;
  size_t count = 0;

  bool empty() const { return count == 0; }
};

// One line without control characters, at most some 2,000 characters: the first ten with
// their reasons, long keys and values cut, and how many there are in all.
// Empty when there are none.
std::string refusedSettingsText(const RefusedSettings& refused);

}  // namespace korvane
