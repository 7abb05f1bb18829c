// The names of the logs that come after the one the read pointer names, in the order in which they
// were seen, and the logs that were left before their end or that never appeared, with the place
// where their reading goes on. Both are kept in a file beside the read pointer
// (docs/file-formats.md), so that a name once seen outlives the agent.
//
// The file is written by save(), in one step, when anything differs from what it says. One that
// cannot be read or is damaged counts as empty (event 10552); one that cannot be written is event
// 10553, once until it can, and the names are kept in memory and tried again at the next save().
// Bounds: kMaxNames names wait (further ones are event 10555, once until there is room), kMaxLeft
// logs are kept an eye on, the oldest go first.
// Lifetime: the Files outlives the object. Threads: one. Errors: none is thrown.
//
//   NextLogs next(files, "/opt/agent/IPS/hidslog1rtnextlogs");
//   next.load(pointer.getCurrentLogName());
//   next.note("/opt/agent/IDS/logs/2.csv", pointer.getCurrentLogName());
//   next.save();
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

class NextLogs {
 public:
  static constexpr size_t kMaxNames = 1000;
  static constexpr size_t kMaxLeft = 16;

  // An empty path: nothing is kept.
  NextLogs(platform::Files& files, std::string path) : _files(files), _path(std::move(path)) {}
  // The file that belongs to a pointer file.
  static std::string pathBeside(const STRING& pointerFile);
  // The names in a file; none when it cannot be used.
  static std::vector<STRING> namesIn(platform::Files& files, const std::string& path);

  // Takes over what the file says. A move that was ended before save() shows in `current`, the
  // pointer's log, and is finished.
  void load(const STRING& current);
  void save();
  // load() found a file that it could not use.
  bool unusable() const { return _unusable; }
  // The names that found no room since the last call.
  std::vector<STRING> takeDropped() { return std::exchange(_dropped, {}); }
  bool isChanged() const { return _changed; }  // since the last save() that succeeded

  // A name that the component's settings show while `current` is read. It is new when the
  // settings showed another one before; a name that waits already, or that is being read
  // while none waits, is not added.
  void note(const STRING& name, const STRING& current);
  // The name of the log right behind the one being read: it comes before all others, unless
  // it waits already.
  void noteSuccessor(const STRING& name);
  // The log being read is left for a while: it comes right behind the name at `index`.
  void noteReturn(const STRING& name, size_t index);
  // A log that turned out to be there though nobody named it anew.
  void append(const STRING& name);
  const std::vector<STRING>& names() const { return _names; }
  // Where a name waits, in whatever spelling.
  std::optional<size_t> indexOf(const STRING& name) const;
  // Whether two names lead to one place: "IDS/bin/../logs/a.csv" is "IDS/logs/a.csv".
  static bool same(const STRING& a, const STRING& b);
  // Takes out the first `count` names.
  void drop(size_t count);

  // What is known of a log that is left: the next unread line, and what tells the file from another
  // one. Of one that never appeared, nothing.
  struct Place {
    int64_t offset = 0;
    uint64_t size = 0;
    uint64_t identity = 0;
    uint64_t before = 0;  // hashBefore(offset)
  };
  void leave(const STRING& name, const Place& place);
  bool isLeft(const STRING& name) const;
  // Whether a log was left at its end and holds nothing more since.
  bool isExhausted(const STRING& name) const;
  // Logs that were left and that hold more now go before the names that wait.
  void recallGrown(const STRING& current);
  // Where reading of a log begins; it is no longer a left one then.
  int64_t enter(const STRING& name);

 private:
  struct Left {
    STRING name;
    Place place;
  };
  struct Content {
    STRING named;  // the name that the settings showed last
    std::vector<STRING> names;
    std::vector<Left> left;
  };

  static const char* parse(std::string_view text, Content& out);
  std::string text() const;
  std::vector<Left>::const_iterator findLeft(const STRING& name) const;
  int64_t beginOf(const Left& left, const platform::FileInfo& now) const;
  bool isUnchanged(const Left& left, const platform::FileInfo& now) const;

  platform::Files& _files;
  const std::string _path;
  STRING _named;
  std::vector<STRING> _names;
  std::vector<Left> _left;
  bool _changed = false;  // since the last save()
  std::vector<STRING> _dropped;
  STRING _lastDropped;
  bool _unusable = false;
  bool _failureReported = false;
  bool _fullReported = false;
};

}  // namespace korvane
