// Posts batches to the management server.
//
// What the server's own error code means: 0, 302 and 600 count as delivered (302 is event 10227);
// 400 says that it does not know the agent: the identifier that was used is forgotten, so that the
// agent registers again, and the batch stays with the caller, as for every other code (event
// 10213). Events are reported when the code changes, the return to 0 as event 10214.
// ForwardingCounters tell what was delivered and what was dropped on the server's word.
// Lifetime: owned by its writer. Threads: one. Errors: the return values of
// HttpsHandler::log, or the code.
#pragma once

#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "logs/log_destination.h"

namespace korvane {

class HttpsLogDestination : public LogDestination {
 public:
  HttpsLogDestination();
  int writeLog(const std::vector<PropertyList>& batch) override;
  int writeBatch(const LogBatch& batch) override;

 private:
  [[nodiscard]] int judge(HttpsHandler& handler, int result, size_t records);
  void report(const STRING& text);

  AgentConfig* const _config;
  int _lastError = 0;
  int _lastReportedError = 0;
};

}  // namespace korvane
