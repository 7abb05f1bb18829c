#include "driver-simulator/simulator.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "platform/error_codes.h"
#include "platform/simulator_frames.h"

namespace korvane::simulator {
namespace {

using platform::SimulatorFrame;

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
constexpr uint32_t kMaxDelayMs = 3600000;

constexpr uint32_t kindOf(SimulatorFrame kind) {
  return static_cast<uint32_t>(kind);
}

Frame answerTo(const Frame& request, Reply reply) {
  if (reply.output.size() > request.size)
    reply = {platform::kErrorMoreData, reply.output.substr(0, request.size), false};
  return {kindOf(reply.atOnce ? SimulatorFrame::answerAtOnce : SimulatorFrame::answer),
          request.number, reply.error, 0, std::move(reply.output)};
}

bool numberIn(const std::string& word, uint32_t most, uint32_t& out) {
  const char* const end = word.data() + word.size();
  const auto [stopped, error] = std::from_chars(word.data(), end, out);
  return error == std::errc() && stopped == end && out <= most;
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

}  // namespace

bool Simulator::request(int connection, const Frame& frame, int64_t nowMs) {
  if (frame.kind == kindOf(SimulatorFrame::cancel)) {
    cancel(connection, frame.number);
    return true;
  }
  if (frame.kind != kindOf(SimulatorFrame::request)) return false;
  if (frame.code == platform::kSimulatorPreventionQuery) {
    _pending.push_back({connection, frame, Mode::normal, 0, nowMs});
    return true;
  }
  ++_requests;
  const bool later = _mode == Mode::delay || _mode == Mode::lateError;
  const int64_t dueMs = _mode == Mode::stall ? kNever : later ? nowMs + _delayMs : nowMs;
  _pending.push_back({connection, frame, _mode, _error, dueMs});
  return true;
}

void Simulator::cancel(int connection, uint32_t number) {
  for (Pending& pending : _pending) {
    if (pending.connection != connection || pending.frame.number != number) continue;
    pending.mode = Mode::lateError;
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
    flag[0] = _prevention ? 1 : 0;
    return answerTo(frame, {platform::kOk, std::move(flag), true});
  }
  if (pending.mode == Mode::lateError || pending.mode == Mode::failAtOnce)
    return answerTo(frame, {pending.error, {}, pending.mode == Mode::failAtOnce});
  Reply reply = _model.handle(frame.code, frame.payload, frame.size);
  reply.atOnce = reply.atOnce && pending.mode == Mode::normal;
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
  const std::vector<std::string> words = wordsOf(frame.payload);
  const bool known = frame.kind == kindOf(SimulatorFrame::request) && frame.code == kCommandCode &&
                     !words.empty() && obey(words, frame.payload);
  if (known) return answerTo(frame, {platform::kOk, state(), false});
  return answerTo(frame,
                  {platform::kErrorInvalidParameter, "not understood: " + frame.payload, false});
}

bool Simulator::obey(const std::vector<std::string>& words, const std::string& text) {
  const std::string& verb = words[0];
  if (verb == "state") return words.size() == 1;
  if (verb == "refuse") {
    const size_t begin =
        words.size() > 1 ? text.find(words[1], text.find(verb) + verb.size()) : text.size();
    _model.setRefusal(text.substr(begin));
    return true;
  }
  if (verb == "prevention") {
    if (words.size() != 2 || (words[1] != "on" && words[1] != "off")) return false;
    _prevention = words[1] == "on";
    return true;
  }
  if (verb == "vanish") {
    if (words.size() != 1) return false;
    _present = false;
    return true;
  }
  return setMode(words);
}

bool Simulator::setMode(const std::vector<std::string>& words) {
  const std::string& verb = words[0];
  uint32_t first = 0;
  uint32_t error = platform::kErrorGenFailure;
  if (words.size() > 1 && !numberIn(words[1], kMaxDelayMs, first)) return false;
  if (words.size() > 2 && !numberIn(words[2], UINT32_MAX, error)) return false;
  if (words.size() == 1 && verb == "normal")
    _mode = Mode::normal;
  else if (words.size() == 1 && verb == "stall")
    _mode = Mode::stall;
  else if (words.size() == 2 && verb == "delay")
    _mode = Mode::delay;
  else if (words.size() == 2 && verb == "fail")
    _mode = Mode::failAtOnce;
  else if ((words.size() == 2 || words.size() == 3) && verb == "late-error")
    _mode = Mode::lateError;
  else
    return false;
  _present = _present || _mode == Mode::normal;
  _delayMs = first;
  _error = _mode == Mode::failAtOnce ? first : error;
  return true;
}

std::string Simulator::state() const {
  static constexpr const char* kModes[] = {"normal", "stall", "delay", "late-error", "fail"};
  const nlohmann::json json = {{"mode", kModes[static_cast<size_t>(_mode)]},
                               {"present", _present},
                               {"prevention", _prevention},
                               {"builtIn", _model.builtIn()},
                               {"name", _model.policyName()},
                               {"version", _model.policyVersion()},
                               {"id", _model.policyId()},
                               {"refuses", _model.refusal()},
                               {"requests", _requests},
                               {"pending", _pending.size()},
                               {"loaded", _model.loaded()},
                               {"refused", _model.refused()}};
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace korvane::simulator
