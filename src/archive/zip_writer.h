// Makes a zip archive in memory: deflated entries in the order in which they were added.
//
// Equal contents in equal order give equal archives: every entry has the date at which the
// format's dates begin. What ZipArchive would refuse is refused here too: names that
// entry_name.h refuses, two names that need the same path, more entries or bytes than the
// limits allow. So what was written can be read back.
//
// Lifetime: owns the archive until finish() hands it out. Threads: used by one at a time.
// Errors: false, and the refusal says archive, entry, reason and number; the archive is as it was
// before the entry. Nothing is thrown but std::bad_alloc. Units: bytes.
//
//   ZipWriter zip("diagnose.zip");
//   archive::Refusal refusal;
//   if (!zip.add("agent.ini", text, refusal)) complain(refusal.text());
//   std::string bytes = zip.finish();
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "archive/refusal.h"
#include "archive/zip_archive.h"

namespace korvane::archive {

class ZipWriter {
 public:
  // `name` is what refusals call the archive. Of the limits, entries and totalBytes
  // (unpacked) count.
  explicit ZipWriter(std::string name, const Limits& limits = {});
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  // Directories have no entries of their own; `name` is a file's.
  [[nodiscard]] bool add(const std::string& name, std::string_view content, Refusal& refusal);
  // The whole archive; the writer is empty afterwards and takes nothing more. Without an entry it
  // is a text that counts as no archive.
  std::string finish();

 private:
  struct Output;

  bool refuse(Fault fault, const std::string& entry, std::string reason, Refusal& refusal) const;
  bool check(const std::string& name, size_t size, Refusal& refusal) const;

  const std::string _name;
  const Limits _limits;
  uint64_t _total = 0;
  std::unique_ptr<Output> _output;
};

}  // namespace korvane::archive
