#include "comm/report_answer.h"

#include "comm/https_handler.h"
#include "comm/server_codes.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kSource[] = "HttpsHandler";

}  // namespace

bool reportTaken(HttpsHandler& handler, int result) {
  if (result != 0) return false;
  STRING text;
  const int code = handler.getKorvaneError(text);
  if (code == 0 || code == kServerComeBackLater) return true;
  if (code == kServerUnknownAgent) handler.forgetIdentity();
  eventlog::event(EventId::serverError, kSource, {text});
  return false;
}

}  // namespace korvane
