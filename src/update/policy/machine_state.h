// The current state of the things on this machine that translation items name.
//
// Lifetime: refers to its sources, which must outlive it. Threads: any; it keeps nothing. A
// derived class may have another source for paths and addresses.
//
//   RetransItem now = item;
//   if (machine.read(now) && now.present != item.present) ...
#pragma once

#include <string>
#include <vector>

#include "platform/fwd.h"
#include "update/policy/retrans_items.h"

namespace korvane {

class MachineState {
 public:
  struct Sources {
    platform::Files& files;
    platform::Registry& registry;
    platform::SystemInfo& systemInfo;
  };

  explicit MachineState(const Sources& sources) : _sources(sources) {}
  virtual ~MachineState() = default;

  // Sets `present` and `value` (empty for what is missing) of what the item names. False, and
  // nothing changed, when the machine does not say: a key that may not be read, for example.
  //
  // An environment variable is the machine's, as its registry has it, and where that has
  // none, this process's; an empty one is missing. A registry value that is neither text
  // nor number is missing.
  [[nodiscard]] bool read(RetransItem& item);

 protected:
  [[nodiscard]] virtual bool pathExists(const std::string& path, bool& exists);
  [[nodiscard]] virtual bool addresses(std::vector<std::string>& out);

 private:
  [[nodiscard]] bool readRegistry(const std::string& key, const std::string& name,
                                  RetransItem& item);
  [[nodiscard]] bool readEnvironment(RetransItem& item);

  const Sources _sources;
};

}  // namespace korvane
