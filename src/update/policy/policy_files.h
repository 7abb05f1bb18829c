// The names of the policy files in the folder "driver", and what is done with files as such.
//
// Functions without state; used by the owner of the policy alone. Paths are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

// Far above any policy; a plus file that is larger is not one.
inline constexpr uint64_t kMaxPlusFileBytes = uint64_t{64} << 20;

std::string driverDirectory(const platform::Files& files);
std::string historyDirectory(const platform::Files& files);

// A plus file's path less its last seven characters.
STRING policyBaseOf(const STRING& plusFile);

// The files that a plus file of this path is translated to.
struct PolicyFiles {
  explicit PolicyFiles(const STRING& plusFile);

  std::string minus, items;
  std::string freshMinus, freshItems;  // what the translator makes
  std::string oldMinus, oldItems;      // what they were before a change
};

// absent only when the system says so; an error is neither.
enum class Presence { absent, present, unknown };
Presence presenceOf(platform::Files& files, const std::string& path);

// Removes a file; also fine when there is none.
[[nodiscard]] int removeIfThere(platform::Files& files, const std::string& path);
// What another program wrote reaches the disk.
[[nodiscard]] int flushFile(platform::Files& files, const std::string& path);
// True when both can be read and hold the same bytes; read in pieces.
bool sameContent(platform::Files& files, const std::string& one, const std::string& other);

}  // namespace korvane
