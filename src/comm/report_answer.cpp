#include "comm/report_answer.h"

#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kSource[] = "HttpsHandler";
constexpr int kReportTaken = 200;
constexpr int kUnknownAgent = 400;

}  // namespace

bool reportTaken(HttpsHandler& handler, int result) {
  if (result != 0) return false;
  STRING text;
  const int code = handler.getKorvaneError(text);
  if (code == 0 || code == kReportTaken) return true;
  if (code == kUnknownAgent) AgentConfig::getInstance()->clearUniqueId(handler.getGUIDUsed());
  eventlog::event(EventId::serverError, kSource, {text});
  return false;
}

}  // namespace korvane
