#include "logs/rpc_log_destination.h"

#include <algorithm>
#include <string_view>

#include "agent/thread/stop_token.h"
#include "eventlog/event_log.h"
#include "logs/event_notice.h"
#include "logs/forwarding_counters.h"
#include "platform/clock.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kRpcSource[] = "RpcLogDestination::writeLog";

// The first pause of a throttling answer that names none, and of one whose sender has backed off.
constexpr int64_t kFirstDelayMs = 1000;
constexpr int64_t kFirstBackedOffDelayMs = 10000;

bool isThrottling(int code) {
  return code == EventChannel::kThrottled || code == EventChannel::kThrottledBackedOff;
}

const char* textOf(int code) {
  switch (code) {
    case RpcLogDestination::kNoChannel:
      return "the event channel cannot be served";
    case RpcLogDestination::kNoCarrier:
      return "no event carrier is attached";
    case RpcLogDestination::kSendFailed:
      return "the notice could not be sent";
    case RpcLogDestination::kNoSentSignal:
      return "the carrier did not confirm sending the notice";
    case RpcLogDestination::kNoAcknowledgement:
      return "the notice was not acknowledged";
    case RpcLogDestination::kOtherIdentifier:
      return "the carrier acknowledged a different notice";
    case EventChannel::kThrottled:
      return "VEXCX_REQUEST_THROTTLED";
    case EventChannel::kThrottledBackedOff:
      return "VEXCX_REQUEST_THROTTLED_BACKEDOFF";
    default:
      return "the carrier refused the notice";
  }
}

}  // namespace

RpcLogDestination::RpcLogDestination(std::unique_ptr<RPCTransportBase> transport, Parts parts)
    : _transport(std::move(transport)),
      _parts(std::move(parts)),
      _channel(*_transport, _parts.clock),
      _run(std::to_string(_parts.clock.wallMs())) {}

LogDestination::RecordBytes RpcLogDestination::recordBytes() const {
  return eventNoticeBytes;
}

void RpcLogDestination::tend() {
  const StopCallback interrupt(_parts.stop, [this] { _channel.interrupt(); });
  if (!_parts.stop.requested() && !_channel.tend()) report(kNoChannel, 0);
}

bool RpcLogDestination::mayGoOn() const {
  return !_parts.stop.requested() && _parts.mayForward();
}

int RpcLogDestination::writeLog(const LogBatch& batch) {
  const size_t records = batch.records.size();
  const StopCallback interrupt(_parts.stop, [this] { _channel.interrupt(); });
  for (int furtherAttempts = 0;; ++furtherAttempts) {
    if (!awaitCarrier(records)) return kNotNow;
    const int code = attempt(batch);
    if (!isThrottling(code) || furtherAttempts == kFurtherAttempts) return finish(code, records);
    if (!pause()) return kNotNow;
    _parts.counters.addRetried();
  }
}

bool RpcLogDestination::awaitCarrier(size_t records) {
  const int64_t since = _parts.clock.monotonicMs();
  while (mayGoOn()) {
    const bool served = _channel.start();
    if (served && _channel.attached()) return true;
    if (!served)
      report(kNoChannel, records);
    else if (_parts.clock.monotonicMs() - since >= kMissedMs)
      report(kNoCarrier, records);
    waitFor(kPollMs);
  }
  return false;
}

// The channel is listened to meanwhile: a carrier may attach, or go.
void RpcLogDestination::waitFor(int64_t milliseconds) {
  _meanwhile();
  if (_channel.start())
    ignoreResult(_channel.receive(static_cast<int>(milliseconds)));
  else
    _parts.stop.sleepFor(static_cast<uint32_t>(milliseconds));
}

int RpcLogDestination::attempt(const LogBatch& batch) {
  Flight flight;
  flight.identifier = _run + "-" + std::to_string(++_notices);
  {
    const std::string notice = eventNotice(_notices, flight.identifier, batch);
    eventlog::trace(kRpcSource, "No. of event: %d msg size: %d msg body: %s",
                    static_cast<int>(batch.records.size()), static_cast<int>(notice.size()),
                    notice);
    eventlog::trace(kRpcSource, "Send RPC_EVENT_NOTICE.");
    if (!_channel.send(notice))
      return fail(flight, kSendFailed, "Failed to send RPC_EVENT_NOTICE.");
  }
  if (!await(flight, &Flight::leftCarrier, kSentSteps))
    return fail(flight, kNoSentSignal, "Failed to receive event sent signal.");
  if (!await(flight, &Flight::answered, kAckSteps))
    return fail(flight, kNoAcknowledgement, "Failed to receive event ACK signal.");
  return judge(*flight.answer);
}

bool RpcLogDestination::await(Flight& flight, bool (Flight::*done)() const, int steps) {
  for (int step = 0; step < steps && !(flight.*done)(); ++step) {
    if (_parts.stop.requested()) return false;
    if ((step + 1) % (kPollMs / kStepMs) == 0) _meanwhile();
    const EventChannel::Heard heard = _channel.receive(kStepMs);
    flight.gone = heard.signal == EventChannel::Signal::gone;
    if (flight.gone) return false;
    if (heard.signal == EventChannel::Signal::none) continue;
    flight.mixedUp = heard.identifier != flight.identifier;
    if (flight.mixedUp) return false;
    if (heard.signal == EventChannel::Signal::sent)
      flight.sent = true;
    else
      flight.answer = heard;
  }
  return (flight.*done)();
}

int RpcLogDestination::fail(const Flight& flight, int code, const char* text) {
  if (_parts.stop.requested()) return kNotNow;
  eventlog::trace(kRpcSource, flight.mixedUp ? "eventSendID not match eventAckID" : text);
  if (_channel.attached() && !flight.gone) _channel.drop();
  return flight.mixedUp ? kOtherIdentifier : code;
}

int RpcLogDestination::judge(const EventChannel::Heard& answer) {
  if (answer.code == EventChannel::kAccepted) {
    eventlog::trace(kRpcSource, "Successfully send the event.");
    _delay = kNoDelay;
  } else if (isThrottling(answer.code)) {
    const auto code = static_cast<uint64_t>(answer.code);
    if (answer.code == EventChannel::kThrottled)
      eventlog::trace(kRpcSource, "Receive VEXCX_REQUEST_THROTTLED. Receive code: %lu", code);
    else
      eventlog::trace(kRpcSource, "Receive VEXCX_REQUEST_THROTTLED_BACKEDOFF. Receive code: %lu",
                      code);
    setDelay(answer);
    eventlog::trace(kRpcSource, "delay: %lld", _delay);
  }
  return answer.code;
}

void RpcLogDestination::setDelay(const EventChannel::Heard& answer) {
  const bool backedOff = answer.code == EventChannel::kThrottledBackedOff;
  const int64_t own = std::max(backedOff ? kFirstBackedOffDelayMs : kFirstDelayMs, 2 * _delay);
  _delay = std::clamp<int64_t>(answer.delayMs.value_or(own), 0, kLongestDelayMs);
}

bool RpcLogDestination::pause() {
  const int64_t end = _parts.clock.monotonicMs() + _delay;
  while (mayGoOn()) {
    const int64_t left = end - _parts.clock.monotonicMs();
    if (left <= 0) return true;
    waitFor(std::min<int64_t>(left, kPollMs));
  }
  return false;
}

int RpcLogDestination::finish(int code, size_t records) {
  if (code == kNotNow) return code;
  if (code == EventChannel::kAccepted) _parts.counters.addForwarded(records);
  report(code, records);
  return code;
}

void RpcLogDestination::report(int code, size_t records) {
  _lastError = code;
  if (code != EventChannel::kAccepted) _parts.counters.noteError(code, textOf(code));
  if (_lastError == _lastReportedError) return;
  _lastReportedError = _lastError;
  const auto waiting = static_cast<uint64_t>(records);
  switch (code) {
    case EventChannel::kAccepted:
      return eventlog::event(EventId::eventCarrierAcceptsAgain, kRpcSource);
    case kNoChannel:
      return eventlog::event(EventId::eventChannelUnusable, kRpcSource, {_channel.lastError()});
    case kNoCarrier:
      return eventlog::event(EventId::noEventCarrier, kRpcSource, {waiting});
    case EventChannel::kThrottled:
    case EventChannel::kThrottledBackedOff:
      return eventlog::event(EventId::eventCarrierThrottles, kRpcSource,
                             {code, textOf(code), waiting});
    default:
      return eventlog::event(EventId::eventCarrierFailed, kRpcSource,
                             {code, textOf(code), waiting});
  }
}

}  // namespace korvane
