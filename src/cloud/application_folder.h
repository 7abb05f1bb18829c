// The folder "applications" below the agent's installation directory: one archive for each
// application, and the staged files of a change in progress.
//
// A change is staged, then committed or dropped: "web.zip.next" becomes "web.zip", or is removed;
// with "web.zip.gone" "web.zip" is removed, or stays. Which of the two depends only on the policy
// in force, so a change that a crash interrupted can be settled at any later time
// (application_policies.h).
//
// Lifetime: the files outlive it. Threads: used within a PolicyTurn. Errors:
// errno values.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/fwd.h"

namespace korvane {

inline constexpr size_t kMaxPolicyBytes = 6000000;  // of an archive that comes over the channel

class ApplicationFolder {
 public:
  struct Staged {
    std::string application;
    bool removal = false;
  };

  explicit ApplicationFolder(platform::Files& files);

  std::string path(const std::string& application) const;
  // Applications with an archive here, ascending; files with other names are ignored.
  std::vector<std::string> stored() const;
  std::vector<Staged> staged() const;
  int read(const std::string& application, std::string& archive) const;
  int readStaged(const std::string& application, std::string& archive) const;

  // Durable when they return 0.
  [[nodiscard]] int stage(const std::string& application, std::string_view archive);
  [[nodiscard]] int stageRemoval(const std::string& application);
  [[nodiscard]] int makeGood(const Staged& staged);
  [[nodiscard]] int remove(const std::string& application);
  // Not flushed: what a crash brings back is settled again, to the same end.
  [[nodiscard]] int drop(const Staged& staged);

 private:
  std::string stagedPath(const Staged& staged) const;
  std::vector<std::string> names(std::string_view ending) const;

  platform::Files& _files;
  const std::string _directory;
};

}  // namespace korvane
