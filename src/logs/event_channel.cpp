#include "logs/event_channel.h"

#include <charconv>
#include <stdexcept>

#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kChannelTag[] = "RPC";

std::optional<int64_t> numberOf(const std::string& text) {
  int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

std::optional<int> codeOf(const std::string& text) {
  if (text == "VEXCX_REQUEST_THROTTLED") return EventChannel::kThrottled;
  if (text == "VEXCX_REQUEST_THROTTLED_BACKEDOFF") return EventChannel::kThrottledBackedOff;
  const auto number = numberOf(text);
  const bool fits = number && *number >= 0 && *number <= INT32_MAX;
  return fits ? std::optional(static_cast<int>(*number)) : std::nullopt;
}

}  // namespace

bool EventChannel::start() {
  return _transport.start();
}

bool EventChannel::tend() {
  if (!start()) return false;
  if (_transport.hasPeer()) ignoreResult(receive(0));
  return true;
}

bool EventChannel::send(const std::string& notice) {
  const uint64_t connection = _transport.connection();
  if (_transport.send(notice)) return true;
  if (connection == _transport.connection()) drop();
  return false;
}

void EventChannel::drop() {
  eventlog::trace(kChannelTag, "Disconnecting a client of the event channel");
  _attached = 0;
  _leavesAt.reset();
  _transport.drop();
}

// Gives a new client its time.
void EventChannel::noteClient() {
  if (_connection != _transport.connection()) _leavesAt.reset();
  _connection = _transport.connection();
  if (attached() || _leavesAt || !_transport.hasPeer()) return;
  _leavesAt = _clock.monotonicMs() + kAttachMs;
}

EventChannel::Heard EventChannel::receive(int waitMs) {
  const uint64_t carrier = _attached;
  Heard heard;
  noteClient();
  std::string text;
  switch (_transport.receive(text, waitMs)) {
    case RPCReceive::message:
      noteClient();
      heard = take(text);
      break;
    case RPCReceive::stalled:
    case RPCReceive::tooLong:
      heard = broken("a message that does not end or is too long");
      break;
    case RPCReceive::nothing:
      noteClient();
      break;
    case RPCReceive::unusable:
      _attached = 0;
      break;
  }
  if (!attached()) _attached = 0;
  if (_leavesAt && _clock.monotonicMs() >= *_leavesAt) drop();
  // The next carrier may be there already.
  if (carrier != 0 && _attached != carrier) return {Signal::gone, {}, kAccepted, {}};
  return heard;
}

EventChannel::Heard EventChannel::broken(const std::string& what) {
  eventlog::trace(kChannelTag, "A client of the event channel sent %s", what);
  drop();
  return {};
}

EventChannel::Heard EventChannel::take(const std::string& text) {
  JsonTree tree;
  RPCRequest request;
  if (!parseJson(text, tree)) return broken("text that is not JSON");
  try {
    request.SetPtree(tree);
  } catch (const std::runtime_error& error) {
    return broken(error.what());
  }
  if (request.name == "attach") {
    attach(request);
    return {};
  }
  if (attached() && (request.name == "RPC_EVENT_SENT" || request.name == "RPC_EVENT_ACK"))
    return handleSignal(request);
  if (request.name.empty() || !request.id) return {};
  RPCResponse refusal;
  refusal.id = request.id;
  refusal.error = attached() ? kRpcMethodNotFound : kRpcNotAdministrator;
  answer(refusal);
  return {};
}

EventChannel::Heard EventChannel::handleSignal(const RPCRequest& request) {
  if (request.name == "RPC_EVENT_SENT")
    return {Signal::sent, request.params.get("eventSendID", std::string()), kAccepted, {}};
  const std::string code = request.params.get("code", std::string());
  const std::string delay = request.params.get("delay", std::string());
  const auto number = codeOf(code);
  if (!number) return broken("RPC_EVENT_ACK with the code \"" + code + "\"");
  const auto delayMs = numberOf(delay);
  if (!delay.empty() && !delayMs) return broken("RPC_EVENT_ACK with the delay \"" + delay + "\"");
  return {Signal::acknowledged, request.params.get("eventAckID", std::string()), *number, delayMs};
}

void EventChannel::attach(const RPCRequest& request) {
  RPCResponse response;
  response.id = request.id;
  if (_transport.peerIsAdministrator()) {
    _attached = _transport.connection();
    _leavesAt.reset();
    _refusalTold = false;
    response.result.put("attached", "true");
  } else {
    response.error = kRpcNotAdministrator;
    _leavesAt = _clock.monotonicMs() + kLeaveMs;
    if (!_refusalTold) eventlog::event(EventId::eventChannelProgramRefused, kChannelTag);
    _refusalTold = true;
  }
  answer(response);
}

void EventChannel::answer(const RPCResponse& response) {
  const uint64_t connection = _transport.connection();
  if (!_transport.send(writeJson(response.ptree())) && connection == _transport.connection())
    drop();
}

}  // namespace korvane
