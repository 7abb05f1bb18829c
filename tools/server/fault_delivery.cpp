#include "tools/server/fault_delivery.h"

#include <algorithm>

#include "tools/server/wire_message.h"

namespace korvane::server {

namespace {

constexpr int64_t kDefaultOversize = int64_t{256} << 20;
constexpr int64_t kHeaderLimit = int64_t{1} << 30;
constexpr std::string_view kCommentLine =
    "# a comment line of an oversized answer, to be skipped\n";
constexpr std::string_view kEndlessHeader =
    "X-Endless: one more header line that nobody asked for\r\n";

std::string_view headersOf(std::string_view answer) {
  const size_t end = answer.find("\r\n\r\n");
  return answer.substr(0, end == std::string_view::npos ? answer.size() : end + 4);
}

std::string repeated(std::string_view line, size_t atLeast) {
  std::string text;
  while (text.size() < atLeast) text += line;
  return text;
}

// Sends `line` over and over until `total` bytes are out or the peer has gone.
void sendRepeated(Connection& connection, std::string_view line, int64_t total) {
  const std::string block = repeated(line, 16384);
  for (int64_t left = total; left > 0; left -= static_cast<int64_t>(block.size())) {
    if (!connection.send(std::string_view(block).substr(
            0, static_cast<size_t>(std::min<int64_t>(left, static_cast<int64_t>(block.size()))))))
      return;
  }
}

Delivery sendPart(const Fault& fault, Connection& connection, std::string_view answer) {
  const size_t bodyAt = headersOf(answer).size();
  const size_t wanted = static_cast<size_t>(std::max<int64_t>(fault.bytes.value_or(0), 0));
  const size_t size = std::min(answer.size(), bodyAt + wanted);
  connection.send(answer.substr(0, size));
  return Delivery::part;
}

Delivery sendSlowly(const Fault& fault, Connection& connection, std::string_view answer) {
  const size_t step = static_cast<size_t>(std::max<int64_t>(fault.bytes.value_or(1), 1));
  for (size_t at = 0; at < answer.size(); at += step) {
    if (at > 0 && !connection.pause(std::chrono::seconds(1))) return Delivery::part;
    if (!connection.send(answer.substr(at, step))) return Delivery::part;
  }
  return Delivery::full;
}

void sendOversized(const Fault& fault, Connection& connection) {
  const int64_t size = fault.bytes.value_or(kDefaultOversize);
  const std::string start =
      "Data-Format=text/plain\nData-Type=properties\nData-Length=" + std::to_string(size) + "\n\n";
  const std::string end = "\nEOF_FLAG\n";
  const int64_t total = size + static_cast<int64_t>(start.size() + end.size());
  connection.send("HTTP/1.1 200 OK\r\nContent-Type: application/x-korvane\r\nContent-Length: " +
                  std::to_string(total) + "\r\n\r\n" + start);
  sendRepeated(connection, kCommentLine, size);
  connection.send(end);
}

}  // namespace

std::string_view nameOf(Delivery delivery) {
  return delivery == Delivery::full ? "full" : delivery == Delivery::part ? "part" : "none";
}

void changeBody(const Fault& fault, std::string& body) {
  if (fault.kind == FaultKind::cut) {
    body.resize(
        std::min(body.size(), static_cast<size_t>(std::max<int64_t>(fault.bytes.value_or(0), 0))));
  }
  if (fault.kind == FaultKind::dataLength) {
    if (!body.starts_with("Data-Format")) {
      std::string section;
      writeProperties(section, {{"server.note", "a length that lies"}});
      body.insert(0, section);
    }
    body = withDataLength(body, fault.text);
  }
  if (fault.kind == FaultKind::garbageBody)
    body = repeated(std::string_view("\x01\xff\x00 no message\r\n", 16), 512);
}

Delivery sendWithFault(const Fault& fault, Connection& connection, const std::string& answer) {
  switch (fault.kind) {
    case FaultKind::dropInAnswer: {
      const Delivery delivery = sendPart(fault, connection, answer);
      connection.cutOff();
      return delivery;
    }
    case FaultKind::slow:
      return sendSlowly(fault, connection, answer);
    case FaultKind::cut:
      return connection.send(answer) ? Delivery::part : Delivery::none;
    case FaultKind::dropBeforeRead:
    case FaultKind::dropAfterRead:
      connection.breakNow();
      return Delivery::none;
    case FaultKind::oversized:
      sendOversized(fault, connection);
      connection.cutOff();
      return Delivery::none;
    case FaultKind::endlessHeaders:
      connection.send("HTTP/1.1 200 OK\r\n");
      sendRepeated(connection, kEndlessHeader, fault.bytes.value_or(kHeaderLimit));
      connection.cutOff();
      return Delivery::none;
    case FaultKind::garbage:
      connection.send(repeated(std::string_view("\x16\x03\xff\x00\x80 garbage\r\n\r\n", 17), 512));
      connection.cutOff();
      return Delivery::none;
    case FaultKind::raw:
      connection.send(fault.text);
      connection.cutOff();
      return Delivery::none;
    case FaultKind::dataLength:
    case FaultKind::garbageBody:
      connection.send(answer);
      return Delivery::none;
    default:
      return connection.send(answer) ? Delivery::full : Delivery::none;
  }
}

}  // namespace korvane::server
