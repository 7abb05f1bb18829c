// Makes a zip archive in a file, entry by entry and piece by piece: what it keeps in memory does not
// grow with the contents.
//
//   ZipFileWriter zip(*file);
//   int error = zip.begin("logs/1.log", modifiedMs);
//   while (error == 0 && more(piece)) error = zip.add(piece);
//   if (error == 0) error = zip.end();
//   if (error == 0) error = zip.finish();
//
// Names are the caller's to choose so that ZipArchive takes them (archive/entry_name.h); contents of
// an entry are at most 4 GiB.
// Lifetime: the file outlives the object, is empty at first and nobody else's. Destroyed before
// finish(), the file holds a part of an archive. Threads: used by one at a time.
// Errors: errno values of the file; after one, finish() gives it again. EIO for the compressor.
// std::bad_alloc alone is thrown. Units: bytes; milliseconds since 1970-01-01 UTC.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/fwd.h"

namespace korvane::archive {

class ZipFileWriter {
 public:
  explicit ZipFileWriter(platform::File& file);
  ~ZipFileWriter();
  ZipFileWriter(const ZipFileWriter&) = delete;
  ZipFileWriter& operator=(const ZipFileWriter&) = delete;

  // The date is kept to two seconds, from 1980 to 2107.
  [[nodiscard]] int begin(const std::string& name, int64_t modifiedMs);
  [[nodiscard]] int add(std::string_view piece);
  [[nodiscard]] int end();
  // Writes the archive's directory; nothing may follow.
  [[nodiscard]] int finish();

  // Of what has reached the file; the compressor holds back at most some 100 KiB.
  uint64_t written() const;

 private:
  struct Output;
  int result(int code) const;
  std::unique_ptr<Output> _output;
};

}  // namespace korvane::archive
