// The account of one forwarded log (docs/ledger.md): what was read, delivered and lost of it, and how
// much of that the read pointer goes past when it is saved.
//
// Losses wait here until the pointer is about to be saved behind them; settle() enters them in the
// ledger then and gives what the pointer is to keep.
//
// Lifetime: ledger and clock outlive it. Threads: one. Nothing is counted here for each line but
// what is lost: lines that became events are added once a pass or batch.
//
//   account.addRead(pass.read);
//   const LogAccount::Settled settled = account.settleBefore(undelivered, held);
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "ledger/loss_ledger.h"
#include "platform/fwd.h"

namespace korvane {

class LogAccount {
 public:
  LogAccount(LossLedger& ledger, platform::Clock& clock, std::string stream)
      : _ledger(ledger), _clock(clock), _stream(std::move(stream)) {}

  // Goes on with what the read pointer has kept.
  void resume(const std::optional<StreamState>& saved);

  // A number that changes whenever a place appears that the pointer may come to stand at. Losses
  // with none between them are kept as one.
  void setBoundary(std::function<uint64_t()> boundary) { _boundary = std::move(boundary); }

  void addRead(uint64_t lines) { _state.read += lines; }
  void addDelivered(uint64_t lines) { _state.delivered += lines; }
  // One line, which nobody has counted as read yet (unless it is delivered all the same).
  void loseLine(LossCause cause, const std::string& log, uint64_t identity, int64_t from,
                int64_t to);
  // Lines that were counted as read and held.
  void loseHeld(LossCause cause, const std::string& log, uint64_t identity, uint64_t lines,
                int64_t from, int64_t to);
  // Of a log that cannot be read on: nobody knows what there was behind the place.
  void loseRest(LossCause cause, const std::string& log, int64_t from);

  struct Settled {
    StreamState state;
    bool lossy = false;  // the pointer is to be flushed
  };
  // `held`: lines that were read and are neither delivered nor lost, all of them behind `position`.
  [[nodiscard]] Settled settleBefore(int64_t position, uint64_t held);
  // When nothing is held and the pointer leaves the log.
  [[nodiscard]] Settled settleAll() { return settleBefore(std::numeric_limits<int64_t>::max(), 0); }
  bool lostBefore(int64_t position) const;
  void publish(uint64_t held);

 private:
  struct Pending {
    Loss loss;
    uint64_t boundary;
  };

  void add(Loss loss);
  uint64_t pendingLines() const;

  LossLedger& _ledger;
  platform::Clock& _clock;
  const std::string _stream;
  std::function<uint64_t()> _boundary = [] { return uint64_t{0}; };
  StreamState _state;  // of all that was read, but for losses that wait
  std::vector<Pending> _pending;
};

}  // namespace korvane
