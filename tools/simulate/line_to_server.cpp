#include "simulate/line_to_server.h"

#include <algorithm>

#include "agent/thread/stop_token.h"

namespace korvane::simulation {

namespace {

constexpr int kCouldNotConnect = 7, kTimedOut = 28;

WireRequest wireOf(const TransportRequest& request) {
  const size_t host = request.url.find("//") + 2;
  const size_t path = std::min(request.url.find('/', host), request.url.size());
  WireRequest wire{request.url.substr(host, request.url.find_first_of(":/", host) - host),
                   request.url.substr(path), "", std::string(request.body)};
  for (const auto& [name, value] : request.headers) wire.headers += name + ": " + value + "\n";
  return wire;
}

}  // namespace

bool LineToServer::wait(int64_t ms) {
  const bool stopped =
      ms > 0 ? shutdownToken().sleepFor(static_cast<uint32_t>(ms)) : shutdownToken().requested();
  return !stopped && !_line.dead();
}

int LineToServer::perform(const TransportRequest& request, TransportSink& sink,
                          TransportResult& result) {
  result = TransportResult();
  if (_line.call("exchange")) return kCouldNotConnect;
  const WireRequest wire = wireOf(request);
  for (const std::string* part : {&wire.host, &wire.path, &wire.headers, &wire.body})
    _machine.sum(*part);
  const WireAnswer answer = _machine.server.exchange(wire, _machine.now());
  result.errorText = "the simulated line";
  _machine.tell(wire.path + " fate " + std::to_string(static_cast<int>(answer.fate)) + " status " +
                std::to_string(answer.status) + " delay " + std::to_string(answer.delayMs) + "\n" +
                wire.body + "--- " + answer.headers + answer.body);
  ++_machine.counts["exchanges"];
  if (answer.fate == WireAnswer::Fate::refused) {
    ++_machine.counts["refused connections"];
    return kCouldNotConnect;
  }
  result.trail.connectedUs = result.trail.tlsUs = 1;
  result.trail.requestBytes = static_cast<long>(wire.body.size() + 1);
  if (answer.fate == WireAnswer::Fate::hung) {
    ++_machine.counts["hanging exchanges"];
    return wait(request.totalTimeoutMs) ? kTimedOut : kCurlAbortedByCallback;
  }
  if (!wait(answer.delayMs)) return kCurlAbortedByCallback;
  if (answer.fate != WireAnswer::Fate::lost) return receive(answer, sink, result);
  ++_machine.counts["lost answers"];
  return kCurlReceiveError;
}

int LineToServer::receive(const WireAnswer& answer, TransportSink& sink, TransportResult& result) {
  _machine.sum(answer.headers);
  _machine.sum(answer.body);
  result.httpStatus = answer.status;
  result.trail.headersWhole = true;
  result.trail.bodyBytes = static_cast<int64_t>(answer.body.size());
  result.trail.bodyStart = answer.body.substr(0, 2048);
  sink.onHeader("HTTP/1.1 " + std::to_string(answer.status) + " OK\r\n");
  for (size_t at = 0; at < answer.headers.size();) {
    const size_t end = std::min(answer.headers.find('\n', at), answer.headers.size());
    sink.onHeader(answer.headers.substr(at, end - at) + "\r\n");
    at = end + 1;
  }
  sink.onHeader("\r\n");
  const std::string_view body = answer.body;
  const auto cut = static_cast<size_t>(_machine.random.below(static_cast<int>(body.size()) + 1));
  sink.onBody(body.substr(0, cut));
  sink.onBody(body.substr(cut));
  if (sink.refuses()) return kCurlAbortedByCallback;
  if (answer.fate == WireAnswer::Fate::cutOff) {
    ++_machine.counts["answers cut off"];
    result.answerBroken = true;
    return kCurlReceiveError;
  }
  _machine.server.arrived(answer.id, _machine.now());
  result.errorText.clear();
  return 0;
}

}  // namespace korvane::simulation
