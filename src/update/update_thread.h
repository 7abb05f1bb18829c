// The polling engine of an agent that a management server drives: once a second it decides which
// exchanges are due and makes them, each on a handler of its own.
//
// Today it sends the agent's status on its cadence, keeps what the answer says is waiting, watches
// prevention, reports a changed policy state, and marks the first update as done. What is waiting is not
// fetched yet; docs/limitations.md says so.
//
// The first status decides whether event forwarding begins. With polling disabled nothing would send it
// again after a failure, so it is then repeated every 2 seconds until it has been done once.
//
// Start: as every Thread. Stop: stop() clears the running flag and ends the pause; an exchange in progress
//   is ended by the shutdown token. Nothing is drained: the next start polls at once.
// Threads: all state belongs to this thread but the running flag. cycle() is for tests, instead of start().
// Units: all countdowns count cycles, of about a second each.
#pragma once

#include <atomic>
#include <cstdint>

#include "agent/thread/thread.h"
#include "platform/export.h"
#include "update/notification_listener.h"
#include "update/pending_updates.h"
#include "update/retry_group.h"

namespace korvane {

class AgentConfig;
class AgentInfo;
class HttpsHandler;

class KORVANE_EXPORT UpdateThread : public Thread {
 public:
  static constexpr int MAX_RETRY = RetryGroup::kMaxRetry;
  static constexpr int RETRY_INTERVAL = RetryGroup::kInterval;

  explicit UpdateThread(AgentInfo* info);
  ~UpdateThread() override;

  void run() override;
  void stop() override;

  // One turn of the loop without its pause.
  void cycle();
  const PendingUpdates& pendingUpdates() const { return _pending; }

 private:
  void prepare();
  // True when the cycle still needs its pause.
  bool work();
  void stepCountdowns();

  bool tcpNotification();

  bool statusDue();
  void sendAgentStatus();
  bool acceptStatusAnswer(HttpsHandler& handler);
  void monitorPrevention();
  void monitorPolicyState();
  void updatePollingInterval();
  void updateAutoRetransInterval();

  std::atomic<bool> _running{true};
  bool _initialised = false;
  AgentConfig* _config = nullptr;
  int _lastServerError = 0;
  bool _bFirstPollRequired = true;
  int32_t _pollingInterval = -1;
  int32_t _firstStatusRetry = 0;
  int32_t _autoRetransCountdown = -1;
  RetryGroup _configRetry;
  RetryGroup _idsRetry;
  RetryGroup _softwareRetry;
  RetryGroup _componentRetry;
  PendingUpdates _pending;
  NotificationListener _listener{stopToken()};
};

}  // namespace korvane
