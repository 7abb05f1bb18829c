// A zip archive in memory, checked as a whole before anything of it is used.
//
// open() reads the archive's directory and refuses the archive when any entry of it could not be
// unpacked safely: a name that entry_name.h refuses, two names that differ in case alone or need
// the same path as file and as directory, a link or a device, an encrypted entry, an unknown
// method, sizes beyond the limits, or 64-bit ones (no archive within the limits needs them). An
// archive without entries counts as none. read() then hands out one entry's content, inflated, when
// it has exactly the size and the checksum that the directory states.
//
// Lifetime: the bytes belong to the caller and outlive the object. Threads: used by one at a time.
// Errors: false, and the refusal says archive, entry, reason and number. Nothing is thrown but
// std::bad_alloc; memory grows with what is really there, never with what an entry states.
// Units: bytes.
//
//   ZipArchive zip("policy.zip", bytes);
//   archive::Refusal refusal;
//   std::string text;
//   if (!zip.open(refusal) || !zip.read("policy.txt", text, refusal)) complain(refusal.text());
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "archive/refusal.h"

namespace korvane::archive {

class EntryPaths;

struct Limits {
  size_t entries = 4096;
  uint64_t totalBytes = 512ull * 1024 * 1024;  // unpacked
  // How many times larger an entry may unpack; small entries (64 KiB) may whatever their
  // ratio. Deflate comes to 1032 at most, on a file of zeros for example; an entry that
  // states more cannot be true.
  uint64_t ratio = 1100;
};

struct Entry {
  std::string name;  // a directory's ends in a slash
  uint64_t size = 0;
  uint64_t packedSize = 0;
  uint32_t crc = 0;
  // Where the entry's record lies in the archive's directory.
  uint64_t directoryPosition = 0;
  uint64_t number = 0;

  bool isDirectory() const { return name.ends_with('/'); }
};

class ZipArchive {
 public:
  // Takes the content piece by piece; 0, or the errno value that ends the reading.
  using Sink = std::function<int(std::string_view piece)>;

  // `name` is what refusals call the archive.
  ZipArchive(std::string name, std::string_view bytes, const Limits& limits = {});
  ~ZipArchive();
  ZipArchive(const ZipArchive&) = delete;
  ZipArchive& operator=(const ZipArchive&) = delete;

  const std::string& name() const { return _name; }

  [[nodiscard]] bool open(Refusal& refusal);
  // In the order of the archive's directory; empty before open() or when that refused.
  const std::vector<Entry>& entries() const { return _entries; }
  // Null when there is none of exactly that name.
  const Entry* find(std::string_view name) const;

  [[nodiscard]] bool read(const Entry& entry, const Sink& sink, Refusal& refusal);
  [[nodiscard]] bool read(const Entry& entry, std::string& out, Refusal& refusal);
  [[nodiscard]] bool read(std::string_view name, std::string& out, Refusal& refusal);
  // Reads every entry and keeps nothing: true when all of them have the content they state.
  [[nodiscard]] bool verify(Refusal& refusal);

 private:
  struct Reader;

  bool refuse(Fault fault, const std::string& entry, std::string reason, Refusal& refusal) const;
  [[nodiscard]] bool readDirectory(Refusal& refusal);
  [[nodiscard]] bool readEntry(EntryPaths& paths, Refusal& refusal);
  bool checkEntry(const Entry& entry, uint32_t flags, uint32_t method, uint32_t attributes,
                  Refusal& refusal) const;
  bool checkWideSizes(const Entry& entry, std::string_view extra, Refusal& refusal) const;
  [[nodiscard]] bool checkSizes(const Entry& entry, Refusal& refusal);

  const std::string _name;
  const std::string_view _bytes;
  const Limits _limits;
  uint64_t _total = 0;
  std::unique_ptr<Reader> _reader;
  std::vector<Entry> _entries;
};

}  // namespace korvane::archive
