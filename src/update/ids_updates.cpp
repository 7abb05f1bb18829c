// Policy and configuration of the IDS component: fetched, handed over, reported.
#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"
#include "update/server_answer.h"
#include "update/update_result.h"
#include "update/update_thread.h"

namespace korvane {
namespace {

constexpr char kSource[] = "UpdateThread";
constexpr int kEventRefused = 10217;

}  // namespace

int UpdateThread::takeIdsKinds() {
  if (_idsRetry.due()) return _idsRetry.kinds;
  int kinds = 0;
  if (_pending.idsPolicy) kinds |= HttpsHandler::POLICY_UPDATE_HIDS;
  if (_pending.idsConfiguration) kinds |= HttpsHandler::CONFIG_UPDATE_HIDS;
  _pending.idsPolicy = _pending.idsConfiguration = false;
  return kinds;
}

void UpdateThread::processHIDSPolicyUpdate() {
  const int kinds = takeIdsKinds();
  if (kinds == 0) return;
  HttpsHandler handler;
  if (handler.getUpdate(kinds, _bFirstPollRequired) != 0) return _idsRetry.clear();
  const ServerAnswer answer = takeServerAnswer(handler, kEventRefused);
  _lastServerError = answer.code;
  if (answer.refused()) return;
  if (answer.accepted()) _idsRetry.clear();
  if (answer.comeBackLater()) {
    eventlog::trace(
        kSource,
        "::processHIDSPolicyUpdates : Server asked us to retry after sometime. Retry count %d",
        _idsRetry.count);
    _idsRetry.refuse(_idsRetry.kinds | kinds);
  }
  _bFirstPollRequired = false;
  if (kinds & HttpsHandler::CONFIG_UPDATE_HIDS)
    applyConfiguration(handler, HttpsHandler::CONFIG_UPDATE_HIDS);
}

}  // namespace korvane
