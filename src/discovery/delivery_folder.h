// The folder "appdata" below the agent's installation directory: what is collected for a request,
// and how far it is delivered. docs/application-data.md says what lies there and when.
//
// A state names the archive beside it; it is written when the archive is on disk, and removed before another
// archive takes its place, so that after a crash at any instant a state that load() accepts belongs
// to the archive that is there.
//
// Lifetime: keeps nothing but the paths. Threads: used by one at a time; whoever else reads the
// folder holds AppDataRequests::files(). Errors: 0 or an errno value.
#pragma once

#include <string>

#include "discovery/delivery_state.h"
#include "platform/fwd.h"

namespace korvane {

class DeliveryFolder {
 public:
  // `directory`: the agent's installation directory.
  DeliveryFolder(platform::Files& files, const std::string& directory);

  const std::string& inventory() const { return _inventory; }
  const std::string& unfinishedArchive() const { return _unfinished; }
  const std::string& archive() const { return _archive; }
  const std::string& shortcuts() const { return _shortcuts; }

  [[nodiscard]] int make();
  // The state, when it is whole and its archive is there. ENOENT: there is none; EBADMSG: it is of
  // no use.
  [[nodiscard]] int load(DeliveryState& out) const;
  // Replaces the state alone.
  [[nodiscard]] int save(const DeliveryState& state);
  // Gives the finished archive, when the state has data, its name, and then the state.
  [[nodiscard]] int install(const DeliveryState& state);
  // Removes the state, and then the archive.
  void remove();
  // Removes what a collection leaves behind it.
  void removeCollected();
  // What a crash cut off.
  void removeUnfinished();

 private:
  [[nodiscard]] int removeState();

  platform::Files& _files;
  const std::string _folder, _inventory, _unfinished, _archive, _state, _shortcuts;
};

}  // namespace korvane
