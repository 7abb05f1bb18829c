// The loss ledger: what the agent could not read or deliver, in a small file of bounded size, and
// the accounts of its log streams. docs/ledger.md has the file, the accounting and why it survives
// every kill.
//
// Two ways in. record() is for losses that stand on their own, such as a file that is about to be
// removed: record first, then remove; recorded again after a kill, the same loss counts once. A
// stream that is read by a pointer settles its losses instead (resume, settle): they count exactly
// when the pointer has gone past them.
//
// Lifetime: Files and Clock outlive the object. Threads: any; each stream has one that settles.
// Waits: for the disk, and for another thread's write. Errors: none is thrown. A file
// that cannot be used is event 10730 and a new one is begun; one that cannot be written is event
// 10731, once until it can, and what it lacks stays in memory and goes with the next write.
//
//   ledger.open("/opt/agent/IPS/lossledger");
//   ledger.record({.log = path, .cause = LossCause::diskLimit, .counted = false,
//                  .first = {0, now}, .last = {size, now}, .identity = info.identity});
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/thread/locks.h"
#include "ledger/ledger_text.h"
#include "ledger/loss.h"
#include "platform/files.h"
#include "platform/fwd.h"

namespace korvane {

// What a stream's read pointer keeps beside its position, as of that position.
struct StreamState {
  uint64_t number = 0;     // of the last settlement with a loss that the pointer has gone past
  uint64_t read = 0;       // lines that were events, or should have been
  uint64_t delivered = 0;  // of those
  int64_t sinceMs = 0;     // when the account was opened
  LossSums lost{};

  friend bool operator==(const StreamState&, const StreamState&) = default;
};

// A stream as it stands: read = delivered + waiting + ledgered.
struct StreamAccount {
  std::string stream;
  int64_t sinceMs = 0;
  uint64_t read = 0;
  uint64_t delivered = 0;
  uint64_t waiting = 0;    // read and held by the agent
  uint64_t ledgered = 0;   // lost, by count
  uint64_t uncounted = 0;  // losses of unknown count, which the balance cannot have
  bool closed() const { return read == delivered + waiting + ledgered; }

  friend bool operator==(const StreamAccount&, const StreamAccount&) = default;
};

struct LedgerView {
  uint64_t revision = 0;                // another one whenever something below changed
  std::vector<StreamAccount> accounts;  // by stream name
  LossSums totals{};                    // of all entries
  std::vector<LedgerEntry> entries;     // oldest first
};

class LossLedger {
 public:
  static constexpr size_t kMaxEntries = kMaxLedgerEntries;
  static constexpr size_t kSlotBytes = 64 * 1024;
  static constexpr size_t kFileBytes = 2 * kSlotBytes;

  LossLedger(platform::Files& files, platform::Clock& clock) : _files(files), _clock(clock) {}
  LossLedger(const LossLedger&) = delete;
  LossLedger& operator=(const LossLedger&) = delete;

  // Takes over what the file says, and makes it where there is none. Before that, and with an empty
  // path, everything is kept in memory alone.
  void open(const std::string& path);

  // Lets go of the file; what is entered afterwards opens it again.
  void close();

  // Takes over what the file of another process says, and writes nothing.
  void look(const std::string& path);

  // True when the file has it. A loss of the same log, identity, cause and range as an entry that is
  // still apart counts once.
  bool record(const Loss& loss);
  bool record(std::span<const Loss> losses);
  // A log that was missing is there after all: its uncounted entry of that cause goes.
  void withdraw(const std::string& log, LossCause cause);

  // The account goes on where the pointer stands. Without a state, one is opened.
  StreamState resume(const std::string& stream, const std::optional<StreamState>& saved);
  // Enters losses and counts them in `state`, whose number goes up. When this returns the pointer is
  // to be saved with that state, lastingly, before the next settlement: losses of a number that the
  // pointer has not come to are taken back at the next start.
  void settle(const std::string& stream, std::span<const Loss> losses, StreamState& state);
  // What view() shows of a stream.
  void publish(const std::string& stream, const StreamState& state, uint64_t waiting);

  LedgerView view() const;

 private:
  void load(platform::File& file) REQUIRES(_lock);
  [[nodiscard]] int openFile() REQUIRES(_lock);
  bool save() REQUIRES(_lock);
  bool enter(const Loss& loss) REQUIRES(_lock);
  uint64_t& numberOf(const std::string& stream) REQUIRES(_lock);
  LossSums sumsOf(const std::string& stream) const REQUIRES(_lock);
  bool takeBack(const std::string& stream, uint64_t beyond) REQUIRES(_lock);
  void addWhatIsMissing(const std::string& stream, const LossSums& known) REQUIRES(_lock);
  void changed() REQUIRES(_lock) { ++_revision; }

  platform::Files& _files;
  platform::Clock& _clock;
  mutable Win32Mutex _lock;
  std::string _path GUARDED_BY(_lock);
  std::unique_ptr<platform::File> _file GUARDED_BY(_lock);
  LedgerContent _content GUARDED_BY(_lock);
  std::vector<StreamAccount> _accounts GUARDED_BY(_lock);
  uint64_t _revision GUARDED_BY(_lock) = 0;
  bool _loaded GUARDED_BY(_lock) = false;
  bool _failureReported GUARDED_BY(_lock) = false;
};

}  // namespace korvane
