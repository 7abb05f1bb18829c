// The files of policies: a received one is kept, and what belongs to none any more is removed.
//
// Lifetime: part of a PolicyProcessor; its parts outlive it. Threads: its owner's alone.
// Errors: an empty path, or false, and a trace line. What cannot be removed is removed with a later
// sweep.
//
//   PolicyHousekeeping housekeeping({files, clock, driver, settings});
//   const STRING plusFile = housekeeping.savePolicyToFile(bytes, size);
#pragma once

#include <cstddef>
#include <set>
#include <string>

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

class Driver;
class PolicySettings;

class PolicyHousekeeping {
 public:
  struct Parts {
    platform::Files& files;
    platform::Clock& clock;
    Driver& driver;
    const PolicySettings& settings;
  };

  explicit PolicyHousekeeping(const Parts& parts) : _parts(parts) {}

  // Writes a policy (also one of the IDS) to a new file; its path, or an empty text.
  STRING savePolicyToFile(const char* data, size_t size);
  // Removes a plus file with its minus and items file and empties the name.
  void removeOldPolicyFiles(STRING& oldPlusFile);
  // Removes the files in the folder "driver" that belong to no plus file or policy which agent.ini
  // or the driver's settings name, and all fresh and backup files. Not to be called while a change
  // is under way. Nothing is removed unless all that went before in the folder is durable.
  void sweep();
  // The same in the folders "driver" of this and of the former product ("TRLM"), unless a change is
  // still to be undone.
  void RemovePrevHIDSPolicies();
  // Removes everything in a directory, the directory itself stays. False when something is left.
  [[nodiscard]] static bool cleanUpdateDirectory(platform::Files& files, const STRING& directory);

 private:
  std::string newPlusFile();
  [[nodiscard]] int writeNewFile(const std::string& path, const char* data, size_t size);
  void removeTraced(const char* format, const std::string& path);
  void sweepFolder(const std::string& directory);
  // The bases of the files in use, wherever they lie: a name is not given twice.
  std::set<std::string> basesInUse();

  const Parts _parts;
};

}  // namespace korvane
