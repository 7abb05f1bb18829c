#include "rpc/rpc_message_queue.h"

#include <stdexcept>
#include <utility>

#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr size_t kParameterDepth = 3;  // of a list or object that is the value of a parameter

}  // namespace

void RPCMessageQueue::notePeer() {
  if (_connection != _transport.connection()) _cameAt.reset();
  _connection = _transport.connection();
  if (_cameAt || !_transport.hasPeer()) return;
  _cameAt = _lastAskedAt = _clock.monotonicMs();
  _hasAsked = false;
}

bool RPCMessageQueue::isOverdue(bool asks) const {
  if (!_cameAt) return false;
  const int64_t now = _clock.monotonicMs();
  if (asks) return now - *_cameAt > kSessionMs;
  return now - _lastAskedAt > (_hasAsked ? kSilentMs : kFirstMs);
}

void RPCMessageQueue::drop() {
  eventlog::trace("RPC", "Disconnecting a client");
  _transport.drop();
}

bool RPCMessageQueue::receive(RPCRequest& out, int waitMs) {
  notePeer();
  std::string text;
  const RPCReceive result = _transport.receive(text, waitMs);
  notePeer();
  if (result == RPCReceive::message && take(std::move(text), out)) {
    if (!isOverdue(/*asks=*/true)) {
      _lastAskedAt = _clock.monotonicMs();
      _hasAsked = true;
      return true;
    }
    drop();
    return false;
  }
  if (result == RPCReceive::tooLong) refuse(kRpcInvalidRequest);
  if (result == RPCReceive::stalled || isOverdue(/*asks=*/false)) drop();
  return false;
}

// A parameter that is an empty list or object is no empty text.
bool RPCMessageQueue::take(std::string&& text, RPCRequest& out) {
  JsonTree tree;
  markEmpty(text, kParameterDepth);
  if (!parseJson(std::move(text), tree)) {
    refuse(kRpcParseError);
    return false;
  }
  try {
    out.SetPtree(std::move(tree));
    if (!out.name.empty()) return true;
    eventlog::trace("RPC", "A request without a name");
  } catch (const std::runtime_error& error) {
    eventlog::trace("RPC", "%s", error.what());
  }
  refuse(kRpcInvalidRequest);
  return false;
}

void RPCMessageQueue::refuse(int code) {
  RPCResponse response;
  response.error = code;
  // A peer that does not take it has been let go.
  ignoreResult(send(std::move(response)));
}

// A peer whose answer took long has not been silent.
bool RPCMessageQueue::answer(RPCResponse&& response) {
  _lastAskedAt = _clock.monotonicMs();
  return send(std::move(response));
}

bool RPCMessageQueue::send(RPCResponse&& response) {
  const std::string text = writeJson(response.releasePtree(), _transport.messageBytes());
  const uint64_t connection = _transport.connection();
  if (_transport.send(text)) return true;
  if (connection == _transport.connection()) drop();
  return false;
}

}  // namespace korvane
