#include "discovery/machine_inventory.h"

#include <utility>

#include "platform/native.h"
#include "platform/survey.h"

namespace korvane {

MachineInventory::MachineInventory(platform::Clock& clock, platform::Files& files)
    : _clock(clock), _files(files) {}

MachineInventory::~MachineInventory() = default;

InventoryResult MachineInventory::collect(StopToken& stop, const InventoryFiles& files) {
  if (!_inventory) {
    _survey = platform::makeNativeSurvey();
    _inventory = std::make_unique<Inventory>(_clock, _files, *_survey);
  }
  InventoryOutcome got = _inventory->collect(
      stop, {files.definition, files.definitionV2, files.output, files.shortcuts});
  return {got.written,
          got.complete,
          got.stopped,
          std::move(got.error),
          got.rows,
          got.skipped,
          std::move(got.applicationsChecksum),
          std::move(got.filesChecksum)};
}

}  // namespace korvane
