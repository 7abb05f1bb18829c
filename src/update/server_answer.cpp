#include "update/server_answer.h"

#include "comm/https_handler.h"
#include "config/server_settings.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kAnswerSource[] = "UpdateThread";

}  // namespace

ServerAnswer handleServerAnswer(HttpsHandler& handler, EventId refusalEvent,
                                ServerSettings& settings) {
  ServerAnswer answer;
  answer.code = handler.getKorvaneError(answer.text);
  if (answer.accepted()) {
    eventlog::event(EventId::serverWorking, kAnswerSource, {settings.getServerCurrent()});
  } else if (answer.code == kServerUnknownAgent) {
    settings.clearUniqueId(handler.getGUIDUsed());
    eventlog::event(EventId::serverError, kAnswerSource, {answer.text});
  } else if (answer.refused()) {
    eventlog::event(refusalEvent, kAnswerSource, {answer.text});
  }
  return answer;
}

}  // namespace korvane
