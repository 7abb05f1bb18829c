// The inventory of this machine as the threads of application data ask for it: the collector of
// inventory.h behind their interface.
//
// One object for a run of an agent: it keeps the definitions that were accepted last. The system's
// survey is made when it is first asked for. Threads: one at a time.
#pragma once

#include <memory>

#include "discovery/inventory.h"
#include "discovery/inventory_source.h"
#include "platform/fwd.h"

namespace korvane {

class MachineInventory final : public InventorySource {
 public:
  MachineInventory(platform::Clock& clock, platform::Files& files);
  ~MachineInventory() override;
  InventoryResult collect(StopToken& stop, const InventoryFiles& files) override;

 private:
  platform::Clock& _clock;
  platform::Files& _files;
  std::unique_ptr<platform::Survey> _survey;
  std::unique_ptr<Inventory> _inventory;
};

}  // namespace korvane
