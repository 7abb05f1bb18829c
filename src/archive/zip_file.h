// Packs files of the disk into a zip archive on the disk, piece by piece: neither the files nor the
// archive are ever in memory as a whole.
//
// Every entry has the date at which the format's dates begin, so that equal contents give equal
// archives. Entry names are the caller's own; they are not checked. No entry may reach 4 GiB, which
// is EFBIG.
//
// Lifetime: refers to the Files it is given. What was begun and not finished stays as a file that
// is no archive. Threads: used by one at a time. Errors: 0 or an errno value; ECANCELED when
// `cancelled`, asked between pieces, says so; after an error nothing but the destructor is of use.
//
//   ZipFile zip(files, "/opt/korvane/IPS/a.zip", [&stop] { return stop.requested(); });
//   int error = zip.add("a.txt", "/opt/korvane/IPS/a.txt");
//   if (error == 0) error = zip.finish();   // on disk, but for its name
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/fwd.h"

namespace korvane::archive {

class ZipFile {
 public:
  ZipFile(platform::Files& files, std::string path, std::function<bool()> cancelled = {});
  ~ZipFile();
  ZipFile(const ZipFile&) = delete;
  ZipFile& operator=(const ZipFile&) = delete;

  [[nodiscard]] int add(const std::string& name, const std::string& source);
  // Writes the archive's directory and flushes the file.
  [[nodiscard]] int finish();

 private:
  struct Output;

  [[nodiscard]] int begin();
  [[nodiscard]] int copy(platform::File& source);

  platform::Files& _files;
  const std::string _path;
  const std::function<bool()> _cancelled;
  std::unique_ptr<Output> _output;
};

}  // namespace korvane::archive
