#include "archive/zip_archive.h"

#include <unzip.h>

#include <algorithm>

#include "archive/entry_name.h"
#include "archive/entry_paths.h"
#include "archive/memory_stream.h"

namespace korvane::archive {
namespace {

constexpr size_t kReadPiece = 64 * 1024;
constexpr uint64_t kSmallEntry = 64 * 1024;

constexpr uint32_t kEncryptionFlags = 0x0001 | 0x0040 | 0x2000;
constexpr uint32_t kStored = 0;
constexpr uint32_t kDeflated = 8;

// The upper half of the attributes is a Unix mode, the lower one Windows'.
constexpr uint32_t kTypeMask = 0170000;
constexpr uint32_t kRegular = 0100000;
constexpr uint32_t kDirectory = 0040000;
constexpr uint32_t kReparsePoint = 0x400;

bool isFileOrDirectory(uint32_t attributes, bool directory) {
  const uint32_t type = (attributes >> 16) & kTypeMask;
  if (attributes & kReparsePoint) return false;
  return type == 0 || type == (directory ? kDirectory : kRegular);
}

constexpr uint32_t kWideSizes = 0x0001;  // the extra field that holds 64-bit sizes

// An extra field is a list of records: kind and length, two bytes each, and as many bytes.
bool hasRecord(std::string_view extra, uint32_t wanted) {
  const auto number = [&extra](size_t at) {
    return static_cast<uint32_t>(static_cast<unsigned char>(extra[at]) |
                                 static_cast<unsigned char>(extra[at + 1]) << 8);
  };
  while (extra.size() >= 4) {
    if (number(0) == wanted) return true;
    extra.remove_prefix(std::min<size_t>(extra.size(), 4 + number(2)));
  }
  return false;
}

}  // namespace

struct ZipArchive::Reader {
  explicit Reader(std::string_view bytes) : stream{bytes} {
    zlib_filefunc64_def functions = memoryFunctions(stream);
    zip = unzOpen2_64(nullptr, &functions);
  }
  ~Reader() {
    if (zip) unzClose(zip);
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  MemoryStream stream;
  unzFile zip = nullptr;
};

ZipArchive::ZipArchive(std::string name, std::string_view bytes, const Limits& limits)
    : _name(std::move(name)), _bytes(bytes), _limits(limits) {}

ZipArchive::~ZipArchive() = default;

bool ZipArchive::refuse(Fault fault, const std::string& entry, std::string reason,
                        Refusal& refusal) const {
  refusal = {fault, _name, entry, std::move(reason)};
  return false;
}

bool ZipArchive::open(Refusal& refusal) {
  _entries.clear();
  _total = 0;
  const bool begins = _bytes.starts_with("PK\x03\x04");
  if (begins) _reader = std::make_unique<Reader>(_bytes);
  if (!begins || !_reader->zip)
    return refuse(Fault::notAnArchive, "",
                  "these " + std::to_string(_bytes.size()) + " bytes are not a zip archive",
                  refusal);
  if (readDirectory(refusal)) return true;
  _entries.clear();
  return false;
}

bool ZipArchive::readDirectory(Refusal& refusal) {
  unz_global_info64 info{};
  if (unzGetGlobalInfo64(_reader->zip, &info) != UNZ_OK)
    return refuse(Fault::damagedDirectory, "", "the directory cannot be read", refusal);
  if (info.number_entry > _limits.entries)
    return refuse(Fault::tooManyEntries, "",
                  "it has " + std::to_string(info.number_entry) + " entries, more than " +
                      std::to_string(_limits.entries),
                  refusal);
  EntryPaths paths;
  for (uint64_t number = 0; number < info.number_entry; ++number) {
    const int code = number == 0 ? unzGoToFirstFile(_reader->zip) : unzGoToNextFile(_reader->zip);
    if (code != UNZ_OK)
      return refuse(Fault::damagedDirectory, "",
                    "the directory ends after " + std::to_string(number) + " of " +
                        std::to_string(info.number_entry) + " entries (" + std::to_string(code) +
                        ")",
                    refusal);
    if (!readEntry(paths, refusal)) return false;
  }
  return true;
}

bool ZipArchive::readEntry(EntryPaths& paths, Refusal& refusal) {
  unz_file_info64 info{};
  char name[kLongestName + 2];
  unz64_file_pos position{};
  const int code =
      unzGetCurrentFileInfo64(_reader->zip, &info, name, sizeof name - 1, nullptr, 0, nullptr, 0);
  if (code != UNZ_OK || unzGetFilePos64(_reader->zip, &position) != UNZ_OK)
    return refuse(Fault::damagedDirectory, "",
                  "the header of entry " + std::to_string(_entries.size()) + " cannot be read (" +
                      std::to_string(code) + ")",
                  refusal);
  std::string extra(info.size_file_extra, '\0');
  unzGetCurrentFileInfo64(_reader->zip, nullptr, nullptr, 0, extra.data(),
                          static_cast<uLong>(extra.size()), nullptr, 0);
  Entry entry;
  entry.name.assign(name, std::min<size_t>(info.size_filename, kLongestName + 1));
  entry.size = info.uncompressed_size;
  entry.packedSize = info.compressed_size;
  entry.crc = static_cast<uint32_t>(info.crc);
  entry.directoryPosition = position.pos_in_zip_directory;
  entry.number = position.num_of_file;
  if (!checkEntry(entry, static_cast<uint32_t>(info.flag),
                  static_cast<uint32_t>(info.compression_method),
                  static_cast<uint32_t>(info.external_fa), refusal) ||
      !checkWideSizes(entry, extra, refusal) || !checkSizes(entry, refusal))
    return false;
  if (!paths.add(entry.name))
    return refuse(Fault::duplicate, entry.name, "another entry needs the same path", refusal);
  _entries.push_back(std::move(entry));
  return true;
}

bool ZipArchive::checkEntry(const Entry& entry, uint32_t flags, uint32_t method,
                            uint32_t attributes, Refusal& refusal) const {
  std::string reason;
  const Fault fault = checkEntryName(entry.name, reason);
  if (fault != Fault::none) return refuse(fault, entry.name, std::move(reason), refusal);
  if (flags & kEncryptionFlags)
    return refuse(Fault::encrypted, entry.name, "the entry is encrypted", refusal);
  if (!isFileOrDirectory(attributes, entry.isDirectory()))
    return refuse(Fault::notAFile, entry.name, "the entry is neither a file nor a directory",
                  refusal);
  if (method != kStored && method != kDeflated)
    return refuse(Fault::unknownMethod, entry.name,
                  "the entry is packed by method " + std::to_string(method), refusal);
  return true;
}

bool ZipArchive::checkWideSizes(const Entry& entry, std::string_view extra,
                                Refusal& refusal) const {
  if (!hasRecord(extra, kWideSizes)) return true;
  return refuse(Fault::tooLarge, entry.name, "the entry has 64-bit sizes", refusal);
}

bool ZipArchive::checkSizes(const Entry& entry, Refusal& refusal) {
  if (entry.isDirectory() && entry.size != 0)
    return refuse(Fault::wrongContent, entry.name, "a directory has content", refusal);
  if (entry.packedSize > _bytes.size())
    return refuse(Fault::wrongContent, entry.name,
                  "the entry states " + std::to_string(entry.packedSize) +
                      " packed bytes in an archive of " + std::to_string(_bytes.size()),
                  refusal);
  if (entry.size > _limits.totalBytes || _total > _limits.totalBytes - entry.size)
    return refuse(
        Fault::tooLarge, entry.name,
        "the archive unpacks to more than " + std::to_string(_limits.totalBytes) + " bytes",
        refusal);
  _total += entry.size;
  if (entry.size > kSmallEntry && entry.size / _limits.ratio > entry.packedSize)
    return refuse(
        Fault::packedTooTightly, entry.name,
        "the entry unpacks to more than " + std::to_string(_limits.ratio) + " times its size",
        refusal);
  return true;
}

const Entry* ZipArchive::find(std::string_view name) const {
  for (const Entry& entry : _entries) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

bool ZipArchive::read(const Entry& entry, const Sink& sink, Refusal& refusal) {
  _reader->stream.overrun = false;
  const unz64_file_pos position{entry.directoryPosition, entry.number};
  int code = unzGoToFilePos64(_reader->zip, &position);
  if (code == UNZ_OK) code = unzOpenCurrentFile(_reader->zip);
  if (code != UNZ_OK)
    return refuse(Fault::wrongContent, entry.name,
                  "the entry disagrees with the directory (" + std::to_string(code) + ")", refusal);
  std::vector<char> piece(kReadPiece);
  uint64_t total = 0;
  int error = 0, got = 0;
  while (!error && (got = unzReadCurrentFile(_reader->zip, piece.data(), kReadPiece)) > 0) {
    total += static_cast<uint64_t>(got);
    error = sink({piece.data(), static_cast<size_t>(got)});
  }
  code = unzCloseCurrentFile(_reader->zip);
  if (error) {
    refuse(Fault::fileOperation, entry.name, "the content cannot be stored", refusal);
    refusal.error = error;
    return false;
  }
  if (got < 0) code = got;
  if (code != UNZ_OK || total != entry.size)
    return refuse(Fault::wrongContent, entry.name,
                  "the entry has " + std::to_string(total) + " of its " +
                      std::to_string(entry.size) + " bytes, or not the checksum stated (" +
                      std::to_string(code) + ")",
                  refusal);
  return true;
}

bool ZipArchive::read(const Entry& entry, std::string& out, Refusal& refusal) {
  out.clear();
  const bool whole = read(
      entry,
      [&out](std::string_view piece) {
        out += piece;
        return 0;
      },
      refusal);
  if (!whole) out.clear();
  return whole;
}

bool ZipArchive::read(std::string_view name, std::string& out, Refusal& refusal) {
  out.clear();
  const Entry* entry = find(name);
  if (!entry) return refuse(Fault::missingEntry, std::string(name), "no such entry", refusal);
  return read(*entry, out, refusal);
}

bool ZipArchive::verify(Refusal& refusal) {
  for (const Entry& entry : _entries) {
    if (!read(
            entry, [](std::string_view) { return 0; }, refusal))
      return false;
  }
  return true;
}

}  // namespace korvane::archive
