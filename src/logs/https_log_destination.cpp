#include "logs/https_log_destination.h"
#include "comm/server_connection.h"

#include "comm/https_handler.h"
#include "comm/server_codes.h"
#include "config/server_settings.h"
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

HttpsLogDestination::HttpsLogDestination(ServerConnection& connection, ServerSettings& settings,
                                         ForwardingCounters& counters)
    : _connection(connection), _settings(settings), _counters(counters) {}

int HttpsLogDestination::writeLog(const LogBatch& batch) {
  _droppedAs = 0;
  if (!_body) _body.emplace();
  composeBody(*_body, batch.records, batch.notes);
  HttpsHandler handler(_connection);
  return judge(handler, handler.log(*_body, batch.records.size()), batch.records.size());
}

int HttpsLogDestination::judge(HttpsHandler& handler, int result, size_t records) {
  if (result != 0) {
    _counters.noteError(result, handler.lastResult().failure.text());
    return result;
  }
  STRING text;
  _lastError = handler.getKorvaneError(text);
  report(text);
  switch (_lastError) {
    case kDropped:
    case kDroppedSilently:
      _droppedAs = _lastError;
      _counters.addDropped(records);
      _counters.noteError(_lastError, text.toUtf8());
      return 0;
    case kAccepted:
      _counters.addForwarded(records);
      return 0;
    case kServerUnknownAgent:
      _settings.clearUniqueId(handler.getGUIDUsed());
      [[fallthrough]];
    default:
      _counters.noteError(_lastError, text.toUtf8());
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
