// One look of bulk log transfer after another: removes what was sent, keeps the disk limits, packs and
// offers (docs/bulk-logs.md, "The steps").
//
// Lifetime: the parts outlive the object. Threads: one. Errors: none leave it; each has its event.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bulk/bulk_parts.h"
#include "bulk/bulk_state.h"
#include "bulk/bundle_writer.h"
#include "bulk/log_book.h"
#include "bulk/log_finder.h"
#include "eventlog/event_id.h"

namespace korvane::bulk {

class BulkTransfer {
 public:
  static constexpr uint32_t kMaxSeconds = 86'400;
  static constexpr uint32_t kLeastRetrySeconds = 5;

  // `stopped` is asked between pieces.
  BulkTransfer(const Parts& parts, std::function<bool()> stopped);

  // The seconds until the next look.
  uint32_t look();
  const State& state() const { return _state; }

 private:
  uint32_t idleSeconds() const;
  uint32_t backlogSeconds() const;
  void load();
  bool save(const State& state);
  bool bringUpToDate();

  void removeSentCopies();
  void leaveSentLogs();
  void setAside(const std::string& path);
  bool mayRemove(const LogRecord& log) const;

  bool isOver(int32_t percent) const;
  void makeRoom();
  void giveUp(const LogRecord& log);
  void lose(const LogRecord& log, Loss::Cause cause, uint64_t from);
  uint64_t packedUpTo(const LogRecord& log) const;

  std::vector<Wanted> wanted() const;
  bool rollDriverLogs();
  bool roll(const DriverLog& log, bool profile);
  uint32_t packAndOffer();
  bool pack(const std::vector<Wanted>& logs);
  uint32_t offer();
  bool recordAccepted();

  // An event once for a row of failures; `fine` ends the row.
  void report(EventId event, const std::string& about, const std::string& reason);
  bool fine(EventId event) { return _reported.erase(event) != 0; }

  const Parts& _parts;
  const std::function<bool()> _stopped;
  const std::string _statePath;
  LogFinder _finder;
  LogBook _book;
  BundleWriter _bundles;
  State _state;
  bool _loaded = false;
  bool _unsaved = false;   // the disk has another state
  bool _checked = false;   // the bundle under way is as the state has it
  bool _accepted = false;  // it is the server's, and the state does not know yet
  bool _more = false;      // more waits than the bundle under way holds
  bool _rolled = false;    // the driver's logs that were left have yet to be seen
  std::map<EventId, std::string> _reported;
};

}  // namespace korvane::bulk
