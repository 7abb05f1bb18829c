#include "event-carrier/carrier.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "platform/clock.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane::event_carrier {
namespace {

using Json = nlohmann::json;

constexpr int kWaitMs = 200;
constexpr int kFrameMs = 5000;
constexpr int kAttachMs = 15000;
constexpr uint32_t kReconnectMs = 100;
constexpr char kOtherNotice[] = "another-notice";

}  // namespace

struct Carrier::Notice {
  std::string identifier;
  Json events;
};

Carrier::Carrier(platform::Platform& system, const Options& options, std::function<bool()> stop)
    : _system(system),
      _options(options),
      _stop(std::move(stop)),
      _faults(options.faults, options.randomPercent, options.seed),
      _pipe(system.pipes, system.clock, options.pipe, {64u << 20, 60000}),
      _never(system.threading.createEvent(true, false)) {
  if (options.out.empty()) return;
  const int error = system.files.open(options.out, platform::OpenMode::append, _file);
  if (error != 0)
    throw FileError(error, "open",
                    "open " + options.out + " failed, error " + std::to_string(error));
}

bool Carrier::done() const {
  return _stop() || (_options.notices > 0 && _acknowledged >= _options.notices);
}

void Carrier::run() {
  while (!done()) {
    if (!connect()) {
      pause(kReconnectMs);
      continue;
    }
    std::string message;
    while (!done() && _pipe.isOpen())
      if (receive(message)) take(message);
    _pipe.close();
  }
}

bool Carrier::connect() {
  if (!_pipe.open()) return false;
  if (!attach()) {
    _pipe.close();
    return false;
  }
  tell("attached", {}, 0);
  if (_faults.consumeIf(Fault::disconnectAttached)) {
    tell(nameOf(Fault::disconnectAttached), {}, 0);
    _pipe.close();
  }
  return _pipe.isOpen();
}

bool Carrier::attach() {
  if (!send({{"jsonrpc", "2.0"}, {"id", 1}, {"name", "attach"}})) return false;
  std::string message;
  for (int waited = 0; waited < kAttachMs && !done() && _pipe.isOpen(); waited += kWaitMs) {
    if (!_pipe.readMessage(message, kWaitMs, kFrameMs)) continue;
    const Json answer = Json::parse(message, nullptr, false);
    if (answer.is_object() && answer.contains("result")) return true;
    std::cerr << "korvane-event-carrier: attach is answered with " << message << std::endl;
    return false;
  }
  return false;
}

bool Carrier::receive(std::string& message) {
  if (_faults.consumeIf(Fault::neverRead)) {
    tell(nameOf(Fault::neverRead), {}, 0);
    while (!done()) pause(kWaitMs);
    return false;
  }
  if (!_pipe.waitForData(kWaitMs)) return false;
  if (_faults.consumeIf(Fault::disconnectReading)) {
    char frame[Fifo::kFrameBytes];
    // The connection is ended whatever came.
    ignoreResult(_pipe.readBytes(frame, sizeof frame / 2, kFrameMs));
    tell(nameOf(Fault::disconnectReading), {}, 0);
    _pipe.close();
    return false;
  }
  return _pipe.readMessage(message, kWaitMs, kFrameMs);
}

void Carrier::take(const std::string& message) {
  const Json request = Json::parse(message, nullptr, false);
  if (!request.is_object() || request.value("name", "") != "RPC_EVENT_NOTICE") {
    std::cerr << "korvane-event-carrier: no notice: " << message.substr(0, 200) << std::endl;
    return;
  }
  const Json& params = request.at("params");
  const Notice notice{params.at("eventSendID").get<std::string>(), params.at("events")};
  if (params.at("count").get<std::string>() != std::to_string(notice.events.size()))
    std::cerr << "korvane-event-carrier: the notice " << notice.identifier << " holds "
              << notice.events.size() << " events and says " << params.at("count") << std::endl;
  const Fault fault = _faults.next();
  tell("notice", notice.identifier, notice.events.size());
  if (fault != Fault::none) tell(nameOf(fault), notice.identifier, notice.events.size());
  answer(notice, fault);
}

void Carrier::answer(const Notice& notice, Fault fault) {
  pause(_options.slowMs);
  if (fault == Fault::disconnectNotice || fault == Fault::disconnectAttached ||
      fault == Fault::disconnectReading)
    return _pipe.close();
  if (fault == Fault::silent || !sent(notice, fault)) return;
  pause(_options.slowMs);
  switch (fault) {
    case Fault::disconnectSent:
      return _pipe.close();
    case Fault::throttle:
      acknowledge(notice.identifier, "VEXCX_REQUEST_THROTTLED");
      return;
    case Fault::backOff:
      acknowledge(notice.identifier, "VEXCX_REQUEST_THROTTLED_BACKEDOFF");
      return;
    case Fault::refuse:
      acknowledge(notice.identifier, "500");
      return;
    default:
      break;
  }
  keep(notice);
  if (fault == Fault::loseAck) return;
  if (!acknowledge(fault == Fault::mixUpAck ? kOtherNotice : notice.identifier, "0")) return;
  if (fault == Fault::mixUpAck) return;
  ++_acknowledged;
  tell("acknowledged", notice.identifier, notice.events.size());
  if (fault == Fault::ackTwice) acknowledge(notice.identifier, "0");
  if (fault == Fault::disconnectAck) _pipe.close();
}

// False when nothing more is to be said of the notice.
bool Carrier::sent(const Notice& notice, Fault fault) {
  if (fault == Fault::loseSent) return true;
  if (fault == Fault::garbage) {
    // A connection that has gone is found by the next step.
    ignoreResult(_pipe.writeMessage("{ no JSON", kFrameMs));
    return false;
  }
  const bool mixedUp = fault == Fault::mixUpSent;
  const std::string identifier = mixedUp ? kOtherNotice : notice.identifier;
  return send({{"jsonrpc", "2.0"},
               {"name", "RPC_EVENT_SENT"},
               {"params", {{"eventSendID", identifier}}}}) &&
         !mixedUp;
}

// Before the agent hears that they are taken, the events are on the disk.
void Carrier::keep(const Notice& notice) {
  if (!_file) return;
  std::string lines;
  for (const Json& event : notice.events)
    lines += event.value("v2", "") + " " + event.value("a5", "") + " " + notice.identifier + "\n";
  int error = _file->write(lines.data(), lines.size());
  if (error == 0) error = _file->flush();
  if (error != 0)
    throw FileError(error, "write",
                    "write " + _options.out + " failed, error " + std::to_string(error));
}

bool Carrier::acknowledge(const std::string& identifier, const std::string& code) {
  Json params = {{"eventAckID", identifier}, {"code", code}};
  if (code.starts_with("VEXCX") && _options.delayMs >= 0)
    params["delay"] = std::to_string(_options.delayMs);
  return send({{"jsonrpc", "2.0"}, {"name", "RPC_EVENT_ACK"}, {"params", params}});
}

bool Carrier::send(const Json& message) {
  return _pipe.writeMessage(message.dump(), kFrameMs);
}

void Carrier::pause(uint32_t milliseconds) {
  if (milliseconds > 0) _never->wait(milliseconds);
}

void Carrier::tell(const char* what, const std::string& identifier, uint64_t events) {
  Json line = {{"at", _system.clock.wallMs()}, {"did", what}};
  if (!identifier.empty()) line.update({{"notice", identifier}, {"events", events}});
  std::cout << line.dump() << std::endl;
}

}  // namespace korvane::event_carrier
