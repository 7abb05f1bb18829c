#include "logs/https_log_destination.h"

#include "comm/server_codes.h"
#include "eventlog/event_log.h"
#include "logs/forwarding_counters.h"

namespace korvane {
namespace {

constexpr char kHttpsSource[] = "HttpsLogDestination::writeLog";

// The server's answers to a log message.
constexpr int kAccepted = 0;
constexpr int kDropped = 302;
constexpr int kDroppedSilently = 600;

}  // namespace

HttpsLogDestination::HttpsLogDestination() : _config(AgentConfig::getInstance()) {}

int HttpsLogDestination::writeLog(const std::vector<PropertyList>& batch) {
  HttpsHandler handler;
  return judge(handler, handler.log(batch), batch.size());
}

int HttpsLogDestination::writeBatch(const LogBatch& batch) {
  HttpsHandler handler;
  return judge(handler, handler.log(batch.body, batch.records.size()), batch.records.size());
}

int HttpsLogDestination::judge(HttpsHandler& handler, int result, size_t records) {
  if (result != 0) {
    ForwardingCounters::noteError(result, handler.lastResult().failure.text());
    return result;
  }
  STRING text;
  _lastError = handler.getKorvaneError(text);
  report(text);
  switch (_lastError) {
    case kDropped:
    case kDroppedSilently:
      ForwardingCounters::addDropped(records);
      ForwardingCounters::noteError(_lastError, text.toUtf8());
      return 0;
    case kAccepted:
      ForwardingCounters::addForwarded(records);
      return 0;
    case kServerUnknownAgent:
      _config->clearUniqueId(handler.getGUIDUsed());
      [[fallthrough]];
    default:
      ForwardingCounters::noteError(_lastError, text.toUtf8());
      return _lastError;
  }
}

void HttpsLogDestination::report(const STRING& text) {
  if (_lastError == _lastReportedError) return;
  _lastReportedError = _lastError;
  switch (_lastError) {
    case kAccepted:
      eventlog::event(EventId::eventsAcceptedAgain, kHttpsSource);
      break;
    case kDropped:
      eventlog::event(EventId::eventsDropped, kHttpsSource, {_lastError, text});
      break;
    case kServerUnknownAgent:
    case kDroppedSilently:
      break;
    default:
      eventlog::event(EventId::eventsRefused, kHttpsSource, {_lastError, text});
  }
}

}  // namespace korvane
