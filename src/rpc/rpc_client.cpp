#include "rpc/rpc_client.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "platform/clock.h"
#include "platform/error_codes.h"
#include "rpc/rpc_named_pipe.h"

namespace korvane {
namespace {

using namespace platform;

constexpr uint32_t kPauseMs = 50;
// More than any answer in pieces has: a server that never ends does not keep its client for ever.
constexpr int kMostPieces = 100000;

std::string inBrackets(const std::string& detail) {
  return detail.empty() ? detail : " (" + detail + ")";
}

}  // namespace

RPCCallError::RPCCallError(const std::string& method, int code, std::string text,
                           std::string detail)
    : std::runtime_error(method + " failed: " + std::to_string(code) + " " + text +
                         inBrackets(detail)),
      _code(code),
      _text(std::move(text)),
      _detail(std::move(detail)) {}

RPCClient::RPCClient(Pipes& pipes, Clock& clock, std::string pipeName)
    : _clock(clock), _name(std::move(pipeName)), _fifo(pipes, clock, _name) {}

int RPCClient::remaining(int64_t deadline) const {
  return static_cast<int>(
      std::clamp<int64_t>(deadline - _clock.monotonicMs(), 0, std::numeric_limits<int>::max()));
}

void RPCClient::unreachable(uint32_t code, const std::string& method, const char* what) {
  _fifo.close();
  throw RPCUnreachable(code, "The call of " + method + " over the pipe " + _name +
                                 " failed: " + what + ", error " + std::to_string(code));
}

void RPCClient::open(const std::string& method, int64_t deadline) {
  const int64_t remade = _clock.monotonicMs() + kRemakeMs;
  while (!_fifo.open()) {
    const uint32_t error = _fifo.lastError();
    if (error != kErrorPipeBusy && error != kErrorFileNotFound)
      unreachable(error, method,
                  error == kErrorAccessDenied
                      ? "the pipe is for administrators, or served by an account without rights"
                      : "the pipe cannot be opened");
    if (error == kErrorFileNotFound && remaining(remade) == 0)
      unreachable(error, method, "no server on the pipe");
    const int left = remaining(deadline);
    if (left == 0)
      unreachable(error, method,
                  error == kErrorPipeBusy ? "the pipe has another client all the time"
                                          : "no server on the pipe");
    _never.sleepFor(std::min(kPauseMs, static_cast<uint32_t>(left)));
  }
}

std::string RPCClient::requestText(const std::string& method, JsonTree&& params) {
  RPCRequest request;
  _id = _id == std::numeric_limits<int>::max() ? 0 : _id + 1;
  request.id = _id;
  request.name = method;
  request.params.swap(params);
  try {
    return writeJson(request.releasePtree(), _fifo.limits().messageBytes);
  } catch (const std::length_error& error) {
    throw RPCCallError(method, kRpcInvalidRequest, rpcErrorText(kRpcInvalidRequest), error.what());
  }
}

RPCResponse RPCClient::call(const std::string& method, const JsonTree& params, int timeoutMs) {
  return call(method, JsonTree(params), timeoutMs);
}

RPCResponse RPCClient::call(const std::string& method, JsonTree&& params, int timeoutMs) {
  const int64_t deadline = _clock.monotonicMs() + timeoutMs;
  const std::string text = requestText(method, std::move(params));
  RPCResponse response;
  do {
    open(method, deadline);
    if (exchange(text, deadline, response)) {
      if (!response.error) return response;
      throw RPCCallError(method, *response.error, response.errorText, response.detail);
    }
    if (_fifo.isOpen()) unreachable(kTimeout, method, "no answer in time");
    _never.sleepFor(std::min(kPauseMs, static_cast<uint32_t>(remaining(deadline))));
  } while (remaining(deadline) > 0);
  unreachable(kErrorBrokenPipe, method, "the pipe was closed before the answer every time");
}

// False: no answer in time (the pipe is open still), or a pipe that was closed.
bool RPCClient::exchange(const std::string& request, int64_t deadline, RPCResponse& out) {
  if (!_fifo.writeMessage(request, remaining(deadline))) return false;
  std::string answer;
  while (_fifo.readMessage(answer, std::max(remaining(deadline), 1), RPCNamedPipe::kFrameMs))
    if (isAnswer(std::move(answer), out)) return true;
  return false;
}

// An answer of another call is passed over. What could not be read as a request has an
// answer without id.
bool RPCClient::isAnswer(std::string&& text, RPCResponse& out) const {
  JsonTree tree;
  if (!parseJson(std::move(text), tree)) return false;
  try {
    out.SetPtree(std::move(tree));
  } catch (const std::runtime_error&) {
    return false;
  }
  return out.id ? *out.id == _id : out.error.has_value();
}

std::string RPCClient::callAll(const std::string& method, const JsonTree& params, int timeoutMs) {
  JsonTree asked = params;
  std::string all;
  for (int piece = 0; piece < kMostPieces; ++piece) {
    asked.put("piece", piece);
    const RPCResponse answer = call(method, asked, timeoutMs);
    if (const auto snapshot = answer.result.get_optional<std::string>("snapshot"))
      asked.put("snapshot", *snapshot);
    if (answer.appdata) all += *answer.appdata;
    if (!answer.moredata.value_or(false)) break;
  }
  return all;
}

}  // namespace korvane
