// The names of the policy files in the folder "driver", and what the pipeline does with
// files as such.
//
// Functions without state; used by the owner of the policy alone. Paths are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "util/string.h"

namespace korvane {

// Far above any policy; a plus file that is larger is not one.
inline constexpr uint64_t kMaxPlusFileBytes = uint64_t{64} << 20;

std::string driverDirectory();
std::string historyDirectory();

// The files that a plus file of this path is translated to.
struct PolicyFiles {
  explicit PolicyFiles(const STRING& plusFile);

  std::string minus, items;
  std::string freshMinus, freshItems;  // what the translator makes
  std::string oldMinus, oldItems;      // what they were before a change
};

// absent only when the system says so; an error is neither.
enum class Presence { absent, present, unknown };
Presence presenceOf(const std::string& path);

// Removes a file; also fine when there is none.
[[nodiscard]] int removeIfThere(const std::string& path);
// What another program wrote reaches the disk.
[[nodiscard]] int flushFile(const std::string& path);
// True when both can be read and hold the same bytes; read in pieces.
bool sameContent(const std::string& one, const std::string& other);

// Removes the policy files of a folder that belong to no plus file or policy which agent.ini or the
// driver's settings name, and all fresh and backup files. Not to be called while a change is under
// way. Nothing is removed unless all that went before in the folder is durable.
void sweepPolicyFolder(const std::string& directory);

}  // namespace korvane
