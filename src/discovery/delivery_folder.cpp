#include "discovery/delivery_folder.h"

#include <cerrno>

#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane {

DeliveryFolder::DeliveryFolder(platform::Files& files, const std::string& directory)
    : _files(files),
      _folder(platform::joinPath(files, {directory, "appdata"})),
      _inventory(platform::joinPath(files, {_folder, "inventory.xml"})),
      _unfinished(platform::joinPath(files, {_folder, "inventory.zip.new"})),
      _archive(platform::joinPath(files, {_folder, "inventory.zip"})),
      _state(platform::joinPath(files, {_folder, "delivery.state"})),
      _shortcuts(platform::joinPath(files, {directory, "shortcuts.txt"})) {}

int DeliveryFolder::make() {
  return _files.makeDirectories(_folder);
}

int DeliveryFolder::load(DeliveryState& out) const {
  std::string text;
  const int error = platform::readWholeFile(_files, _state, kMaxDeliveryStateBytes, text);
  if (error == ENOENT) return ENOENT;
  DeliveryState state;
  if (error != 0 || !parseDeliveryState(text, state)) return EBADMSG;
  platform::FileInfo info;
  const bool needsArchive = state.size > 0 && !state.delivered;
  if (needsArchive && (_files.info(_archive, info) != 0 || info.size != state.size)) return EBADMSG;
  out = std::move(state);
  return 0;
}

int DeliveryFolder::save(const DeliveryState& state) {
  return platform::writeFileAtomically(_files, _state, deliveryStateText(state));
}

int DeliveryFolder::removeState() {
  const int error = _files.remove(_state);
  if (error != 0 && error != ENOENT) return error;
  return _files.flushDirectory(_folder);
}

int DeliveryFolder::install(const DeliveryState& state) {
  int error = removeState();
  if (error == 0 && state.size > 0) error = _files.replace(_unfinished, _archive);
  if (error == 0) error = _files.flushDirectory(_folder);
  return error == 0 ? save(state) : error;
}

// What cannot be removed goes with the next request, or at the next start.
void DeliveryFolder::remove() {
  if (removeState() == 0) ignoreResult(_files.remove(_archive));
}

void DeliveryFolder::removeCollected() {
  for (const std::string* path : {&_inventory, &_unfinished, &_shortcuts})
    ignoreResult(_files.remove(*path));
}

void DeliveryFolder::removeUnfinished() {
  removeCollected();
  platform::removeUnfinished(_files, _folder,
                             [](std::string_view name) { return name == "delivery.state"; });
}

}  // namespace korvane
