#include "translate-stand-in/source_archive.h"

#include <zlib.h>

#include <initializer_list>

#include "archive/zip_archive.h"
#include "stand-in-policy/policy_model.h"

namespace korvane::translate_stand_in {
namespace {

constexpr uint16_t kVersion = 20;
constexpr uint16_t kNamesAreUtf8 = 0x0800;
constexpr uint16_t kStored = 0;
constexpr uint16_t kMidnight = 0;
constexpr uint16_t kFirstDay = 0x21;  // 1980-01-01, where the format's dates begin

void put16(std::string& out, std::initializer_list<uint16_t> numbers) {
  for (const uint16_t number : numbers) {
    out += static_cast<char>(number & 0xFF);
    out += static_cast<char>(number >> 8);
  }
}

void put32(std::string& out, uint32_t number) {
  put16(out, {static_cast<uint16_t>(number & 0xFFFF), static_cast<uint16_t>(number >> 16)});
}

}  // namespace

std::string packPolicy(std::string_view text) {
  const std::string_view name = kPolicyEntry;
  const auto size = static_cast<uint32_t>(text.size());
  const auto crc = static_cast<uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(text.data()), static_cast<uInt>(text.size())));
  std::string entry;  // what the local header and the directory have in common
  put16(entry, {kVersion, kNamesAreUtf8, kStored, kMidnight, kFirstDay});
  for (const uint32_t number : {crc, size, size}) put32(entry, number);
  put16(entry, {static_cast<uint16_t>(name.size()), 0});

  std::string archive;
  put32(archive, 0x04034b50);
  archive.append(entry).append(name).append(text);
  std::string directory;
  put32(directory, 0x02014b50);
  put16(directory, {kVersion});
  directory += entry;
  put16(directory, {0, 0, 0});
  put32(directory, 0);
  put32(directory, 0);
  directory += name;
  const auto directoryAt = static_cast<uint32_t>(archive.size());
  archive += directory;
  put32(archive, 0x06054b50);
  put16(archive, {0, 0, 1, 1});
  put32(archive, static_cast<uint32_t>(directory.size()));
  put32(archive, directoryAt);
  put16(archive, {0});
  return archive;
}

bool unpackPolicy(const std::string& name, std::string_view bytes, std::string& text,
                  std::string& reason) {
  archive::Limits limits;
  limits.totalBytes = 16 * KVP_MAX_TEXT_BYTES;
  archive::ZipArchive zip(name, bytes, limits);
  archive::Refusal refusal;
  if (zip.open(refusal) && zip.read(kPolicyEntry, text, refusal)) return true;
  reason = refusal.text();
  return false;
}

}  // namespace korvane::translate_stand_in
