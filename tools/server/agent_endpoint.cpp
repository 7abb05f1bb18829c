#include "tools/server/agent_endpoint.h"

#include <algorithm>

#include "tools/server/fault_delivery.h"

namespace korvane::server {

namespace {

// Far above what an agent sends; a larger body is refused with HTTP status 413.
constexpr size_t kLargestBody = size_t{512} << 20;

// The exchange that the calling thread's request belongs to.
thread_local void* currentExchange = nullptr;

Refusal refusalBy(const Fault& fault) {
  Refusal refusal;
  if (fault.kind == FaultKind::error) refusal.korvaneError = fault.code;
  if (fault.kind == FaultKind::http) refusal.httpStatus = fault.code;
  refusal.text = fault.text;
  refusal.wide = fault.wide;
  refusal.noGuid = fault.kind == FaultKind::noGuid;
  refusal.store =
      fault.store.value_or(fault.kind != FaultKind::error && fault.kind != FaultKind::http);
  return refusal;
}

}  // namespace

// One request on its way through the engine; lives on the connection's thread.
struct AgentEndpoint::Exchange {
  AgentRequest request;
  AgentAnswer answer;
  std::vector<Fault> faults;

  const Fault* fault() const {
    return !faults.empty() && faults.back().kind != FaultKind::delay ? &faults.back() : nullptr;
  }
  bool hit(FaultKind kind) const { return fault() != nullptr && fault()->kind == kind; }
};

AgentEndpoint::AgentEndpoint(AgentService& service, Misbehaviour& misbehaviour,
                             std::string basePath)
    : _service(service), _misbehaviour(misbehaviour), _basePath(std::move(basePath)) {
  _http.Post(".*", [this](const auto& request, auto& response, const auto& read) {
    onPost(request, response, read);
  });
}

void AgentEndpoint::serve(Connection& connection, const TlsContext& certificate) {
  if (!handshake(connection, certificate)) return;
  ++_handshakes;
  while (connection.waitForRequest(kIdleLimit) && serveRequest(connection)) {
  }
}

bool AgentEndpoint::handshake(Connection& connection, const TlsContext& certificate) {
  const TlsContext* shown = &certificate;
  const auto faults = _misbehaviour.strike("connect", "", connection.localAddress());
  for (const Fault& fault : faults) {
    if (fault.kind == FaultKind::delay &&
        !connection.pause(std::chrono::milliseconds(fault.delayMs)))
      return false;
    if (fault.kind == FaultKind::drop) {
      connection.breakNow();
      return false;
    }
    if (fault.certificate) shown = &*fault.certificate;
  }
  return connection.startTls(*shown);
}

bool AgentEndpoint::serveRequest(Connection& connection) {
  Exchange exchange;
  currentExchange = &exchange;
  connection.hold();
  connection.recordHead();
  const bool goOn = _http.serveOne(connection);
  currentExchange = nullptr;
  return deliver(connection, exchange, connection.releaseHeld()) && goOn;
}

void AgentEndpoint::onPost(const httplib::Request& request, httplib::Response& response,
                           const httplib::ContentReader& read) {
  Exchange& exchange = *static_cast<Exchange*>(currentExchange);
  Connection& connection = HttpEngine::current();
  AgentRequest& message = exchange.request;
  if (request.path.starts_with(_basePath)) message.word = request.path.substr(_basePath.size());
  message.headers = readHeaderLines(connection.releaseHead());
  message.guid = request.get_header_value("Korvane-GUID");
  message.version = request.get_header_value("Korvane-Format-Version");
  message.contentType = request.get_header_value("Content-Type");
  message.charset = request.get_header_value("Korvane-Charset");
  message.listener = connection.localAddress();
  if (!isPathWord(message.word)) {
    read([](const char*, size_t) { return true; });
    response.status = 404;
    return;
  }
  exchange.faults = _misbehaviour.strike(message.word, message.guid, message.listener);
  for (const Fault& fault : exchange.faults) {
    message.misbehaviour +=
        (message.misbehaviour.empty() ? "" : " ") + std::string(nameOf(fault.kind));
  }
  if (exchange.hit(FaultKind::dropBeforeRead)) {
    _service.noteUnread(message, "");
    return connection.breakNow();
  }
  const bool whole = read([&](const char* bytes, size_t size) {
    message.body.append(bytes, size);
    return message.body.size() <= kLargestBody;
  });
  if (!whole) {
    _service.noteUnread(message, "the body was cut or too large");
    response.status = 413;
    return connection.breakNow();
  }
  answer(exchange, response);
}

void AgentEndpoint::answer(Exchange& exchange, httplib::Response& response) {
  const Fault* fault = exchange.fault();
  AgentAnswer& made = exchange.answer;
  made = _service.handle(exchange.request, fault != nullptr ? refusalBy(*fault) : Refusal());
  std::string body = made.body;
  if (fault != nullptr) changeBody(*fault, body);
  response.status = made.httpStatus;
  if (made.korvaneError != 0)
    response.set_header("Korvane-Error", std::to_string(made.korvaneError));
  if (made.wide) response.set_header("Korvane-Charset", "UTF-16LE");
  response.set_content(std::move(body), "application/x-korvane");
}

// Sends the engine's answer, or what a fault makes of it; false when the connection is to be
// closed.
bool AgentEndpoint::deliver(Connection& connection, Exchange& exchange, std::string answer) {
  for (const Fault& fault : exchange.faults) {
    if (fault.kind == FaultKind::delay) connection.pause(std::chrono::milliseconds(fault.delayMs));
  }
  const Fault* fault = exchange.fault();
  const Delivery delivery = fault != nullptr          ? sendWithFault(*fault, connection, answer)
                            : connection.send(answer) ? Delivery::full
                                                      : Delivery::none;
  _service.answered(exchange.answer, nameOf(delivery));
  return connection.intact();
}

}  // namespace korvane::server
