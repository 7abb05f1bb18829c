#include "update/util_thread.h"

#include <algorithm>

#include "config/agent_config.h"
#include "config/prevention.h"
#include "eventlog/event_log.h"
#include "update/policy/policy_news.h"
#include "update/policy/policy_turn.h"
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

UtilThread::UtilThread(AgentInfo*) {}

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
    if (!_config) initialize();
    if (_config) work();
  } catch (const FileError& error) {
    eventlog::trace(kUtilRunTag, "Caught Utils Exception %d Message %s", error.errnoValue(),
                    error.message());
  }
}

void UtilThread::initialize() {
  const PolicyTurn turn;
  if (!turn.taken()) return;
  _policyNews = PolicyNews::number();
  _config = AgentConfig::getInstance();
  const uint32_t interval = std::min<uint32_t>(_config->getAutoRetransInterval(), INT32_MAX);
  _timer = std::make_unique<RetranslationTimer>(static_cast<int32_t>(interval),
                                                _config->autoRetransEnabled());
  // Without a history the policies are worked on all the same; that has been traced.
  ignoreResult(_policy.InitializePloicyHistory());
  // Without its items a policy is not checked for retranslation; that has been told.
  if (preventionInForce(*_config)) ignoreResult(_policy.loadRetransItems());
  PolicyProcessor::RemovePrevHIDSPolicies();
}

void UtilThread::work() {
  if (_timer) _timer->setEnabled(_config->autoRetransEnabled());
  const bool retranslate = (_timer && _timer->remaining() == 0) || _config->getRetranslateNow();
  if (retranslate || PolicyNews::number() != _policyNews) workOnPolicy(retranslate);
  monitorPrevention();
  updateTimers();
}

void UtilThread::workOnPolicy(bool retranslate) {
  const PolicyTurn turn;
  if (!turn.taken()) return;
  const uint64_t news = PolicyNews::number();
  // Without its items a policy is not checked for retranslation; that has been told.
  if (news != _policyNews && preventionInForce(*_config)) ignoreResult(_policy.loadRetransItems());
  _policyNews = news;
  // The failure has been told as the policy's error.
  if (retranslate) ignoreResult(_policy.retranslatePolicy());
}

void UtilThread::monitorPrevention() {
  // It has traced what it found.
  if (preventionInForce(*_config)) ignoreResult(preventionTestKeyCanBeMade());
}

void UtilThread::updateTimers() {
  if (_timer) _timer->step();
}

}  // namespace korvane
