#include "platform/fake/memory_registry.h"

#include "platform/error_codes.h"
#include "platform/reg_syntax.h"

namespace korvane::platform {

uint32_t MemoryRegistry::find(std::string_view key, std::string_view name, RegItem::Kind kind,
                              const RegItem*& item) {
  item = _document.find(key, name);
  if (!item) return kErrorFileNotFound;
  return item->kind == kind ? kOk : kErrorInvalidData;
}

uint32_t MemoryRegistry::checkWrite(std::string_view key) {
  if (!isRegName(key)) return kErrorInvalidParameter;
  const std::string folded = foldRegName(trimRegPath(key)) + "\\";
  for (const Refusal& refusal : _refusals)
    if (refusal.error && folded.starts_with(refusal.folded)) return refusal.error;
  return kOk;
}

uint32_t MemoryRegistry::readString(std::string_view key, std::string_view name, STRING& out) {
  FakeLock lock(_mutex);
  const RegItem* item = nullptr;
  if (const uint32_t error = find(key, name, RegItem::Kind::string, item)) return error;
  out = item->text;
  return kOk;
}

uint32_t MemoryRegistry::readDword(std::string_view key, std::string_view name, uint32_t& out) {
  FakeLock lock(_mutex);
  const RegItem* item = nullptr;
  if (const uint32_t error = find(key, name, RegItem::Kind::dword, item)) return error;
  out = item->number;
  return kOk;
}

uint32_t MemoryRegistry::writeString(std::string_view key, std::string_view name,
                                     const STRING& value) {
  FakeLock lock(_mutex);
  if (const uint32_t error = checkWrite(key)) return error;
  if (!isRegName(name)) return kErrorInvalidParameter;
  if (!_document.hasKey(key)) return kErrorFileNotFound;
  _document.setString(key, name, value);
  return kOk;
}

uint32_t MemoryRegistry::writeDword(std::string_view key, std::string_view name, uint32_t value) {
  FakeLock lock(_mutex);
  if (const uint32_t error = checkWrite(key)) return error;
  if (!isRegName(name)) return kErrorInvalidParameter;
  if (!_document.hasKey(key)) return kErrorFileNotFound;
  _document.setDword(key, name, value);
  return kOk;
}

uint32_t MemoryRegistry::createKey(std::string_view key) {
  FakeLock lock(_mutex);
  if (const uint32_t error = checkWrite(key)) return error;
  _document.addKey(key);
  return kOk;
}

uint32_t MemoryRegistry::deleteKey(std::string_view key) {
  FakeLock lock(_mutex);
  if (const uint32_t error = checkWrite(key)) return error;
  if (!_document.hasKey(key)) return kErrorFileNotFound;
  if (_document.hasSubkeys(key)) return kErrorAccessDenied;
  _document.removeKey(key);
  return kOk;
}

void MemoryRegistry::put(std::string_view key, std::string_view name, const STRING& value) {
  FakeLock lock(_mutex);
  _document.addKey(key);
  _document.setString(key, name, value);
}

void MemoryRegistry::put(std::string_view key, std::string_view name, uint32_t value) {
  FakeLock lock(_mutex);
  _document.addKey(key);
  _document.setDword(key, name, value);
}

void MemoryRegistry::refuseBelow(std::string_view key, uint32_t error) {
  FakeLock lock(_mutex);
  const std::string folded = foldRegName(trimRegPath(key)) + "\\";
  std::erase_if(_refusals, [&](const Refusal& refusal) { return refusal.folded == folded; });
  _refusals.push_back({folded, error});
}

}  // namespace korvane::platform
