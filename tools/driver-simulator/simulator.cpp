#include "driver-simulator/simulator.h"

#include <algorithm>
#include <limits>

#include "platform/error_codes.h"
#include "platform/simulator_frames.h"

namespace korvane::simulator {
namespace {

using platform::SimulatorFrame;

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

constexpr uint32_t kindOf(SimulatorFrame kind) {
  return static_cast<uint32_t>(kind);
}

Frame answerTo(const Frame& request, Reply reply) {
  if (reply.output.size() > request.size)
    reply = {platform::kErrorMoreData, reply.output.substr(0, request.size), false};
  return {kindOf(reply.atOnce ? SimulatorFrame::answerAtOnce : SimulatorFrame::answer),
          request.number, reply.error, 0, std::move(reply.output)};
}

}  // namespace

bool Simulator::request(int connection, const Frame& frame, int64_t nowMs) {
  if (frame.kind == kindOf(SimulatorFrame::cancel)) {
    cancel(connection, frame.number);
    return true;
  }
  if (frame.kind != kindOf(SimulatorFrame::request)) return false;
  if (frame.code == platform::kSimulatorPreventionQuery) {
    _pending.push_back({connection, frame, KVP_NORMAL, 0, nowMs});
    return true;
  }
  kvp_control& control = _model.control();
  ++control.requests;
  const bool later = control.mode == KVP_DELAY || control.mode == KVP_LATE_ERROR;
  const int64_t dueMs = control.mode == KVP_STALL ? kNever : nowMs + (later ? control.delay_ms : 0);
  _pending.push_back({connection, frame, control.mode, control.error, dueMs});
  return true;
}

void Simulator::cancel(int connection, uint32_t number) {
  for (Pending& pending : _pending) {
    if (pending.connection != connection || pending.frame.number != number) continue;
    pending.mode = KVP_LATE_ERROR;
    pending.error = platform::kErrorOperationAborted;
    pending.dueMs = 0;
  }
}

void Simulator::closed(int connection) {
  _pending.remove_if([connection](const Pending& each) { return each.connection == connection; });
}

Frame Simulator::perform(const Pending& pending) {
  const Frame& frame = pending.frame;
  if (frame.code == platform::kSimulatorPreventionQuery) {
    std::string flag(4, '\0');
    flag[0] = _model.control().prevention == KVP_PREVENTION_ON ? 1 : 0;
    return answerTo(frame, {platform::kOk, std::move(flag), true});
  }
  if (pending.mode == KVP_LATE_ERROR || pending.mode == KVP_FAIL)
    return answerTo(frame, {pending.error, {}, pending.mode == KVP_FAIL});
  Reply reply = _model.handle(frame.code, frame.payload, frame.size);
  reply.atOnce = reply.atOnce && pending.mode == KVP_NORMAL;
  return answerTo(frame, std::move(reply));
}

std::vector<Answer> Simulator::due(int64_t nowMs) {
  std::vector<Answer> answers;
  for (auto it = _pending.begin(); it != _pending.end();) {
    if (it->dueMs > nowMs) {
      ++it;
      continue;
    }
    answers.push_back({it->connection, perform(*it)});
    it = _pending.erase(it);
  }
  return answers;
}

std::optional<int64_t> Simulator::nextDue() const {
  int64_t next = kNever;
  for (const Pending& pending : _pending) next = std::min(next, pending.dueMs);
  return next == kNever ? std::nullopt : std::optional(next);
}

Frame Simulator::command(const Frame& frame) {
  const std::string& text = frame.payload;
  const bool known = frame.kind == kindOf(SimulatorFrame::request) && frame.code == kCommandCode &&
                     kvp_obey(&_model.control(), {text.data(), text.size()}) == 0;
  if (known) return answerTo(frame, {platform::kOk, state(), false});
  return answerTo(frame, {platform::kErrorInvalidParameter, "not understood: " + text, false});
}

std::string Simulator::state() {
  _model.control().pending = static_cast<uint32_t>(_pending.size());
  return _model.state();
}

}  // namespace korvane::simulator
