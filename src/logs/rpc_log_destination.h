// Hands batches to the event carrier of an agent without a management server, over the local event
// channel (docs/event-channel.md).
//
// A batch is one notice (event_notice.h). The carrier says that it has sent it on, then that it was
// acknowledged; both name the notice's identifier, which no other try has. Answers that ask for
// patience have the batch sent again, at most kFurtherAttempts times, after a pause: the one that
// the carrier names, else one that begins at a second (ten when it has backed off itself) and
// doubles from try to try, also over failed calls, until a batch is accepted. No pause is longer
// than kLongestDelayMs. If a notice is not answered, or answered wrongly, the carrier is
// disconnected, so that no late message can be taken for an answer to another notice. Until it is
// accepted a batch stays with the caller.
//
// Waits: for a carrier without limit, while `mayForward` allows it; kSentSteps and kAckSteps of
// kStepMs. A stop of the agent ends every wait at once and for good: the object hands over
// nothing more then. Events (10610 to 10614) are reported when the error code changes.
// Lifetime: owned by its writer; its parts outlive it. Threads: one. Errors: the codes below, or
// the one that the carrier answered.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "logs/event_channel.h"
#include "logs/log_destination.h"

namespace korvane {

class ForwardingCounters;
class StopToken;

class RpcLogDestination : public LogDestination {
 public:
  struct Parts {
    platform::Clock& clock;
    StopToken& stop;  // of the agent
    ForwardingCounters& counters;
    std::function<bool()> mayForward;
  };
  // transport: the server's end of the event pipe.
  RpcLogDestination(std::unique_ptr<RPCTransportBase> transport, Parts parts);

  int writeLog(const LogBatch& batch) override;
  RecordBytes recordBytes() const override;
  void tend() override;

  static constexpr int kNotNow = 1000;  // a stop, or forwarding was switched off
  static constexpr int kNoChannel = 1001;
  static constexpr int kNoCarrier = 1002;
  static constexpr int kSendFailed = 1003;
  static constexpr int kNoSentSignal = 1004;
  static constexpr int kNoAcknowledgement = 1005;
  static constexpr int kOtherIdentifier = 1006;

  static constexpr int kStepMs = 100;
  static constexpr int kSentSteps = 6001;
  static constexpr int kAckSteps = 9001;
  static constexpr int kPollMs = 1000;
  static constexpr int kFurtherAttempts = 10;
  static constexpr int64_t kNoDelay = -100;
  static constexpr int64_t kLongestDelayMs = 60000;
  // A carrier that comes within this time after the first batch is not missed.
  static constexpr int64_t kMissedMs = 10000;

 private:
  // The notice that is under way, and what has been heard of it.
  struct Flight {
    std::string identifier;
    bool sent = false;
    std::optional<EventChannel::Heard> answer;
    bool mixedUp = false;  // another identifier was named
    bool gone = false;     // the carrier is
    // What was not accepted need not have been sent on.
    bool leftCarrier() const { return sent || (answer && answer->code != EventChannel::kAccepted); }
    bool answered() const { return leftCarrier() && answer; }
  };

  bool mayGoOn() const;
  [[nodiscard]] bool awaitCarrier(size_t records);
  void waitFor(int64_t milliseconds);
  [[nodiscard]] int attempt(const LogBatch& batch);
  [[nodiscard]] bool await(Flight& flight, bool (Flight::*done)() const, int steps);
  [[nodiscard]] int fail(const Flight& flight, int code, const char* text);
  [[nodiscard]] int judge(const EventChannel::Heard& answer);
  void setDelay(const EventChannel::Heard& answer);
  [[nodiscard]] bool pause();
  [[nodiscard]] int finish(int code, size_t records);
  void report(int code, size_t records);

  const std::unique_ptr<RPCTransportBase> _transport;
  const Parts _parts;
  EventChannel _channel;
  const std::string _run;  // makes identifiers differ from those of other runs
  int _notices = 0;
  int _lastError = 0;
  int _lastReportedError = 0;
  int64_t _delay = kNoDelay;  // the last pause that an answer led to; kNoDelay while none has
};

}  // namespace korvane
