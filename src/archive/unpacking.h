// Unpacks a checked archive into a directory, in two steps.
//
// stage() writes every entry into a fresh directory beside the target ("<target>.unpacking") and
// flushes its content; commit() then moves the files into the target one by one, each replaced
// atomically, and flushes the target's directories. Those of the staging are not: nobody looks for
// what a crash takes there. The destructor removes what was staged and not moved.
//
// Crash rule: before commit() the target is untouched; during it every file of the target
// is whole, old or new; after it returned true all are new and on disk. What a crash leaves
// of the staging directory is removed by the next unpacking into the same target. Files of
// the target that the archive does not name stay. So a caller that needs all or nothing
// marks the target as complete only after commit().
//
// A disk that cannot hold it all, with kKeptFree to spare, is not written to at all: stage() fails with
// ENOSPC.
//
// A long unpacking can be ended early: stage() asks `cancelled` between pieces and fails
// with ECANCELED.
//
// Lifetime: refers to the Files it is given. Threads: one unpacking of a target at a time.
// Errors: false and a refusal; a failed file operation has the errno value and the path in it.
//
//   archive::Refusal refusal;
//   if (!archive::unpack(files, "data.zip", bytes, "/opt/korvane/IPS/qel", {}, refusal))
//     report(36, refusal.text());
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/refusal.h"
#include "archive/zip_archive.h"
#include "platform/fwd.h"

namespace korvane::archive {

class Unpacking {
 public:
  static constexpr uint64_t kKeptFree = 16ull << 20;

  Unpacking(platform::Files& files, std::string target, std::function<bool()> cancelled = {});
  ~Unpacking();
  Unpacking(const Unpacking&) = delete;
  Unpacking& operator=(const Unpacking&) = delete;

  // The archive is open.
  [[nodiscard]] bool stage(ZipArchive& zip, Refusal& refusal);
  [[nodiscard]] bool commit(Refusal& refusal);

 private:
  bool failed(const char* operation, const std::string& path, int error, Refusal& refusal) const;
  [[nodiscard]] bool hasRoom(const ZipArchive& zip, Refusal& refusal);
  [[nodiscard]] bool stageFile(ZipArchive& zip, const Entry& entry, Refusal& refusal);
  [[nodiscard]] bool makeDirectories(const std::string& root, Refusal& refusal);
  [[nodiscard]] bool flushDirectories(const std::string& root, Refusal& refusal);
  [[nodiscard]] bool targetIsFree(const std::string& name, Refusal& refusal);
  std::string pathBelow(const std::string& root, const std::string& name) const;

  platform::Files& _files;
  const std::string _target;
  const std::string _staging;
  const std::function<bool()> _cancelled;
  std::string _archive;
  std::vector<std::string> _fileNames;
  std::vector<std::string> _directoryNames;  // parents before what lies in them
};

// Both steps, checks and all. Nothing of a refused archive remains.
[[nodiscard]] bool unpack(platform::Files& files, const std::string& archiveName,
                          std::string_view bytes, const std::string& target, const Limits& limits,
                          Refusal& refusal);

}  // namespace korvane::archive
