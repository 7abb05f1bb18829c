// Zip archives for tests: well-formed ones, and ones with false declarations.
//
//   const std::string bytes = makeZip({{.name = "policy.txt", .content = "..."}});
#pragma once

#include <zlib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace korvane::tests {

struct ZipEntry {
  std::string name;
  std::string content = {};
  bool deflated = false;
  // What the archive's directory and the entry's header say, where that is not the truth.
  uint16_t flags = 0x0800;  // the name is UTF-8
  uint32_t attributes = 0;
  std::optional<uint16_t> method = {};
  std::optional<uint32_t> crc = {};
  std::optional<uint64_t> size = {};
  std::optional<uint64_t> packedSize = {};
  bool zip64 = false;  // the sizes stand in an extra field
};

namespace zip_maker {

inline std::string number(uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
  return text;
}

inline std::string deflated(const std::string& content) {
  std::string packed(content.size() + content.size() / 100 + 64, '\0');
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

// What an entry's own header and its record in the directory have in common.
inline std::string common(const ZipEntry& entry, uint64_t packedSize) {
  const auto* bytes = reinterpret_cast<const Bytef*>(entry.content.data());
  const auto crc = static_cast<uint32_t>(crc32(0, bytes, static_cast<uInt>(entry.content.size())));
  const uint64_t size = entry.size.value_or(entry.content.size());
  packedSize = entry.packedSize.value_or(packedSize);
  const uint64_t elsewhere = 0xffffffff;
  std::string text = number(entry.zip64 ? 45 : 20, 2) + number(entry.flags, 2) +
                     number(entry.method.value_or(entry.deflated ? 8 : 0), 2) +
                     number(0x5c210000, 4) + number(entry.crc.value_or(crc), 4) +
                     number(entry.zip64 ? elsewhere : packedSize, 4) +
                     number(entry.zip64 ? elsewhere : size, 4) + number(entry.name.size(), 2) +
                     number(entry.zip64 ? 20 : 0, 2);
  return text;
}

inline std::string extra(const ZipEntry& entry, uint64_t packedSize) {
  if (!entry.zip64) return {};
  return number(1, 2) + number(16, 2) + number(entry.size.value_or(entry.content.size()), 8) +
         number(entry.packedSize.value_or(packedSize), 8);
}

}  // namespace zip_maker

inline std::string makeZip(const std::vector<ZipEntry>& entries,
                           std::optional<uint64_t> statedEntries = {}) {
  using zip_maker::number;
  std::string archive, directory;
  for (const ZipEntry& entry : entries) {
    const std::string packed = entry.deflated ? zip_maker::deflated(entry.content) : entry.content;
    const std::string common = zip_maker::common(entry, packed.size());
    const std::string extra = zip_maker::extra(entry, packed.size());
    directory += "PK\x01\x02" + number(0x0314, 2) + common + number(0, 2 + 2 + 2) +
                 number(entry.attributes, 4) + number(archive.size(), 4) + entry.name + extra;
    archive += "PK\x03\x04" + common + entry.name + extra + packed;
  }
  const uint64_t count = statedEntries.value_or(entries.size());
  return archive + directory + "PK\x05\x06" + number(0, 4) + number(count, 2) + number(count, 2) +
         number(directory.size(), 4) + number(archive.size(), 4) + number(0, 2);
}

}  // namespace korvane::tests
