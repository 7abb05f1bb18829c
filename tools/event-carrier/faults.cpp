#include "event-carrier/faults.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace korvane::event_carrier {
namespace {

// At random only what neither side waits for minutes after.
constexpr Fault kQuickFaults[] = {
    Fault::throttle,
    Fault::backOff,
    Fault::refuse,
    Fault::mixUpSent,
    Fault::mixUpAck,
    Fault::ackTwice,
    Fault::garbage,
    Fault::disconnectAttached,
    Fault::disconnectReading,
    Fault::disconnectNotice,
    Fault::disconnectSent,
    Fault::disconnectAck,
};
constexpr uint32_t kMostTimes = 1000000;

}  // namespace

const std::vector<std::string>& faultNames() {
  static const std::vector<std::string> names = {"throttle",
                                                 "back-off",
                                                 "refuse",
                                                 "lose-sent",
                                                 "lose-ack",
                                                 "silent",
                                                 "mix-up-sent",
                                                 "mix-up-ack",
                                                 "ack-twice",
                                                 "garbage",
                                                 "disconnect-attached",
                                                 "disconnect-reading",
                                                 "disconnect-notice",
                                                 "disconnect-sent",
                                                 "disconnect-ack",
                                                 "never-read"};
  return names;
}

const char* nameOf(Fault fault) {
  return fault == Fault::none ? "none" : faultNames()[static_cast<size_t>(fault) - 1].c_str();
}

Faults::Faults(const std::vector<std::string>& script, uint32_t randomPercent, uint64_t seed)
    : _percent(randomPercent), _random(seed) {
  for (const std::string& entry : script) {
    const size_t star = std::min(entry.find('*'), entry.size());
    const auto& names = faultNames();
    const auto name = std::find(names.begin(), names.end(), entry.substr(0, star));
    uint32_t times = 1;
    if (star < entry.size()) {
      const char* const end = entry.data() + entry.size();
      const auto [rest, error] = std::from_chars(entry.data() + star + 1, end, times);
      if (error != std::errc() || rest != end || times > kMostTimes) times = 0;
    }
    if (name == names.end() || times == 0) throw std::invalid_argument("no fault: " + entry);
    _script.insert(_script.end(), times, static_cast<Fault>(name - names.begin() + 1));
  }
}

// Makes sure that the next notice's fault is decided.
void Faults::look() {
  if (!_script.empty()) return;
  const bool wrong = _random() % 100 < _percent;
  _script.push_back(wrong ? kQuickFaults[_random() % std::size(kQuickFaults)] : Fault::none);
}

Fault Faults::next() {
  look();
  const Fault fault = _script.front();
  _script.pop_front();
  return fault;
}

bool Faults::consumeIf(Fault fault) {
  look();
  if (_script.front() != fault) return false;
  _script.pop_front();
  return true;
}

}  // namespace korvane::event_carrier
