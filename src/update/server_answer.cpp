#include "update/server_answer.h"

#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kSource[] = "UpdateThread";
constexpr int kEventAnswered = 10219;
constexpr int kEventServerError = 10217;

}  // namespace

ServerAnswer takeServerAnswer(HttpsHandler& handler, int refusalEvent) {
  ServerAnswer answer;
  answer.code = handler.getKorvaneError(answer.text);
  AgentConfig& config = *AgentConfig::getInstance();
  if (answer.accepted()) {
    eventlog::event(kEventAnswered, kSource, {config.getServerCurrent()});
  } else if (answer.code == ServerAnswer::kUnknownAgent) {
    config.clearUniqueId(handler.getGUIDUsed());
    eventlog::event(kEventServerError, kSource, {answer.text});
  } else if (answer.refused()) {
    eventlog::event(refusalEvent, kSource, {answer.text});
  }
  return answer;
}

}  // namespace korvane
