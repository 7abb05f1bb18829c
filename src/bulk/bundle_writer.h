// Packs parts of logs into one bundle: a zip archive with its manifest, flushed and in place before
// anybody may name it (docs/bulk-logs.md, "Bundles").
//
// Lifetime: Files outlives the object. Threads: one. What it keeps in memory does not grow with the logs.
// Errors: errno values of the folder; a log that cannot be read is left out. ECANCELED for a stop.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bulk/bulk_state.h"
#include "platform/fwd.h"

namespace korvane::bulk {

inline constexpr uint64_t kMaxArchive = 8u << 20;  // where a part ends
inline constexpr uint64_t kMaxUnpacked = 64u << 20;

// What may go into the bundle.
struct Wanted {
  LogRecord log;
  bool wholeLines = false;  // what stands behind the last line feed waits
};

struct Packed {
  Bundle bundle;
  bool everything = false;  // nothing that was wanted waits for the next one
};

class BundleWriter {
 public:
  // `folder` is made when it is missing.
  BundleWriter(platform::Files& files, platform::Clock& clock, std::string folder)
      : _files(files), _clock(clock), _folder(std::move(folder)) {}

  // In the order given. 0 with an empty name: there was nothing that could be packed.
  [[nodiscard]] int pack(const std::vector<Wanted>& wanted, bool digests,
                         const std::function<bool()>& stopped, Packed& out);
  // Whether the bundle lies there as the state has it: 0, ENOENT, EBADMSG or another error.
  [[nodiscard]] int check(const Bundle& bundle) const;
  [[nodiscard]] int remove(const std::string& name);
  // Removes what no state names.
  void removeOthers(const std::string& name);
  std::string pathOf(const std::string& name) const;

 private:
  struct Archive;

  int write(Archive& archive, const std::vector<Wanted>& wanted, Packed& out);
  int addLog(Archive& archive, const Wanted& wanted, Packed& out);
  int addPieces(Archive& archive, platform::File& file, const Wanted& wanted, Part& part);
  int finish(Archive& archive, Packed& out);
  int digestOf(const std::string& path, uint64_t& size, std::string& digest) const;

  platform::Files& _files;
  platform::Clock& _clock;
  const std::string _folder;
};

}  // namespace korvane::bulk
