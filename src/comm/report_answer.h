// What the server made of a report: a status, a policy state or the outcome of an update.
//
// Thread-safe for handlers of different threads.
//
//   HttpsHandler handler;
//   if (!reportTaken(handler, handler.sendPolicyStateMessage())) sayItAgainLater();
#pragma once

namespace korvane {

class HttpsHandler;

// Whether the outcome counts as told: the exchange succeeded (`result` is what it returned)
// and the server answered without a code, or with 200. With 400 the identity that the
// report was made with is forgotten, so that the agent registers again; that and any other
// code is event 10217 with the server's text.
[[nodiscard]] bool reportTaken(HttpsHandler& handler, int result);

}  // namespace korvane
