#include "update/update_exchange.h"

#include "comm/https_handler.h"
#include "eventlog/event_log.h"
#include "update/server_answer.h"

namespace korvane {
namespace {

using Of = UpdateGroup::Of;

int askForUpdate(HttpsHandler& handler, int kinds, bool firstPoll) {
  return handler.getUpdate(kinds, firstPoll);
}

int askForContent(HttpsHandler& handler, int, bool) {
  return handler.getCompUpdate();
}

constexpr UpdateGroup kConfigPolicy{
    .of = Of::settings,
    .kinds = HttpsHandler::CONFIG_UPDATE | HttpsHandler::POLICY_UPDATE,
    .alsoRepeated = HttpsHandler::CONFIG_UPDATE | HttpsHandler::POLICY_UPDATE,
    .refusalEvent = EventId::serverError,
    .ask = askForUpdate,
    .traces = {
        .source = "UpdateThread",
        .putOff = "UpdateThread::processConfigPolicyUpdates : Server asked us to retry after "
                  "sometime. Retry count %d",
        .asked = "::processConfigPolicyUpdates : httpSender.getUpdate: pollFor=%d, "
                 "_bFirstPollRequired=%d",
    }};

constexpr UpdateGroup kIds{
    .of = Of::settings,
    .kinds = HttpsHandler::POLICY_UPDATE_HIDS | HttpsHandler::CONFIG_UPDATE_HIDS,
    .alsoRepeated = 0,
    .refusalEvent = EventId::serverError,
    .ask = askForUpdate,
    .traces = {
        .source = "UpdateThread",
        .putOff = "::processHIDSPolicyUpdates : Server asked us to retry after sometime. Retry "
                  "count %d",
    }};

constexpr UpdateGroup kSoftware{
    .of = Of::packages,
    .kinds = HttpsHandler::SOFTWARE_UPDATE,
    .alsoRepeated = 0,
    .refusalEvent = EventId::softwareRequestRefused,
    .ask = askForUpdate,
    .traces = {
        .source = "UpdateThread",
        .putOff = "::processSoftware : Server asked us to retry after sometime. Retry count %d",
    }};

constexpr UpdateGroup kContent{
    .of = Of::packages,
    .kinds = HttpsHandler::VEXQEL_UPDATE | HttpsHandler::FERROLYN_REVO_UPDATE |
             HttpsHandler::FERROLYN_SETTINGS_UPDATE | HttpsHandler::FERROLYN_VT_UPDATE,
    .alsoRepeated = 0,
    .refusalEvent = EventId::contentRequestRefused,
    .ask = askForContent,
    .traces = {
        .source = "UpdateThread::getComponentUpdate()",
        .putOff = "processComponentUpdates:VexQEL and Ferrolyn:httpSender.getKorvaneError Server "
                  "asked us to retry after sometime. Retry count %d",
        .failed = "Communication error while requesting Freshline data.",
        .accepted = "No Korvane error code detected. Raw FL data download.",
        .refused = "UpdateThread::getComponentUpdate( HttpsHandler &httpSender ) Error Message - "
                   "%s Return Code - %d",
    }};

template <class... T>
void traceIfGiven(const char* source, const char* format, const T&... arguments) {
  if (format) eventlog::trace(source, format, arguments...);
}

}  // namespace

const UpdateGroup& configPolicyUpdates() {
  return kConfigPolicy;
}
const UpdateGroup& idsUpdates() {
  return kIds;
}
const UpdateGroup& softwareUpdates() {
  return kSoftware;
}
const UpdateGroup& contentUpdates() {
  return kContent;
}

bool UpdateExchange::run(const Process& process, int allowed, bool firstPoll) {
  const int kinds = collectDueKinds() & allowed;
  if (kinds == 0) return false;
  const UpdateGroup::Traces& traces = _group.traces;
  traceIfGiven(traces.source, traces.asked, kinds, static_cast<int>(firstPoll));
  HttpsHandler handler(_connection);
  if (_group.ask(handler, kinds, firstPoll) == 0) return exchange(handler, kinds, process);
  traceIfGiven(traces.source, traces.failed);
  _retry.clear();
  return false;
}

int UpdateExchange::collectDueKinds() {
  if (!due()) return 0;
  if (_group.of == Of::settings) return _retry.due() ? _retry.kinds : _pending.take(_group.kinds);
  const int putOff = _retry.pending ? _retry.kinds : 0;
  return putOff | _pending.take(_group.kinds);
}

bool UpdateExchange::exchange(HttpsHandler& handler, int kinds, const Process& process) {
  const UpdateGroup::Traces& traces = _group.traces;
  const ServerAnswer answer = handleServerAnswer(handler, _group.refusalEvent, _server);
  if (answer.refused()) {
    if (_group.of == Of::packages) _retry.giveUp();
    traceIfGiven(traces.source, traces.refused, answer.text, answer.code);
    return false;
  }
  if (answer.comeBackLater()) {
    putOff(kinds);
    return true;
  }
  traceIfGiven(traces.source, traces.accepted);
  _retry.clear();
  for (int kind = 1; kind <= kinds; kind <<= 1)
    if (kinds & kind) process(handler, kind);
  return true;
}

void UpdateExchange::putOff(int kinds) {
  eventlog::trace(_group.traces.source, _group.traces.putOff, _retry.count);
  const int repeated = _retry.kinds | kinds | _group.alsoRepeated;
  if (_group.of == Of::settings)
    _retry.refuse(repeated);
  else
    _retry.refuseWithinLimit(repeated);
}

}  // namespace korvane
