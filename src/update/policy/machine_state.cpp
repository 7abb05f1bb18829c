#include "update/policy/machine_state.h"

#include <algorithm>
#include <cerrno>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "platform/system_info.h"
#include "util/string.h"

namespace korvane {
namespace {

constexpr char kMachineVariables[] =
    "System\\CurrentControlSet\\Control\\Session Manager\\Environment";

// As much of a text as an item holds: well-formed, without NUL, at most the bound.
std::string itemText(const STRING& text) {
  std::string bytes = text.toUtf8();
  bytes.resize(std::min({bytes.find('\0'), bytes.size(), kMaxItemFieldBytes + 1}));
  if (bytes.size() <= kMaxItemFieldBytes) return bytes;
  size_t end = kMaxItemFieldBytes;
  while (end > 0 && (static_cast<unsigned char>(bytes[end]) & 0xC0) == 0x80) --end;
  bytes.resize(end);
  return bytes;
}

}  // namespace

bool MachineState::pathExists(const std::string& path, bool& exists) {
  platform::FileInfo info;
  const int error = _sources.files.info(path, info);
  exists = error == 0;
  return error == 0 || error == ENOENT || error == ENOTDIR;
}

bool MachineState::addresses(std::vector<std::string>& out) {
  out = _sources.systemInfo.ipAddresses();
  return true;
}

bool MachineState::readRegistry(const std::string& key, const std::string& name,
                                RetransItem& item) {
  STRING text;
  uint32_t number = 0;
  uint32_t error = _sources.registry.readString(key, name, text);
  if (error == platform::kErrorInvalidData) {
    error = _sources.registry.readDword(key, name, number);
    text = STRING::fromInt(number);
  }
  const bool gone = error == platform::kErrorFileNotFound ||
                    error == platform::kErrorPathNotFound || error == platform::kErrorInvalidData;
  if (error != platform::kOk && !gone) return false;
  item.present = !gone;
  item.value = gone ? "" : itemText(text);
  return true;
}

bool MachineState::readEnvironment(RetransItem& item) {
  RetransItem machine = item;
  if (!readRegistry(kMachineVariables, item.name, machine)) return false;
  item.value = machine.present ? machine.value
                               : itemText(STRING(_sources.systemInfo.environment(item.name)));
  item.present = !item.value.empty();
  return true;
}

bool MachineState::read(RetransItem& item) {
  std::vector<std::string> found;
  switch (item.kind) {
    case RetransItem::Kind::path:
      return pathExists(item.name, item.present);
    case RetransItem::Kind::environment:
      return readEnvironment(item);
    case RetransItem::Kind::registry:
      return readRegistry(item.key, item.name, item);
    case RetransItem::Kind::addresses:
      break;
  }
  if (!addresses(found)) return false;
  item.present = true;
  item.value = itemText(STRING(addressList(std::move(found))));
  return true;
}

}  // namespace korvane
