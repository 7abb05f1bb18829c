#include "update/util_thread.h"

#include <algorithm>

#include "config/policy_settings.h"
#include "config/prevention.h"
#include "eventlog/event_log.h"
#include "update/prevention_state.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kUtilRunTag[] = "UtilThread::run";
constexpr uint32_t kUtilCycleMs = 1000;

}  // namespace

const int UtilThread::MAX_RETRY;
const int UtilThread::RETRY_INTERVAL;

UtilThread::UtilThread(AgentInfo*) : UtilThread(policyPartsOfRun()) {}

UtilThread::UtilThread(const PolicyParts& parts) : _parts(parts), _policy(parts) {}

UtilThread::~UtilThread() = default;

void UtilThread::stop() {
  _running = false;
  Thread::stop();
}

void UtilThread::run() {
  eventlog::trace(kUtilRunTag, "*****UtilThread starting*****");
  while (_running) {
    cycle();
    if (_running) stopToken().sleepFor(kUtilCycleMs);
  }
  eventlog::trace(kUtilRunTag, "*****UtilThread exiting*****");
}

void UtilThread::cycle() {
  try {
    if (!_initialised) initialize();
    if (_initialised) work();
  } catch (const FileError& error) {
    eventlog::trace(kUtilRunTag, "Caught Utils Exception %d Message %s", error.errnoValue(),
                    error.message());
  }
}

void UtilThread::initialize() {
  const PolicyTurn turn(_parts.shared.turns, _parts.stop);
  if (!turn.taken()) return;
  _policyNews = _parts.shared.news.number();
  _initialised = true;
  const PolicySettings& settings = _parts.settings;
  const uint32_t interval = std::min<uint32_t>(settings.getAutoRetransInterval(), INT32_MAX);
  _timer = std::make_unique<RetranslationTimer>(static_cast<int32_t>(interval),
                                                settings.autoRetransEnabled());
  // Without a history the policies are worked on all the same; that has been traced.
  ignoreResult(_policy.InitializePloicyHistory());
  // Without its items a policy is not checked for retranslation; that has been told.
  if (preventionInForce(_parts.settings)) ignoreResult(_policy.loadRetransItems());
  _policy.RemovePrevHIDSPolicies();
}

void UtilThread::work() {
  if (_timer) _timer->setEnabled(_parts.settings.autoRetransEnabled());
  const bool retranslate =
      (_timer && _timer->remaining() == 0) || _parts.settings.getRetranslateNow();
  if (retranslate || _parts.shared.news.number() != _policyNews) workOnPolicy(retranslate);
  monitorPrevention();
  updateTimers();
}

void UtilThread::workOnPolicy(bool retranslate) {
  const PolicyTurn turn(_parts.shared.turns, _parts.stop);
  if (!turn.taken()) return;
  const uint64_t news = _parts.shared.news.number();
  // Without its items a policy is not checked for retranslation; that has been told.
  if (news != _policyNews && preventionInForce(_parts.settings))
    ignoreResult(_policy.loadRetransItems());
  _policyNews = news;
  // A failure is in the history.
  if (retranslate) ignoreResult(_policy.retranslatePolicy());
}

void UtilThread::monitorPrevention() {
  _parts.settings.setIPSEnforced(preventionInForce(_parts.settings) &&
                                 testPrevention(_parts.registry) == PreventionTest::refused);
}

void UtilThread::updateTimers() {
  if (_timer) _timer->step();
}

}  // namespace korvane
