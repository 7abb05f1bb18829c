// The folder "applications" below the agent's installation directory: one archive for each application, and what a
// change of one that is under way has laid down there.
//
// A change is staged, then it is made good or dropped: "web.zip.next" becomes "web.zip", or goes; with
// "web.zip.gone" "web.zip" goes, or stays. Which of the two depends on the policy in force alone, so a change
// that a crash cut off can be settled at any later time (application_policies.h).
//
// Lifetime: refers to the platform's files. Threads: used within a PolicyTurn. Errors: errno values.
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

  ApplicationFolder();

  std::string path(const std::string& application) const;
  // Applications with an archive here, ascending; files with other names count for nothing.
  std::vector<std::string> stored() const;
  std::vector<Staged> staged() const;
  int read(const std::string& application, std::string& archive) const;
  int readStaged(const std::string& application, std::string& archive) const;

  // Durable when they return 0.
  [[nodiscard]] int stage(const std::string& application, std::string_view archive);
  [[nodiscard]] int stageRemoval(const std::string& application);
  [[nodiscard]] int makeGood(const Staged& staged);
  [[nodiscard]] int drop(const Staged& staged);
  [[nodiscard]] int remove(const std::string& application);

 private:
  std::string stagedPath(const Staged& staged) const;
  std::vector<std::string> names(std::string_view ending) const;

  platform::Files& _files;
  const std::string _directory;
};

}  // namespace korvane
