// Posts batches to the management server, a section of properties for each record.
//
// What the server's own error code means: 0, 302 and 600 count as delivered (302 is event 10227);
// 400 says that it does not know the agent: the identifier that was used is forgotten, so that the
// agent registers again, and the batch stays with the caller, as for every other code (event
// 10213). Events are reported when the code changes, the return to 0 as event 10214.
// ForwardingCounters tell what was delivered and what was dropped on the server's word.
// Lifetime: owned by its writer; connection, settings and counters outlive it. Threads: one. Errors: the return
// values of HttpsHandler::log, or the code.
#pragma once

#include <optional>

#include "comm/message_body.h"
#include "logs/log_destination.h"

namespace korvane {

class ForwardingCounters;
class HttpsHandler;
class ServerConnection;
class ServerSettings;

class HttpsLogDestination : public LogDestination {
 public:
  HttpsLogDestination(ServerConnection& connection, ServerSettings& settings,
                      ForwardingCounters& counters);
  int writeLog(const LogBatch& batch) override;
  int droppedAs() const override { return _droppedAs; }
  void releaseMemory() override { _body.reset(); }

 private:
  [[nodiscard]] int judge(HttpsHandler& handler, int result, size_t records);
  void report(const STRING& text);

  ServerConnection& _connection;
  ServerSettings& _settings;
  ForwardingCounters& _counters;
  std::optional<MessageBody> _body;  // the last message, for its memory
  int _droppedAs = 0;
  int _lastError = 0;
  int _lastReportedError = 0;
};

}  // namespace korvane
