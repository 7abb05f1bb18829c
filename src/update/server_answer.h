// The meaning of the server's result code in the answer to a completed exchange: to a status, or to
// a request for updates (update_exchange.h).
//
// Used by the update thread alone.
//
//   const ServerAnswer answer = handleServerAnswer(handler, EventId::serverError, settings);
//   if (answer.refused()) return;
#pragma once

#include "comm/server_codes.h"
#include "eventlog/event_id.h"
#include "util/string.h"

namespace korvane {

class HttpsHandler;
class ServerSettings;

struct ServerAnswer {
  int code = 0;
  STRING text;  // the server's; empty without a code

  bool accepted() const { return code == 0; }
  bool comeBackLater() const { return code == kServerComeBackLater; }
  // Any other code: nothing of the answer may be used.
  bool refused() const { return !accepted() && !comeBackLater(); }
};

// Reads the handler's last answer. Accepted: event 10219 with the current server. Unknown
// agent: the identifier that the request was made with is forgotten, so that the agent
// registers again, and event
// 10217. Refused for another reason: the event `refusalEvent` with the server's text.
[[nodiscard]] ServerAnswer handleServerAnswer(HttpsHandler& handler, EventId refusalEvent,
                                              ServerSettings& settings);

}  // namespace korvane
